// A module that puts a function of its own behind REPLACED, an exported name of the plug-in: counts the calls and
// passes them on to the plug-in's own. Arguments and result are numbers or pointers, four at most, which both
// architectures hand over in registers of 64 bits.
#include <cstdint>

#include "nivex_qos/export.h"

extern "C" {
QOS_TLM_API uint64_t (*replacedOriginal)(uint64_t, uint64_t, uint64_t, uint64_t) = nullptr;
QOS_TLM_API uint32_t replacedCalls = 0;

#if defined(__clang__)
__attribute__((no_sanitize("function")))  // called with another type than it has
#endif
QOS_TLM_API uint64_t
REPLACED(uint64_t first, uint64_t second, uint64_t third, uint64_t fourth) {
    ++replacedCalls;
    return replacedOriginal(first, second, third, fourth);
}
}
