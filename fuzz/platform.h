/*
 * The platform of the fuzzed plug-in: fast, and as bad as the input wants it.
 *
 * The table that the plug-in walks is made of the input's bytes, whichever table it is; any call that can fail fails
 * when its turn comes. Blocks are malloc's, texts lie alone on the heap and die with their row, so that the address
 * sanitizer sees each misuse. A target sets and reads `platform`, and starts from Platform{}. One thread only.
 */
#ifndef FUZZ_PLATFORM_H
#define FUZZ_PLATFORM_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "nivex_qos/sample.h"

namespace fuzz {

struct Platform {
    // Of the calls that can fail, the one to fail next, 1 for the next of all; then that many again. 0: none.
    uint32_t untilFailure = 0;
    uint32_t nextFailure = 0;
    uint32_t failureCode = 1;

    uint64_t nowMs = 1'700'000'000'123;  // what both clocks show

    // A row reads its columns from here, beginning at its number times rowStep; the bytes repeat.
    std::string_view rowBytes;
    uint32_t rowStep = 1;
    uint32_t rowCount = 0;
    bool distinctKeys = false;  // keys are the row's number

    bool hasFailed = false;  // also by a text or a time that does not fit
    bool isAscii = true;     // all texts that were handed out
    size_t blocks = 0;       // not freed
    size_t objects = 0;      // not released
    uint32_t uploads = 0;
    uint32_t recordCount = 0;  // of the last upload
    std::string payload;       // likewise
};

extern Platform platform;

// Empties the plug-in's three tables, which outlive an input.
void forget();

size_t sentKeys();  // nodes of the sent-record chains

}  // namespace fuzz

#endif
