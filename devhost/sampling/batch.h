/*
 * What the plug-in hands back.
 */
#ifndef DEVHOST_SAMPLING_BATCH_H
#define DEVHOST_SAMPLING_BATCH_H

#include <cstdint>
#include <string>

namespace host {

/* A copy of one uploaded buffer. */
struct Batch {
    uint32_t hostArg1;          // the subscription id
    uint32_t hostArg2;          // the running number, from 1
    uint64_t collectStartTime;  // milliseconds since 1970
    uint64_t collectEndTime;
    uint64_t encodeTimeSpend;  // microseconds
    uint32_t recordCount;
    std::string payload;
};

}  // namespace host

#endif
