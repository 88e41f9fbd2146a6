#include "devhost/qosdb/reader.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <optional>
#include <vector>

#include "devhost/qosdb/open_for_reading.h"
#include "devhost/qosdb/qosdb.h"
#include "platform/log.h"

namespace qosdb {

namespace {

constexpr size_t kMaxIdle = 4;

thread_local char lastError[1024];

/* The file to read, and the readers that nobody uses. */
class Pool {
  public:
    void setFile(const char* path) {
        const std::lock_guard lock(mutex_);
        path_ = path == nullptr ? std::nullopt : std::optional<std::string>(path);
        std::erase_if(idle_, [&](const auto& reader) { return reader->path() != currentPath(); });
    }

    std::string file() {
        const std::lock_guard lock(mutex_);
        return currentPath();
    }

    /* Closes what reads another file than this one. */
    std::unique_ptr<Reader> take(const std::string& path, const FileId& file) {
        const std::lock_guard lock(mutex_);
        std::erase_if(idle_, [&](const auto& reader) { return !reader->reads(path, file); });
        if (idle_.empty()) {
            return nullptr;
        }
        std::unique_ptr<Reader> reader = std::move(idle_.back());
        idle_.pop_back();
        return reader;
    }

    void give(std::unique_ptr<Reader> reader) {
        const std::lock_guard lock(mutex_);
        if (idle_.size() < kMaxIdle && reader->path() == currentPath()) {
            idle_.push_back(std::move(reader));
        }
    }

  private:
    std::string currentPath() const {
        const char* byEnvironment = std::getenv("NIVEX_QOS_DB");
        return path_.value_or(byEnvironment == nullptr ? "" : byEnvironment);
    }

