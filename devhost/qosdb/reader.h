/*
 * The reading side of libdb_qos: connections, lent out one per database object.
 *
 * A Reader is a connection with the statements it has prepared so far; while lent out it is also the object and its
 * iterator, used by one thread. Its SELECT takes its first step when the object is made and is reset when the object is
 * released: in between SQLite shows one state of the file, whatever is written meanwhile. Functions answer SQLite's
 * result codes; each failure has been reported when they return.
 */
#ifndef DEVHOST_QOSDB_READER_H
#define DEVHOST_QOSDB_READER_H

#include <sys/types.h>

#include <array>
#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>

#include "devhost/qosdb/sqlite_handle.h"
#include "devhost/qosdb/tables.h"
#include "platform/qos_db.h"

namespace qosdb {

/* Keeps the text for QosDb_LastError, sends it to the platform's log and answers code. */
__attribute__((format(printf, 2, 3))) uint32_t report(int code, const char* format, ...) noexcept;

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

class Reader {
  public:
    Reader(std::string path, const FileId& file) : path_(std::move(path)), file_(file) {}
    ~Reader();
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;

    uint32_t open();
    bool reads(const std::string& path, const FileId& file) const { return path == path_ && file == file_; }
    const std::string& path() const { return path_; }

    /* Makes the object, its record being none yet. */
    uint32_t start(TableId table);
    /* Unmakes it; false when the connection should not be used again. */
    bool finish() noexcept;
    bool lent() const { return statement_ != nullptr; }

    /* The object's one iterator. */
    uint32_t iterate() noexcept;
    uint32_t next() noexcept;

    /* The value of a column of the current record. */
    template <TableId table, int column, class Value>
    uint32_t get(Value* value) const noexcept;

  private:
    static constexpr int kNoRecord = -1;

    uint32_t end() noexcept;
    uint32_t unreadable(TableId table) const noexcept;
    uint32_t noRecord(TableId table, int column) const noexcept;
    uint32_t mismatch(TableId table, int column) const noexcept;

    std::string path_;
    FileId file_;
    bool as_it_stands_ = false;  // see open_for_reading.h
    Connection connection_;
    std::array<Statement, kTableCount> statements_;

    // While lent out.
    sqlite3_stmt* statement_ = nullptr;
    TableId table_{};
    int outcome_ = SQLITE_DONE;   // of the last step
    bool iterating_ = false;      // an iterator was made
    bool stepped_ahead_ = false;  // the first record, or the end, is there already
    int record_ = kNoRecord;      // the table as a number while standing on a record
};

/* A reader that has started on a table of the current file. */
uint32_t borrowReader(TableId table, std::unique_ptr<Reader>& reader);
void giveBackReader(std::unique_ptr<Reader> reader) noexcept;

inline uint32_t Reader::next() noexcept {
    if (!iterating_) [[unlikely]] {
        return report(SQLITE_MISUSE, "db_root_iterator_next: this is not an iterator of db_create_root_iter");
    }
    if (stepped_ahead_) {
        stepped_ahead_ = false;
    } else if (outcome_ == SQLITE_ROW) {  // SQLite would begin anew after the end
        outcome_ = sqlite3_step(statement_);
    }
    if (outcome_ == SQLITE_ROW) [[likely]] {
        record_ = static_cast<int>(table_);
        return 0;
    }
    record_ = kNoRecord;
    return outcome_ == SQLITE_DONE ? end() : unreadable(table_);
}

template <TableId table, int column, class Value>
uint32_t Reader::get(Value* value) const noexcept {
    if (record_ != static_cast<int>(table)) [[unlikely]] {
        return noRecord(table, column);
    }
    // One look-up of the column instead of one per question; allowed, as nobody else uses the connection meanwhile.
    sqlite3_value* const cell = sqlite3_column_value(statement_, column);
    const int type = sqlite3_value_type(cell);
    if constexpr (std::is_same_v<Value, const char*>) {
        if (type != SQLITE_TEXT) [[unlikely]] {
            return mismatch(table, column);
        }
        const auto* text = reinterpret_cast<const char*>(sqlite3_value_text(cell));
        if (text == nullptr) [[unlikely]] {
            return report(SQLITE_NOMEM, "'%s', table %s: out of memory", path_.c_str(), tableOf(table).name);
        }
        *value = text;
    } else {
        const auto number = static_cast<uint64_t>(sqlite3_value_int64(cell));
        if (type != SQLITE_INTEGER || number > std::numeric_limits<Value>::max()) [[unlikely]] {
            return mismatch(table, column);
        }
        *value = static_cast<Value>(number);
    }
    return 0;
}

}  // namespace qosdb

#endif
