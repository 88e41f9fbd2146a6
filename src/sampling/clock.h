/*
 * The clock, for the plug-in's own use.
 */
#ifndef SRC_SAMPLING_CLOCK_H
#define SRC_SAMPLING_CLOCK_H

#include <cstdint>

namespace qos {

// Milliseconds since 1970.
uint64_t nowMs();

// The low 32 bits of the seconds since 1970.
uint32_t nowSec();

// Microseconds from start to end; 0 when the end lies before the start.
uint64_t timeSpan(uint32_t startSec, uint32_t startUs, uint32_t endSec, uint32_t endUs);

}  // namespace qos

#endif
