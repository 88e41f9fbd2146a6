#include "devhost/qosdb/pass.h"

#include <algorithm>
#include <exception>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "devhost/qosdb/qosdb.h"

namespace qosdb {

namespace {

thread_local std::optional<Pass> pass;

uint32_t startReader(const std::shared_ptr<Database>& database, TableId table, std::unique_ptr<FileReader>& reader) {
    auto started = std::make_unique<FileReader>(database, table);
    const uint32_t code = started->start();
    if (code == 0) {
        reader = std::move(started);
    }
    return code;
}

}  // namespace

Pass::~Pass() {
    if (database_) {
        database_->endState();
    }
}

uint32_t Pass::makeReader(TableId table, std::unique_ptr<Reader>& reader) {
    Kept& kept = tables_[indexOf(table)];
    if (kept.records) {
        reader = std::make_unique<MemoryReader>(kept.records);
        return 0;
    }
    std::shared_ptr<Database> database = database_;
    if (!database) {
        uint32_t code = borrowDatabase(table, database);
        code = code == 0 ? database->beginState(table) : code;
        if (code != 0) {
            return code;
        }
    } else if (!database->holdsState()) {
        return report(SQLITE_ABORT, "'%s': cannot read table %s: what failed before has ended the pass's transaction",
                      database->path().c_str(), tableOf(table).name);
    }
    std::unique_ptr<FileReader> fromFile;
    if (const uint32_t code = startReader(database, table, fromFile); code != 0) {
        return code;
    }
    database_ = database;
    if (!kept.tooLarge) {
        kept.records = Records::read(*fromFile);
        if (kept.records) {
            reader = std::make_unique<MemoryReader>(kept.records);
            return 0;
        }
        kept.tooLarge = true;
        fromFile.reset();
        if (const uint32_t code = startReader(database, table, fromFile); code != 0) {
            return code;
        }
    }
    reader = std::move(fromFile);
    return 0;
}

uint32_t makeReader(TableId table, std::unique_ptr<Reader>& reader) {
    if (pass) {
        return pass->makeReader(table, reader);
    }
    std::shared_ptr<Database> database;
    std::unique_ptr<FileReader> fromFile;
    uint32_t code = borrowDatabase(table, database);
    code = code == 0 ? startReader(database, table, fromFile) : code;
    reader = std::move(fromFile);
    return code;
}

namespace {

uint32_t countRows(std::string_view name, uint64_t& rows) {
    const auto* const table = std::ranges::find(kTables, name, &Table::name);
    if (table == std::end(kTables)) {
        std::string names;
        for (const Table& known : kTables) {
            names += (names.empty() ? "" : ", ") + std::string(known.name);
        }
        return report(SQLITE_MISUSE, "QosDb_CountRows: there is no table '%s'; the tables are %s",
                      std::string(name).c_str(), names.c_str());
    }
    std::unique_ptr<Reader> reader;
    if (const uint32_t code = makeReader(static_cast<TableId>(table - kTables), reader); code != 0) {
        return code;
    }
    uint64_t count = 0;
    while (reader->advance() != nullptr) {
        ++count;
    }
    if (const Failure why = reader->failure(); why.code != SQLITE_OK) {
        return report(why);
    }
    rows = count;
    return 0;
}

}  // namespace

}  // namespace qosdb

void QosDb_BeginPass(void) {
    qosdb::pass.emplace();
}

void QosDb_EndPass(void) {
    qosdb::pass.reset();
}

uint32_t QosDb_CountRows(const char* table, uint64_t* rows) {
    if (table == nullptr || rows == nullptr) {
        return qosdb::report(SQLITE_MISUSE, "QosDb_CountRows: no name of a table, or no place for the number");
    }
    try {
        return qosdb::countRows(table, *rows);
    } catch (const std::exception& error) {
        return qosdb::report(SQLITE_NOMEM, "QosDb_CountRows: %s", error.what());
    }
}
