/*
 * The database file as it is read: connections, lent out and kept for the next borrower.
 *
 * A Database is a connection to the file that had the name when it was lent out, with the statements it has prepared so
 * far; it is used by one thread. Functions that answer uint32_t answer SQLite's result codes; each failure has been
 * reported when they return.
 */
#ifndef DEVHOST_QOSDB_DATABASE_H
#define DEVHOST_QOSDB_DATABASE_H

#include <sys/types.h>

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include "devhost/qosdb/report.h"
#include "devhost/qosdb/sqlite_handle.h"
#include "devhost/qosdb/tables.h"

namespace qosdb {

/*
 * Tells a file from another that took its name or was copied over it: SQLite would go on with the pages that it has in
 * memory. A checkpoint of the log changes it as well, which costs one reopening.
 */
struct FileId {
    dev_t device;
    ino_t inode;
    off_t size;
    time_t changedSeconds;
    long changedNanoseconds;
    ino_t log;    // 0 without one
    ino_t index;  // of the log; 0 without one

    /* Of the file, its log and index as they are; false, with errno, when there is no file. */
    static bool of(const std::string& path, FileId& file);
    friend bool operator==(const FileId&, const FileId&) = default;
};

class Database {
  public:
    Database(std::string path, const FileId& file) : path_(std::move(path)), file_(file) {}
    ~Database();
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;

    uint32_t open();
    bool reads(const std::string& path, const FileId& file) const { return path == path_ && file == file_; }
    const std::string& path() const { return path_; }

    /* The SELECT of a table, for one use at a time: reset when it is given back. Answers SQLite's code. */
    int take(TableId table, Statement& select);
    void giveBack(TableId table, Statement select) noexcept;

    /* A first record was read, or that there is none. */
    void hasRead();
    /* Whether it is not what it was, where SQLite does not see to that itself: it has no log, and now a feed writes it.
     */
    bool hasChanged() const;

    /* From the first record that is read, everything that is read is of the same moment, until endState(). */
    uint32_t beginState(TableId table);
    /* Whether beginState() still holds: SQLite gives it up with some failures to read. */
    bool holdsState() const { return sqlite3_get_autocommit(connection_.get()) == 0; }
    void endState() noexcept;

    /* Why a table cannot be read on, with SQLite's code for it and its message. */
    Failure unreadable(TableId table, int code) const;

    /* It is not to be lent out again. */
    void spoil() noexcept { spoilt_ = true; }
    bool spoilt() const { return spoilt_; }

  private:
    std::string path_;
    FileId file_;
    bool as_it_stands_ = false;  // see open_for_reading.h
    bool spoilt_ = false;
    Connection connection_;
    std::array<Statement, kTableCount> selects_;  // that nobody has
};

/* The database that has the name now, to read this table from; goes back by itself with its last owner. */
uint32_t borrowDatabase(TableId table, std::shared_ptr<Database>& database);

}  // namespace qosdb

#endif
