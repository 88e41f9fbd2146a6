/*
 * What the plug-in holds of the host's memory, and of the C library's through cJSON.
 */
#ifndef BENCH_MEMORY_H
#define BENCH_MEMORY_H

#include <nlohmann/json.hpp>

namespace bench {

/* One record per family and encoding: the most bytes in use in a call of a full batch, and the bytes kept per record.
 */
nlohmann::ordered_json memoryFigures();

}  // namespace bench

#endif
