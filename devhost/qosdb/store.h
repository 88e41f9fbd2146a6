/*
 * The writer's side of the QoS statistics database: whoever fills it opens a Store and writes in rounds.
 *
 * A Store owns one connection to one file and belongs to one thread; a file has one Store at a time, see feed_lock.h.
 * The file is kept in WAL mode, so readers go on while a round writes and see it only once committed. From 16 MiB on a
 * commit waits up to a second for them, so that the log can be used anew. A Round is one
 * write transaction; it must end before its Store does, and a Store has one open Round at a time. Every failure is a
 * StoreError that names the file and the reason; after one of a round, reopen() makes another attempt possible,
 * whatever became of the file.
 */
#ifndef DEVHOST_QOSDB_STORE_H
#define DEVHOST_QOSDB_STORE_H

#include <array>
#include <chrono>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "devhost/qosdb/feed_lock.h"
#include "devhost/qosdb/feed_mark.h"
#include "devhost/qosdb/sqlite_handle.h"
#include "devhost/qosdb/tables.h"

namespace qosdb {

/* C++ type of a column kind. */
using CellOf_UINT32 = uint32_t;
using CellOf_UINT64 = uint64_t;
using CellOf_TEXT = std::string;
using CellOf_BYTE = uint8_t;

/* One struct per table, a field per column: qosdb::row::queue_stat{.ifIndex = 7, .ifName = "eth0", ...}. */
namespace row {
#define QOSDB_FIELD(table, column, kind, role) CellOf_##kind column{};
#define QOSDB_VISIT(table, column, kind, role) visit(self.column);
#define QOSDB_ROW(table, columns)                                                     \
    struct table {                                                                    \
        columns(QOSDB_FIELD, table) static constexpr TableId kTable = TableId::table; \
        template <class Self, class Visit>                                            \
        static void forEachColumn(Self& self, Visit&& visit) {                        \
            columns(QOSDB_VISIT, table)                                               \
        }                                                                             \
        friend bool operator==(const table&, const table&) = default;                 \
    };
QOS_DB_TABLES(QOSDB_ROW)
#undef QOSDB_ROW
#undef QOSDB_VISIT
#undef QOSDB_FIELD
}  // namespace row

class StoreError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

class Round;

class Store {
  public:
    /* Whether to wait no longer for others who have the file. */
    using Stop = bool (*)();

    /* Opens the file or creates it, and creates the tables that it lacks. */
    explicit Store(std::string path, Stop stop = nullptr);
    Store(const Store&) = delete;
    Store& operator=(const Store&) = delete;

    /* Closes the file and opens or creates the one that has its name now; no Round may be open. */
    void reopen();

    /*
     * Begins a round; waits a second for another writer to finish. A file that was removed or replaced since it was
     * opened, or its log or index, is a StoreError, here and when the round is committed: nobody would see it.
     */
    Round begin();

    /* All rows of Row's table, in the order in which they were written; an open round's own rows are among them. */
    template <class Row>
    std::vector<Row> read();

  private:
    friend class Round;

    struct Statements {
        Statement clear;
        Statement insert;
        Statement select;
    };

    void connect();
    void close();
    void useWal();
    void lock();
    void discardStaleLog() const;
    void checkNames() const;
    bool keepWaiting();
    /* After each commit: how many pages the log has. */
    void takeInLog(int pages);
    Statement prepare(const std::string& sql);
    void execute(const char* sql);
    /* Runs a statement that answers no rows, on the table of this name. */
    void run(const char* table, const Statement& statement);
    [[noreturn]] void fail(const std::string& what) const;

    void bind(const Statement& statement, int position, uint64_t value);
    void bind(const Statement& statement, int position, const std::string& value);

    bool nextRow(TableId table);
    template <class Number>
    void fetchNarrow(TableId table, int index, Number& field) const;
    void fetch(TableId table, int index, uint8_t& field) const;
    void fetch(TableId table, int index, uint32_t& field) const;
    void fetch(TableId table, int index, uint64_t& field) const;
    void fetch(TableId table, int index, std::string& field) const;

    std::string path_;
    Stop stop_;
    std::chrono::steady_clock::time_point waiting_;  // since
    std::string file_;                               // the path without links, as SQLite names the log and the index
    FeedLock lock_;                                  // to be given back after the connection
    Connection connection_;
    int waitedAt_ = 0;  // pages of the log when it was last waited for in vain
    std::array<Statements, kTableCount> statements_;
    Statement clearMark_;
    Statement insertMark_;
};

class Round {
  public:
    /* Rolls back unless committed. */
    ~Round();
    Round(const Round&) = delete;
    Round& operator=(const Round&) = delete;

    /* Makes these the rows of Row's table, in this order. */
    template <class Row>
    void replace(const std::vector<Row>& rows);

    /* Appends a row; a second row with the same key is a StoreError. */
    template <class Row>
    void add(const Row& row);

    /* Leaves the mark of its feed, in the place of the last one. */
    void mark(const FeedMark& mark);

    /* Makes the round visible, all of it at once; nothing may follow. Done when it is in the file of this name. */
    void commit();

  private:
    friend class Store;
    explicit Round(Store& store);

    Store& store_;
    bool open_ = true;
};

template <class Row>
std::vector<Row> Store::read() {
    std::vector<Row> rows;
    const ActiveStatement active(statements_[indexOf(Row::kTable)].select.get());
    while (nextRow(Row::kTable)) {
        int index = 0;
        Row::forEachColumn(rows.emplace_back(), [&](auto& field) { fetch(Row::kTable, index++, field); });
    }
    return rows;
}

template <class Row>
void Round::replace(const std::vector<Row>& rows) {
    store_.run(tableOf(Row::kTable).name, store_.statements_[indexOf(Row::kTable)].clear);
    for (const Row& row : rows) {
        add(row);
    }
}

template <class Row>
void Round::add(const Row& row) {
    const Statement& insert = store_.statements_[indexOf(Row::kTable)].insert;
    int position = 0;
    Row::forEachColumn(row, [&](const auto& field) { store_.bind(insert, ++position, field); });
    store_.run(tableOf(Row::kTable).name, insert);
}

}  // namespace qosdb

#endif