    std::mutex mutex_;
    std::optional<std::string> path_;
    std::vector<std::unique_ptr<Reader>> idle_;
};

constinit Pool pool;

const char* wanted(Kind kind) {
    switch (kind) {
        case Kind::UINT32:
            return "an integer from 0 to 4294967295";
        case Kind::UINT64:
            return "a 64-bit integer";
        case Kind::TEXT:
            return "a text";
        case Kind::BYTE:
            return "an integer from 0 to 255";
    }
    return "";
}

const char* nameOf(int type) {
    switch (type) {
        case SQLITE_INTEGER:
            return "an integer";
        case SQLITE_FLOAT:
            return "a real number";
        case SQLITE_TEXT:
            return "a text";
        case SQLITE_BLOB:
            return "a blob";
        default:
            return "NULL";
    }
}

}  // namespace

uint32_t report(int code, const char* format, ...) noexcept {
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(lastError, sizeof lastError, format, arguments);
    va_end(arguments);
    IM_Agent_ReportLogById(QOS_DB_LOG_LEVEL, QOS_DB_LOG_ID, "%s", lastError);
    return static_cast<uint32_t>(code);
}

namespace {

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
Reader::~Reader() {
    FileId now{};
    const bool same = FileId::of(path_, now) && now.device == file_.device && now.inode == file_.inode &&
                      now.log == file_.log && now.index == file_.index;
    if (!same && connection_) {
        sqlite3_db_config(connection_.get(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
    }
}

uint32_t Reader::open() {
    const int code = openForReading(path_, connection_, as_it_stands_);
    return code == SQLITE_OK ? 0
                             : report(code, "'%s': cannot open the QoS database: %s%s", path_.c_str(),
                                      sqlite3_errmsg(connection_.get()), missingRights(path_).c_str());
}

uint32_t Reader::start(TableId table) {
    Statement& select = statements_[indexOf(table)];
    if (!select) {
        sqlite3_stmt* statement = nullptr;
        const int code = sqlite3_prepare_v3(connection_.get(), selectSql(tableOf(table)).c_str(), -1,
                                            SQLITE_PREPARE_PERSISTENT, &statement, nullptr);
        select.reset(statement);
        if (code != SQLITE_OK) {
            outcome_ = code;
            return unreadable(table);
        }
    }
    statement_ = select.get();
    table_ = table;
    outcome_ = sqlite3_step(statement_);
    if (outcome_ != SQLITE_ROW && outcome_ != SQLITE_DONE) {
        return unreadable(table);
    }
    if (file_.log == 0 && !as_it_stands_) {  // the first reader makes them
        file_.log = inodeOf(path_ + "-wal");
        file_.index = inodeOf(path_ + "-shm");
    }
    iterating_ = false;
    stepped_ahead_ = true;
    return 0;
}

bool Reader::finish() noexcept {
    sqlite3_reset(statement_);
    statement_ = nullptr;
    iterating_ = false;
    record_ = kNoRecord;
    return outcome_ == SQLITE_ROW || outcome_ == SQLITE_DONE;
}

uint32_t Reader::iterate() noexcept {
    if (!lent() || iterating_) {
        return report(SQLITE_MISUSE, "db_create_root_iter: %s",
                      lent() ? "the object has its iterator already" : "the object was released");
    }
    iterating_ = true;
    return 0;
}

uint32_t Reader::unreadable(TableId table) const noexcept {
    const bool denied = outcome_ == SQLITE_READONLY || outcome_ == SQLITE_CANTOPEN;
    return report(outcome_, "'%s': cannot read table %s: %s%s", path_.c_str(), tableOf(table).name,
                  sqlite3_errmsg(connection_.get()), denied ? missingRights(path_).c_str() : "");
}

uint32_t Reader::end() noexcept {
    FileId now{};
    if (as_it_stands_ && (!FileId::of(path_, now) || !(now == file_))) {
        outcome_ = SQLITE_BUSY;  // so that the connection is not used again
        return report(SQLITE_BUSY, "'%s': a feed has begun to write the database while table %s was read",
                      path_.c_str(), tableOf(table_).name);
    }
    return QOS_DB_END;
}

uint32_t Reader::noRecord(TableId table, int column) const noexcept {
    const Table& described = tableOf(table);
    return report(SQLITE_MISUSE, "db_get_qos_tlm_%s_%s: the object does not stand on a record of this table",
                  described.name, described.columns[static_cast<size_t>(column)].name);
}

uint32_t Reader::mismatch(TableId table, int column) const noexcept {
    const Table& described = tableOf(table);
    const Column& wrong = described.columns[static_cast<size_t>(column)];
    const int type = sqlite3_column_type(statement_, column);
    // Only a number is shown: it is what can be wrong though its type is right.
    char number[32] = "";
    if (type == SQLITE_INTEGER) {
        std::snprintf(number, sizeof number, " (%lld)", sqlite3_column_int64(statement_, column));
    }
    return report(SQLITE_MISMATCH, "'%s', table %s, column %s: %s%s where %s is wanted", path_.c_str(), described.name,
                  wrong.name, nameOf(type), number, wanted(wrong.kind));
}

uint32_t borrowReader(TableId table, std::unique_ptr<Reader>& reader) {
    const std::string path = pool.file();
    if (path.empty()) {
        return report(SQLITE_CANTOPEN, "no QoS database: set NIVEX_QOS_DB to its file");
    }
    FileId file{};
    if (!FileId::of(path, file)) {
        return report(SQLITE_CANTOPEN, "'%s': no QoS database to read table %s from: %s", path.c_str(),
                      tableOf(table).name, std::strerror(errno));
    }
    std::unique_ptr<Reader> candidate = pool.take(path, file);
    if (!candidate) {
        candidate = std::make_unique<Reader>(path, file);
        if (const uint32_t code = candidate->open(); code != 0) {
            return code;
        }
    }
    const uint32_t code = candidate->start(table);
    if (code == 0) {
        reader = std::move(candidate);
    }
    return code;
}

void giveBackReader(std::unique_ptr<Reader> reader) noexcept {
    if (!reader->finish()) {
        return;
    }
    try {
        pool.give(std::move(reader));
    } catch (...) {
        // No room to keep it: it was closed instead.
    }
}

}  // namespace qosdb

void QosDb_SetFile(const char* path) {
    try {
        qosdb::pool.setFile(path);
    } catch (const std::exception& error) {
        qosdb::report(SQLITE_NOMEM, "QosDb_SetFile: %s", error.what());
    }
}

const char* QosDb_LastError(void) {
    return qosdb::lastError;
}
