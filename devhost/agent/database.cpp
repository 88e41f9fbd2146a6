#include "devhost/agent/database.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace agent {

namespace {

namespace fs = std::filesystem;

constexpr std::string_view kPrefix = "qos-agent-db.";
constexpr std::string_view kUnique = "XXXXXX";  // mkdtemp puts letters and digits there

/* The lock on a folder of this user that the name still stands for; none when another has it or it is gone. */
host::Descriptor lockOf(const std::string& folder) {
    host::Descriptor file(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NOFOLLOW));
    struct stat locked {};
    struct stat named {};
    const bool ours = file.get() >= 0 && fstat(file.get(), &locked) == 0 && locked.st_uid == geteuid() &&
                      flock(file.get(), LOCK_EX | LOCK_NB) == 0 && lstat(folder.c_str(), &named) == 0 &&
                      named.st_dev == locked.st_dev && named.st_ino == locked.st_ino;
    return ours ? std::move(file) : host::Descriptor();
}

bool isNameOfFolder(std::string_view name) {
    const auto isUnique = [](unsigned char character) { return std::isalnum(character) != 0; };
    return name.starts_with(kPrefix) && name.size() == kPrefix.size() + kUnique.size() &&
           std::ranges::all_of(name.substr(kPrefix.size()), isUnique);
}

// Where files live in memory and end with the machine at the latest.
fs::path folderInMemory() {
    for (const char* const name : {"RUNTIME_DIRECTORY", "XDG_RUNTIME_DIR"}) {
        if (const char* const folder = std::getenv(name); folder != nullptr && access(folder, W_OK) == 0) {
            return folder;
        }
    }
    for (const char* const folder : {"/run", "/dev/shm"}) {
        if (access(folder, W_OK) == 0) {
            return folder;
        }
    }
    return fs::temp_directory_path();
}

// A folder that can be locked belongs to no agent that lives; one that just begins tries again (makeFolder()).
void removeLeftFolders(const fs::path& parent) {
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(parent, error)) {
        const std::string folder = entry.path();
        if (!isNameOfFolder(entry.path().filename().string())) {
            continue;
        }
        if (const host::Descriptor lock = lockOf(folder); lock.get() >= 0) {
            fs::remove_all(folder, error);
        }
    }
}

}  // namespace

Database::Database(std::string file) : file_(std::move(file)) {
    if (file_.empty()) {
        makeFolder();
        file_ = folder_ + "/qos.db";
    }
}

// Until the folder is locked, another agent that begins may take it for one that was left.
void Database::makeFolder() {
    constexpr int kMostTries = 20;
    const fs::path parent = folderInMemory();
    removeLeftFolders(parent);
    for (int tries = 0; tries < kMostTries; ++tries) {
        std::string folder = parent / fmt::format("{}{}", kPrefix, kUnique);
        if (mkdtemp(folder.data()) == nullptr) {
            throw std::system_error(errno, std::generic_category(),
                                    fmt::format("cannot make a folder for the database in '{}'", parent.string()));
        }
        lock_ = lockOf(folder);
        if (lock_.get() >= 0) {
            folder_ = folder;
            return;
        }
        rmdir(folder.c_str());
    }
    throw std::runtime_error(fmt::format("cannot lock a folder for the database in '{}'", parent.string()));
}

Database::~Database() {
    if (!folder_.empty()) {
        std::error_code error;
        fs::remove_all(folder_, error);
    }
}

}  // namespace agent
