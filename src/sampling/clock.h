/*
 * The platform's clock, for the plug-in's own use.
 */
#ifndef SRC_SAMPLING_CLOCK_H
#define SRC_SAMPLING_CLOCK_H

#include <cstdint>

namespace qos {

// Milliseconds since 1970.
uint64_t nowMs();

// The low 32 bits of the seconds since 1970.
uint32_t nowSec();

}  // namespace qos

#endif
