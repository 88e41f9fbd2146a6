/*
 * The platform as the plug-in finds it in the benchmark: fast, the same for every side of a comparison, and counted.
 *
 * Blocks come from free lists by size and the clock stands still, so that neither the C library's allocator nor the
 * kernel's clock hides the plug-in's own work. Uploads are counted and dropped unless a capture asks for them. One
 * thread only.
 */
#ifndef BENCH_HOST_H
#define BENCH_HOST_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "nivex_qos/plugin.h"

namespace bench {

/* Calls of the platform so far. */
struct Calls {
    uint64_t blocks = 0;
    uint64_t blockBytes = 0;
    uint64_t copies = 0; /* strcpy_s and memcpy_s */
    uint64_t copiedBytes = 0;
    uint64_t uploads = 0;
    friend bool operator==(const Calls&, const Calls&) = default;
};
Calls operator-(const Calls& left, const Calls& right);
extern Calls calls;

/* Blocks in use now, and the most bytes in use since the last resetPeak(). */
struct Memory {
    uint64_t blocks = 0;
    uint64_t bytes = 0;
    uint64_t peakBytes = 0;
};
extern Memory memory;
void resetPeak();

/* A message of the plug-in ends the program unless this is set. */
extern bool expectsMessages;

/* What one side of a comparison did: the samples that it uploaded and the calls that it made. */
struct Capture {
    std::vector<std::string> payloads;
    std::vector<uint32_t> recordCounts;
    Calls calls;
};
Capture capture(const std::function<void()>& run);

/* Hands a sample to the host, as the plug-in does. */
void upload(const QosTlmSampleData* sample);

/* The plug-in, loaded once and started. A missing name ends the program with a message. */
void* pluginSymbol(const char* name);
#define PLUGIN(name) (reinterpret_cast<decltype(&(name))>(bench::pluginSymbol(#name)))

[[noreturn]] void fail(const std::string& message);

}  // namespace bench

#endif
