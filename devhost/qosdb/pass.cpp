#include "devhost/qosdb/pass.h"

#include <exception>
#include <optional>
#include <string>
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

}  // namespace qosdb

void QosDb_BeginPass(void) {
    qosdb::pass.emplace();
}

void QosDb_EndPass(void) {
    qosdb::pass.reset();
}
