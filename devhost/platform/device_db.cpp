#include "platform/device_db.h"

namespace {

constexpr uint32_t kNumbersPerPlace = 64;

}  // namespace

uint32_t DEVM_DB_GetGlobalSlotIdByLocalSlotId(uint32_t* globalSlot, uint32_t second, uint32_t first) {
    if (globalSlot == nullptr || first >= kNumbersPerPlace || second >= kNumbersPerPlace) {
        return 1;
    }
    *globalSlot = first * kNumbersPerPlace + second;
    return 0;
}
