#include "devhost/qosdb/feed_lock.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <sstream>

namespace qosdb {

namespace {

// As /proc/locks has it, in lines like "1: FLOCK ADVISORY WRITE 4711 fd:00:131 0 EOF".
std::string holderOf(const struct stat& file) {
    char wanted[64];
    std::snprintf(wanted, sizeof wanted, "%02x:%02x:%llu", major(file.st_dev), minor(file.st_dev),
                  static_cast<unsigned long long>(file.st_ino));
    std::ifstream locks("/proc/locks");
    for (std::string line; std::getline(locks, line);) {
        std::istringstream words(line);
        std::string number, kind, advisory, access, process, place;
        words >> number >> kind >> advisory >> access >> process >> place;
        if (kind == "FLOCK" && place == wanted) {
            return "process " + process;
        }
    }
    return "another process";  // of another container, or the file system has two numbers
}

}  // namespace

std::string FeedLock::take(const std::string& database) {
    release();
    const std::string log = walOf(database);
    descriptor_ = open(log.c_str(), O_RDWR | O_CLOEXEC);
    struct stat status {};
    if (descriptor_ < 0 || fstat(descriptor_, &status) != 0) {
        return "cannot open its log '" + log + "': " + std::strerror(errno);
    }
    if (flock(descriptor_, LOCK_EX | LOCK_NB) == 0) {
        return "";
    }
    return errno == EWOULDBLOCK ? holderOf(status) + " feeds it already: end that one, or feed another file"
                                : "cannot lock its log '" + log + "': " + std::strerror(errno);
}

void FeedLock::release() {
    if (descriptor_ >= 0) {
        close(descriptor_);
        descriptor_ = -1;
    }
}

bool FeedLock::isOpen(const std::string& file) const {
    struct stat named {};
    if (stat(file.c_str(), &named) != 0) {
        return false;
    }
    const std::unique_ptr<DIR, int (*)(DIR*)> opened(opendir("/proc/self/fd"), closedir);
    if (opened == nullptr) {
        return true;  // nobody to ask
    }
    while (const dirent* entry = readdir(opened.get())) {
        const int descriptor = std::atoi(entry->d_name);
        struct stat status {};
        if (entry->d_name[0] != '.' && descriptor != descriptor_ && fstat(descriptor, &status) == 0 &&
            status.st_dev == named.st_dev && status.st_ino == named.st_ino) {
            return true;
        }
    }
    return false;
}

}  // namespace qosdb
