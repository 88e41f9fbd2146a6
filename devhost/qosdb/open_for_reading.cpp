#include "devhost/qosdb/open_for_reading.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cctype>
#include <cstdio>
#include <cstdlib>

namespace qosdb {

namespace {

constexpr int kBusyTimeoutMs = 300;

// The path without links, as SQLite names the log and the index.
std::string realPath(const std::string& path) {
    char* resolved = realpath(path.c_str(), nullptr);
    std::string real = resolved == nullptr ? path : resolved;
    std::free(resolved);
    return real;
}

bool may(const std::string& file, int mode) {
    return faccessat(AT_FDCWD, file.c_str(), mode, AT_EACCESS) == 0;
}

bool mayChange(const std::string& realPath) {
    const size_t slash = realPath.rfind('/');
    return may(realPath, W_OK) && may(slash == std::string::npos ? "." : realPath.substr(0, slash + 1), W_OK | X_OK);
}

int openFile(const std::string& name, int flags, Connection& connection) {
    sqlite3* opened = nullptr;
    const int code = sqlite3_open_v2(name.c_str(), &opened, flags | SQLITE_OPEN_NOMUTEX, nullptr);
    connection.reset(opened);
    if (code != SQLITE_OK) {
        return code;
    }
    sqlite3_busy_timeout(opened, kBusyTimeoutMs);
    return sqlite3_exec(opened, "PRAGMA query_only=1", nullptr, nullptr, nullptr);
}

std::string immutableUri(const std::string& realPath) {
    std::string uri = "file:";
    for (const char character : realPath) {
        const auto byte = static_cast<unsigned char>(character);
        if (std::isalnum(byte) != 0 || byte == '/') {
            uri += character;
        } else {
            char escaped[4];
            std::snprintf(escaped, sizeof escaped, "%%%02x", byte);
            uri += escaped;
        }
    }
    return uri + "?immutable=1";
}

// Asks SQLite's own file: another one, when closed, would end the locks that this process has on it.
bool isInWalMode(const Connection& connection) {
    constexpr size_t kReadVersion = 19;
    constexpr char kWal = 2;
    std::array<char, 20> header{};
    sqlite3_file* file = nullptr;
    return sqlite3_file_control(connection.get(), "main", SQLITE_FCNTL_FILE_POINTER, &file) == SQLITE_OK &&
           file->pMethods != nullptr &&
           file->pMethods->xRead(file, header.data(), static_cast<int>(header.size()), 0) == SQLITE_OK &&
           header[kReadVersion] == kWal;
}

}  // namespace

int openForReading(const std::string& path, Connection& connection, bool& asItStands) {
    const std::string real = realPath(path);
    if (!mayChange(real) && !may(real + "-wal", F_OK) &&
        openFile(immutableUri(real), SQLITE_OPEN_READONLY | SQLITE_OPEN_URI, connection) == SQLITE_OK &&
        isInWalMode(connection)) {
        asItStands = true;
        return SQLITE_OK;
    }
    // For writing as well, so that the last reader can tidy up the files of the WAL.
    asItStands = false;
    return openFile(path, SQLITE_OPEN_READWRITE, connection);
}

std::string missingRights(const std::string& path) {
    const std::string real = realPath(path);
    for (const char* end : {"", "-wal", "-shm"}) {
        const std::string file = real + end;
        if (may(file, F_OK) && !may(file, R_OK)) {
            return "; this user may not read '" + file + "'";
        }
    }
    if (may(real + "-wal", F_OK) && !mayChange(real)) {
        return "; '" + real +
               "-wal' is left from a feed that ended early, and to take it in needs write access to the " +
               "database and its directory: sample once as a user who has it, or start the feed again";
    }
    return "";
}

}  // namespace qosdb
