/*
 * The database objects of libdb_qos, each its own iterator too: a place in a table, used by one thread.
 *
 * A FileReader steps through the file: one SELECT, whose first step is taken when the object is made and which is reset
 * when it is released. In between SQLite shows one state of the file, whatever is written meanwhile. A MemoryReader
 * goes through records that a pass has in memory. Both leave the current record where the accessors find it. Functions
 * that answer uint32_t answer SQLite's result codes; each failure has been reported when they return.
 */
#ifndef DEVHOST_QOSDB_READER_H
#define DEVHOST_QOSDB_READER_H

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>

#include "devhost/qosdb/database.h"
#include "devhost/qosdb/record.h"
#include "devhost/qosdb/records.h"
#include "platform/qos_db.h"

namespace qosdb {

class Reader {
  public:
    virtual ~Reader() = default;
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;

    /* Makes it an iterator, once. */
    uint32_t iterate() noexcept;
    uint32_t next() noexcept;

    /* The value of a column of the current record. */
    template <TableId table, size_t column, class Value>
    uint32_t get(Value* value) const noexcept;

    /* The next record, valid until the next call; null behind the last, or where it cannot be read on. */
    virtual const Cell* advance() noexcept = 0;
    /* Why there was no further record: a code of 0 at the end of the table. */
    virtual Failure failure() = 0;

    /* Of the file. */
    const std::string& path() const { return path_; }

  protected:
    explicit Reader(std::string path) : path_(std::move(path)) {}

  private:
    uint32_t end() noexcept;
    uint32_t fault(TableId table, size_t column) const noexcept;

    const Cell* record_ = kNoRecord;
    bool iterating_ = false;
    std::string path_;
};

class FileReader final : public Reader {
  public:
    FileReader(std::shared_ptr<Database> database, TableId table)
        : Reader(database->path()), database_(std::move(database)), table_(table) {}
    ~FileReader() override;

    TableId table() const { return table_; }

    /* To be done, well, before anything else. */
    uint32_t start();

    const Cell* advance() noexcept override;
    Failure failure() override;

  private:
    std::shared_ptr<Database> database_;
    TableId table_;
    Statement select_;
    int outcome_ = SQLITE_OK;     // of the last step
    bool stepped_ahead_ = false;  // the first record, or the end, is there already
    std::array<Cell, 1 + kMostColumns> cells_;
};

class MemoryReader final : public Reader {
  public:
    explicit MemoryReader(std::shared_ptr<const Records> records)
        : Reader(records->path()), records_(std::move(records)), next_(records_->begin()) {}

    const Cell* advance() noexcept override;
    Failure failure() override { return records_->failure(); }

  private:
    std::shared_ptr<const Records> records_;
    const Cell* next_;
};

inline const Cell* MemoryReader::advance() noexcept {
    const Cell* const record = next_;
    if (record == records_->end()) {
        return nullptr;
    }
    next_ += records_->stride();
    return record;
}

inline uint32_t Reader::next() noexcept {
    if (!iterating_) [[unlikely]] {
        return report(SQLITE_MISUSE, "db_root_iterator_next: this is not an iterator of db_create_root_iter");
    }
    const Cell* const record = advance();
    if (record == nullptr) [[unlikely]] {
        return end();
    }
    record_ = record;
    return 0;
}

template <TableId table, size_t column, class Value>
uint32_t Reader::get(Value* value) const noexcept {
    if (record_->number != headOf(table)) [[unlikely]] {
        if (const uint32_t code = fault(table, column); code != 0) {
            return code;
        }
    }
    const Cell& cell = record_[1 + column];
    if constexpr (std::is_same_v<Value, const char*>) {
        *value = cell.text;
    } else {
        *value = static_cast<Value>(cell.number);
    }
    return 0;
}

}  // namespace qosdb

#endif
