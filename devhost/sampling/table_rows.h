/*
 * Which rows a path's table has, by their keys: read from libdb_qos as the plug-in reads it, so that in a pass that
 * sees one state (QosDb_BeginPass) it is the state of the samples.
 */
#ifndef DEVHOST_SAMPLING_TABLE_ROWS_H
#define DEVHOST_SAMPLING_TABLE_ROWS_H

#include <string>
#include <string_view>
#include <vector>

#include "devhost/sampling/records.h"

namespace host {

class TableRows {
  public:
    /*
     * The keys of the rows that the table had at the last call and has no more; none at the first call, for a path that
     * is not known, and when the table cannot be read, which has been reported then.
     */
    std::vector<std::vector<std::string>> gone(std::string_view alias);

  private:
    std::vector<RowKey> rows_;  // in ascending order
};

}  // namespace host

#endif
