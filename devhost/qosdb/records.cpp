#include "devhost/qosdb/records.h"

#include <cstring>
#include <new>

#include "devhost/qosdb/qosdb.h"
#include "devhost/qosdb/reader.h"

namespace qosdb {

std::shared_ptr<const Records> Records::read(FileReader& reader) {
    try {
        const std::shared_ptr<Records> records(new Records(reader.table(), reader.path()));
        while (const Cell* record = reader.advance()) {
            if (!records->add(record)) {
                return nullptr;
            }
        }
        records->failure_ = reader.failure();
        return records;
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

// False when that is too much. A text that the record before has as well is kept once: a queue's name comes eight
// times.
bool Records::add(const Cell* record) {
    const size_t before = cells_.size();
    cells_.insert(cells_.end(), record, record + stride_);
    Cell* const kept = cells_.data() + before;
    const Cell* const last = before == 0 ? kNoRecord : kept - stride_;
    const std::span<const Column> columns = tableOf(table_).columns;
    for (size_t column = 0; column < columns.size(); ++column) {
        if (columns[column].kind != Kind::TEXT || !fits(kept, column)) {
            continue;
        }
        const char*& text = kept[1 + column].text;
        if (isRecordOf(last, table_) && fits(last, column) && std::strcmp(text, last[1 + column].text) == 0) {
            text = last[1 + column].text;
            continue;
        }
        const size_t size = std::strlen(text) + 1;
        textBytes_ += size;
        if (textBytes_ > QOS_DB_PASS_TABLE_BYTES) {
            return false;
        }
        text = static_cast<const char*>(std::memcpy(texts_.allocate(size, 1), text, size));
    }
    return cells_.size() * sizeof(Cell) + textBytes_ <= QOS_DB_PASS_TABLE_BYTES;
}

}  // namespace qosdb
