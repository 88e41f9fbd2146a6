/*
 * The database of the development host, libdb_qos over SQLite: its rows against the statement that it steps, and passes
 * of the plug-in over a file.
 */
#ifndef BENCH_DATABASE_H
#define BENCH_DATABASE_H

#include <vector>

#include "bench/ratio.h"

namespace bench {

std::vector<Comparison> databaseComparisons();

}  // namespace bench

#endif
