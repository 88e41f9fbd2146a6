/*
 * Passes: readers over one state of the database, for the thread that has one open.
 *
 * The state is SQLite's: a read transaction of one connection, from the first object of the pass to its end. A table is
 * read into memory when its first object is made; one that is too large for that is read from the file each time, in
 * the same transaction. Nothing of a pass is shared with other threads.
 */
#ifndef DEVHOST_QOSDB_PASS_H
#define DEVHOST_QOSDB_PASS_H

#include <array>
#include <cstdint>
#include <memory>

#include "devhost/qosdb/database.h"
#include "devhost/qosdb/reader.h"
#include "devhost/qosdb/records.h"

namespace qosdb {

class Pass {
  public:
    Pass() = default;
    ~Pass();
    Pass(const Pass&) = delete;
    Pass& operator=(const Pass&) = delete;

    uint32_t makeReader(TableId table, std::unique_ptr<Reader>& reader);

  private:
    struct Kept {
        std::shared_ptr<const Records> records;  // null until there was an object, or when it is too large
        bool tooLarge = false;
    };

    std::shared_ptr<Database> database_;  // null until there was an object
    std::array<Kept, kTableCount> tables_;
};

/* An object over a table: of this thread's pass if it has one open, else of the file as it is. Reports failures. */
uint32_t makeReader(TableId table, std::unique_ptr<Reader>& reader);

}  // namespace qosdb

#endif
