#include "devhost/qosdb/reader.h"

#include <exception>

namespace qosdb {

uint32_t Reader::iterate() noexcept {
    if (iterating_) {
        return report(SQLITE_MISUSE, "db_create_root_iter: the object has its iterator already");
    }
    iterating_ = true;
    return 0;
}

uint32_t Reader::end() noexcept {
    record_ = kNoRecord;
    try {
        const Failure why = failure();
        return why.code == SQLITE_OK ? QOS_DB_END : report(why);
    } catch (const std::exception& error) {
        return report(SQLITE_NOMEM, "db_root_iterator_next: %s", error.what());
    }
}

uint32_t Reader::fault(TableId table, size_t column) const noexcept {
    const Table& described = tableOf(table);
    const char* const name = described.columns[column].name;
    if (!isRecordOf(record_, table)) {
        return report(SQLITE_MISUSE, "db_get_qos_tlm_%s_%s: the object does not stand on a record of this table",
                      described.name, name);
    }
    if (fits(record_, column)) {
        return 0;
    }
    try {
        return report(faultOf(record_, table, column, path_));
    } catch (const std::exception& error) {
        return report(SQLITE_NOMEM, "db_get_qos_tlm_%s_%s: %s", described.name, name, error.what());
    }
}

FileReader::~FileReader() {
    if (outcome_ != SQLITE_ROW && outcome_ != SQLITE_DONE) {
        database_->spoil();
    }
    if (select_) {
        database_->giveBack(table_, std::move(select_));
    }
}

uint32_t FileReader::start() {
    outcome_ = database_->take(table_, select_);
    if (outcome_ == SQLITE_OK) {
        outcome_ = sqlite3_step(select_.get());
    }
    if (outcome_ != SQLITE_ROW && outcome_ != SQLITE_DONE) {
        return report(failure());
    }
    database_->hasRead();
    stepped_ahead_ = true;
    return 0;
}

const Cell* FileReader::advance() noexcept {
    if (stepped_ahead_) {
        stepped_ahead_ = false;
    } else if (outcome_ == SQLITE_ROW) {  // SQLite would begin anew after the end
        outcome_ = sqlite3_step(select_.get());
    }
    if (outcome_ != SQLITE_ROW) [[unlikely]] {
        return nullptr;
    }
    decode(select_.get(), table_, cells_.data());
    return cells_.data();
}

Failure FileReader::failure() {
    if (outcome_ != SQLITE_DONE) {
        return database_->unreadable(table_, outcome_);
    }
    if (database_->hasChanged()) {
        outcome_ = SQLITE_BUSY;
        return {outcome_, "'" + path() + "': a feed has begun to write the database while table " +
                              tableOf(table_).name + " was read"};
    }
    return {};
}

}  // namespace qosdb
