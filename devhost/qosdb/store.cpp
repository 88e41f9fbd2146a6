#include "devhost/qosdb/store.h"

#include <filesystem>
#include <limits>
#include <system_error>
#include <thread>
#include <utility>

namespace qosdb {

namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

constexpr auto kBusyTimeout = 1s;
constexpr auto kBusyPause = 5ms;
constexpr int kTakeInAt = 1000;  // pages of the log, as SQLite does by itself
constexpr int kWaitAt = 4096;    // and since it has waited in vain

std::string cellName(const Table& table, int index) {
    return std::string("table ") + table.name + ", column " + table.columns[static_cast<size_t>(index)].name;
}

}  // namespace

Store::Store(std::string path, Stop stop) : path_(std::move(path)), stop_(stop) {
    reopen();
}

void Store::reopen() {
    if (connection_) {
        discardStaleLog();
    }
    close();
    try {
        connect();
    } catch (...) {
        close();
        throw;
    }
}

void Store::close() {
    statements_ = {};
    clearMark_.reset();
    insertMark_.reset();
    connection_.reset();
    lock_.release();
}

void Store::connect() {
    sqlite3* connection = nullptr;
    const int code = sqlite3_open_v2(path_.c_str(), &connection,
                                     SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX, nullptr);
    connection_.reset(connection);
    if (code != SQLITE_OK) {
        fail("cannot open or create the database");
    }
    file_ = sqlite3_db_filename(connection, "main");
    sqlite3_busy_handler(
        connection,
        [](void* store, int times) {
            auto* self = static_cast<Store*>(store);
            if (times == 0) {
                self->waiting_ = Clock::now();
            }
            return self->keepWaiting() ? 1 : 0;
        },
        this);

    useWal();
    lock();
    execute("PRAGMA synchronous=NORMAL");
    execute("PRAGMA journal_size_limit=16777216");  // what is left of a log that was longer
    waitedAt_ = 0;
    sqlite3_wal_hook(
        connection,
        [](void* store, sqlite3*, const char*, int pages) {
            static_cast<Store*>(store)->takeInLog(pages);
            return SQLITE_OK;
        },
        this);

    execute("BEGIN IMMEDIATE");
    for (const Table& table : kTables) {
        execute(createSql(table).c_str());
    }
    execute(kCreateFeedMark);
    execute("COMMIT");

    // All at once: a table of another shape shows here and not in the middle of a round.
    for (size_t i = 0; i < kTableCount; ++i) {
        statements_[i] = {prepare(std::string("DELETE FROM ") + kTables[i].name), prepare(insertSql(kTables[i])),
                          prepare(selectSql(kTables[i]))};
    }
    clearMark_ = prepare("DELETE FROM feed");
    insertMark_ = prepare(kInsertFeedMark);
}

// SQLite does not wait by itself when several switch a new file at the same time.
void Store::useWal() {
    const Statement journal = prepare("PRAGMA journal_mode=WAL");
    waiting_ = Clock::now();
    int code = sqlite3_step(journal.get());
    while (code == SQLITE_BUSY && keepWaiting()) {
        sqlite3_reset(journal.get());
        code = sqlite3_step(journal.get());
    }
    if (code != SQLITE_ROW) {
        fail("cannot switch to WAL mode");
    }
    const auto* mode = reinterpret_cast<const char*>(sqlite3_column_text(journal.get(), 0));
    if (mode == nullptr || std::string(mode) != "wal") {
        throw StoreError("'" + path_ + "': the database must be a file that can be kept in WAL mode");
    }
}

void Store::lock() {
    execute("SELECT 1 FROM sqlite_schema");  // opens the log
    if (const std::string refused = lock_.take(file_); !refused.empty()) {
        throw StoreError("'" + path_ + "': " + refused);
    }
    checkNames();
}

// The log and index of a database that is gone, or the index of a log that is: SQLite would lay them over what has the
// name now. Only those that are this connection's, which it still has open: others belong to whoever made them.
void Store::discardStaleLog() const {
    const auto discard = [this](const std::string& file) {
        if (std::error_code error; lock_.isOpen(file)) {
            std::filesystem::remove(file, error);
        }
    };
    if (!lock_.isOpen(path_)) {
        discard(walOf(file_));
        discard(shmOf(file_));
    } else if (!lock_.isOpen(walOf(file_))) {
        discard(shmOf(file_));
    }
}

void Store::checkNames() const {
    for (const std::string& file : {path_, walOf(file_), shmOf(file_)}) {
        if (!lock_.isOpen(file)) {
            throw StoreError("'" + file + "' was removed or replaced while the database was open");
        }
    }
}

bool Store::keepWaiting() {
    if ((stop_ != nullptr && stop_()) || Clock::now() - waiting_ >= kBusyTimeout) {
        return false;
    }
    std::this_thread::sleep_for(kBusyPause);
    return true;
}

