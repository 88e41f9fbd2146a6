/*
 * What the plug-in holds of the host's memory, and of the C library's through cJSON.
 */
#ifndef BENCH_MEMORY_H
#define BENCH_MEMORY_H

#include <nlohmann/json.hpp>

namespace bench {

/*
 * One record per family: the most bytes in use in a call of a full batch, with ordinary values and with those that take
 * the most, and the bytes kept per record. More than docs/reliability.md promises ends the program with a message.
 */
nlohmann::ordered_json memoryFigures();

}  // namespace bench

#endif
