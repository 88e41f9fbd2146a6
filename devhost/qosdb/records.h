/*
 * The records of a table in memory, as they were at one moment, for any number of readers.
 */
#ifndef DEVHOST_QOSDB_RECORDS_H
#define DEVHOST_QOSDB_RECORDS_H

#include <cstddef>
#include <memory>
#include <memory_resource>
#include <string>
#include <vector>

#include "devhost/qosdb/record.h"

namespace qosdb {

class FileReader;

class Records {
  public:
    /* All that the reader has to give; null when that is more than QOS_DB_PASS_TABLE_BYTES, or than there is room for.
     */
    static std::shared_ptr<const Records> read(FileReader& reader);

    Records(const Records&) = delete;
    Records& operator=(const Records&) = delete;

    /* Records of stride() cells each. */
    const Cell* begin() const { return cells_.data(); }
    const Cell* end() const { return cells_.data() + cells_.size(); }
    size_t stride() const { return stride_; }

    /* Why there are no more of them: a code of 0 at the end of the table. */
    const Failure& failure() const { return failure_; }

    /* Of the file. */
    const std::string& path() const { return path_; }

  private:
    Records(TableId table, std::string path) : table_(table), stride_(cellsOf(table)), path_(std::move(path)) {}

    bool add(const Cell* record);

    TableId table_;
    size_t stride_;
    std::string path_;
    std::vector<Cell> cells_;
    std::pmr::monotonic_buffer_resource texts_;
    size_t textBytes_ = 0;
    Failure failure_;
};

}  // namespace qosdb

#endif