// SQLite begins the log anew when all of it is taken in and nobody reads it. Where readers overlap somebody always
// does, and it grows by every round: waiting ends that, as who begins to read meanwhile reads the database alone.
// Somebody who does not end is waited for again when the log has grown as much once more.
void Store::takeInLog(int pages) {
    if (pages < waitedAt_) {
        waitedAt_ = 0;  // it has begun anew
    }
    const bool wait = pages >= waitedAt_ + kWaitAt;
    if (wait || pages >= kTakeInAt) {
        const int mode = wait ? SQLITE_CHECKPOINT_RESTART : SQLITE_CHECKPOINT_PASSIVE;
        const int code = sqlite3_wal_checkpoint_v2(connection_.get(), "main", mode, nullptr, nullptr);
        waitedAt_ = wait && code != SQLITE_OK ? pages : waitedAt_;
    }
}

Round Store::begin() {
    checkNames();
    return Round(*this);
}

void Store::fail(const std::string& what) const {
    throw StoreError("'" + path_ + "': " + what + ": " + sqlite3_errmsg(connection_.get()));
}

Statement Store::prepare(const std::string& sql) {
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v3(connection_.get(), sql.c_str(), -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr) !=
        SQLITE_OK) {
        fail("cannot prepare '" + sql + "'");
    }
    return Statement(statement);
}

void Store::execute(const char* sql) {
    if (sqlite3_exec(connection_.get(), sql, nullptr, nullptr, nullptr) != SQLITE_OK) {
        fail(std::string("cannot run '") + sql + "'");
    }
}

void Store::run(const char* table, const Statement& statement) {
    const ActiveStatement active(statement.get());
    if (sqlite3_step(active.get()) != SQLITE_DONE) {
        fail(std::string("cannot write table ") + table);
    }
}

void Store::bind(const Statement& statement, int position, uint64_t value) {
    if (sqlite3_bind_int64(statement.get(), position, static_cast<sqlite3_int64>(value)) != SQLITE_OK) {
        fail("cannot set value " + std::to_string(position) + " of '" + sqlite3_sql(statement.get()) + "'");
    }
}

// The row outlives the insertion that follows its bindings, so its text is not copied.
void Store::bind(const Statement& statement, int position, const std::string& value) {
    if (sqlite3_bind_text64(statement.get(), position, value.data(), value.size(), SQLITE_STATIC, SQLITE_UTF8) !=
        SQLITE_OK) {
        fail("cannot set value " + std::to_string(position) + " of '" + sqlite3_sql(statement.get()) + "'");
    }
}

bool Store::nextRow(TableId table) {
    const int code = sqlite3_step(statements_[indexOf(table)].select.get());
    if (code != SQLITE_ROW && code != SQLITE_DONE) {
        fail(std::string("cannot read table ") + tableOf(table).name);
    }
    return code == SQLITE_ROW;
}

void Store::fetch(TableId table, int index, uint64_t& field) const {
    sqlite3_stmt* select = statements_[indexOf(table)].select.get();
    if (sqlite3_column_type(select, index) != SQLITE_INTEGER) {
        throw StoreError("'" + path_ + "': " + cellName(tableOf(table), index) + " does not hold an integer");
    }
    field = static_cast<uint64_t>(sqlite3_column_int64(select, index));
}

template <class Number>
void Store::fetchNarrow(TableId table, int index, Number& field) const {
    uint64_t value = 0;
    fetch(table, index, value);
    if (value > std::numeric_limits<Number>::max()) {
        throw StoreError("'" + path_ + "': " + cellName(tableOf(table), index) + " holds a number above " +
                         std::to_string(std::numeric_limits<Number>::max()) + " or below 0");
    }
    field = static_cast<Number>(value);
}

void Store::fetch(TableId table, int index, uint32_t& field) const {
    fetchNarrow(table, index, field);
}
void Store::fetch(TableId table, int index, uint8_t& field) const {
    fetchNarrow(table, index, field);
}

void Store::fetch(TableId table, int index, std::string& field) const {
    sqlite3_stmt* select = statements_[indexOf(table)].select.get();
    if (sqlite3_column_type(select, index) != SQLITE_TEXT) {
        throw StoreError("'" + path_ + "': " + cellName(tableOf(table), index) + " does not hold a text");
    }
    const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(select, index));
    if (text == nullptr) {
        throw std::bad_alloc();
    }
    field.assign(text, static_cast<size_t>(sqlite3_column_bytes(select, index)));
}

Round::Round(Store& store) : store_(store) {
    store_.execute("BEGIN IMMEDIATE");
}

Round::~Round() {
    if (open_) {
        // A failure that SQLite rolled back by itself leaves nothing to do, and that is no error here.
        sqlite3_exec(store_.connection_.get(), "ROLLBACK", nullptr, nullptr, nullptr);
    }
}

void Round::mark(const FeedMark& mark) {
    store_.run("feed", store_.clearMark_);
    int position = 0;
    const auto bind = [&](const auto&... values) { (store_.bind(store_.insertMark_, ++position, values), ...); };
    bind(mark.source, mark.host, mark.process, mark.every_ms, mark.round, mark.time_ms, mark.missed, mark.note);
    store_.run("feed", store_.insertMark_);
}

void Round::commit() {
    store_.execute("COMMIT");
    open_ = false;
    store_.checkNames();
}

}  // namespace qosdb
