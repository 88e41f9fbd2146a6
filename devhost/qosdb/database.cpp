#include "devhost/qosdb/database.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <mutex>
#include <optional>
#include <vector>

#include "devhost/qosdb/open_for_reading.h"
#include "devhost/qosdb/qosdb.h"

namespace qosdb {

namespace {

constexpr size_t kMaxIdle = 4;

/* The file to read, and the connections that nobody uses. */
class Pool {
  public:
    void setFile(const char* path) {
        const std::lock_guard lock(mutex_);
        path_ = path == nullptr ? std::nullopt : std::optional<std::string>(path);
        std::erase_if(idle_, [&](const auto& database) { return database->path() != currentPath(); });
    }

    std::string file() {
        const std::lock_guard lock(mutex_);
        return currentPath();
    }

    /* Closes what reads another file than this one. */
    std::unique_ptr<Database> take(const std::string& path, const FileId& file) {
        const std::lock_guard lock(mutex_);
        std::erase_if(idle_, [&](const auto& database) { return !database->reads(path, file); });
        if (idle_.empty()) {
            return nullptr;
        }
        std::unique_ptr<Database> database = std::move(idle_.back());
        idle_.pop_back();
        return database;
    }

    void give(std::unique_ptr<Database> database) {
        const std::lock_guard lock(mutex_);
        if (idle_.size() < kMaxIdle && database->path() == currentPath()) {
            idle_.push_back(std::move(database));
        }
    }

  private:
    std::string currentPath() const {
        const char* byEnvironment = std::getenv("NIVEX_QOS_DB");
        return path_.value_or(byEnvironment == nullptr ? "" : byEnvironment);
    }

    std::mutex mutex_;
    std::optional<std::string> path_;
    std::vector<std::unique_ptr<Database>> idle_;
};

constinit Pool pool;

void giveBack(Database* given) noexcept {
    std::unique_ptr<Database> database(given);
    database->endState();  // what was not
    if (database->spoilt()) {
        return;
    }
    try {
        pool.give(std::move(database));
    } catch (...) {
        // No room to keep it: it was closed instead.
    }
}

ino_t inodeOf(const std::string& file) {
    struct stat status {};
    return stat(file.c_str(), &status) == 0 ? status.st_ino : 0;
}

}  // namespace

bool FileId::of(const std::string& path, FileId& file) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) {
        return false;
    }
    file = {status.st_dev,          status.st_ino,          status.st_size,        status.st_mtim.tv_sec,
            status.st_mtim.tv_nsec, inodeOf(path + "-wal"), inodeOf(path + "-shm")};
    return true;
}

// The last to close a database takes its log in. Not this one, when the names are those of other files by now: the log
// of the one would get into the other.
Database::~Database() {
    FileId now{};
    const bool same = FileId::of(path_, now) && now.device == file_.device && now.inode == file_.inode &&
                      now.log == file_.log && now.index == file_.index;
    if (!same && connection_) {
        sqlite3_db_config(connection_.get(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
    }
}

uint32_t Database::open() {
    const int code = openForReading(path_, connection_, as_it_stands_);
    return code == SQLITE_OK ? 0
                             : report(code, "'%s': cannot open the QoS database: %s%s", path_.c_str(),
                                      sqlite3_errmsg(connection_.get()), missingRights(path_).c_str());
}

int Database::take(TableId table, Statement& select) {
    select = std::move(selects_[indexOf(table)]);
    if (select) {
        return SQLITE_OK;
    }
    sqlite3_stmt* statement = nullptr;
    const int code = sqlite3_prepare_v3(connection_.get(), selectSql(tableOf(table)).c_str(), -1,
                                        SQLITE_PREPARE_PERSISTENT, &statement, nullptr);
    select.reset(statement);
    return code;
}

void Database::giveBack(TableId table, Statement select) noexcept {
    sqlite3_reset(select.get());
    selects_[indexOf(table)] = std::move(select);
}

void Database::hasRead() {
    if (file_.log == 0 && !as_it_stands_) {  // the first reader makes them
        file_.log = inodeOf(path_ + "-wal");
        file_.index = inodeOf(path_ + "-shm");
    }
}

bool Database::hasChanged() const {
    FileId now{};
    return as_it_stands_ && (!FileId::of(path_, now) || !(now == file_));
}

uint32_t Database::beginState(TableId table) {
    const int code = sqlite3_exec(connection_.get(), "BEGIN", nullptr, nullptr, nullptr);
    return code == SQLITE_OK ? 0 : report(unreadable(table, code));
}

// What is being read of it goes on.
void Database::endState() noexcept {
    if (holdsState() && sqlite3_exec(connection_.get(), "COMMIT", nullptr, nullptr, nullptr) != SQLITE_OK) {
        spoil();
    }
}

Failure Database::unreadable(TableId table, int code) const {
    const bool denied = code == SQLITE_READONLY || code == SQLITE_CANTOPEN;
    return {code, "'" + path_ + "': cannot read table " + tableOf(table).name + ": " +
                      sqlite3_errmsg(connection_.get()) + (denied ? missingRights(path_) : "")};
}

uint32_t borrowDatabase(TableId table, std::shared_ptr<Database>& database) {
    const std::string path = pool.file();
    if (path.empty()) {
        return report(SQLITE_CANTOPEN, "no QoS database: set NIVEX_QOS_DB to its file");
    }
    FileId file{};
    if (!FileId::of(path, file)) {
        return report(SQLITE_CANTOPEN, "'%s': no QoS database to read table %s from: %s", path.c_str(),
                      tableOf(table).name, std::strerror(errno));
    }
    std::unique_ptr<Database> candidate = pool.take(path, file);
    if (!candidate) {
        candidate = std::make_unique<Database>(path, file);
        if (const uint32_t code = candidate->open(); code != 0) {
            return code;
        }
    }
    database = std::shared_ptr<Database>(candidate.release(), giveBack);
    return 0;
}

}  // namespace qosdb

void QosDb_SetFile(const char* path) {
    try {
        qosdb::pool.setFile(path);
    } catch (const std::exception& error) {
        qosdb::report(SQLITE_NOMEM, "QosDb_SetFile: %s", error.what());
    }
}
