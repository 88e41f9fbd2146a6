// A module with a function under the name of each that the plug-in exports. A call goes on to the
// program that loads the module, with six numbers or pointers and a floating-point number, however few the plug-in's
// own function takes: both architectures hand all of them over in registers.
#include <cstdint>

#include "nivex_qos/export.h"
#include "support/untyped_call.h"

namespace {
enum Index : uint32_t {
#define EXPORTED_FUNCTION(name) kIndexOf_##name,
#include "exported_functions.inc"
#undef EXPORTED_FUNCTION
};
}  // namespace

extern "C" {
uint64_t forwardCall(uint32_t index, uint64_t a, uint64_t b, uint64_t c, uint64_t d, uint64_t e, uint64_t f,
                     double real);

#define EXPORTED_FUNCTION(name)                                                                                    \
    UNTYPED_CALL QOS_TLM_API uint64_t name(uint64_t a, uint64_t b, uint64_t c, uint64_t d, uint64_t e, uint64_t f, \
                                           double real) {                                                          \
        return forwardCall(kIndexOf_##name, a, b, c, d, e, f, real);                                               \
    }
#include "exported_functions.inc"
}
