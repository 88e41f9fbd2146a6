/*
 * What the judge of names_fuzz.cpp measures of the plug-in's matcher.
 */
#ifndef FUZZ_NAMES_JUDGE_H
#define FUZZ_NAMES_JUDGE_H

#include <cstdint>

struct MatchCost {
    uint32_t nanoseconds;  // the shortest of three
    uint32_t stackBytes;
    bool matches;
};

#endif
