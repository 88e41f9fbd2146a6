#include "devhost/agent/database.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace agent {

namespace {

namespace fs = std::filesystem;

constexpr std::string_view kPrefix = "qos-agent.";

host::Descriptor lockOf(const std::string& folder) {
    host::Descriptor file(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NOFOLLOW));
    return file.get() >= 0 && flock(file.get(), LOCK_EX | LOCK_NB) == 0 ? std::move(file) : host::Descriptor();
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

// A folder that can be locked belongs to no agent that lives.
void removeLeftFolders(const fs::path& parent) {
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(parent, error)) {
        const std::string folder = entry.path();
        if (entry.path().filename().string().starts_with(kPrefix) && access(folder.c_str(), W_OK) == 0 &&
            lockOf(folder).get() >= 0) {
            fs::remove_all(folder, error);
        }
    }
}

}  // namespace

Database::Database(std::string file) : file_(std::move(file)) {
    if (!file_.empty()) {
        return;
    }
    const fs::path parent = folderInMemory();
    removeLeftFolders(parent);
    std::string folder = parent / fmt::format("{}XXXXXX", kPrefix);
    if (mkdtemp(folder.data()) == nullptr) {
        throw std::system_error(errno, std::generic_category(),
                                fmt::format("cannot make a folder for the database in '{}'", parent.string()));
    }
    folder_ = folder;
    lock_ = lockOf(folder_);
    file_ = folder_ + "/qos.db";
}

Database::~Database() {
    if (!folder_.empty()) {
        std::error_code error;
        fs::remove_all(folder_, error);
    }
}

}  // namespace agent
