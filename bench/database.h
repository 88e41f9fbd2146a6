/*
 * The database of the development host, libdb_qos over SQLite, against the statement that it steps.
 */
#ifndef BENCH_DATABASE_H
#define BENCH_DATABASE_H

#include "bench/ratio.h"

namespace bench {

Comparison databaseRows();

}  // namespace bench

#endif
