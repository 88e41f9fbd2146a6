// Sent records, history and periods against plain maps, over any order of calls.
#include <set>

#include "fuzz/input.h"
#include "fuzz/platform.h"
#include "nivex_qos/tracking.h"
#include "tests/support/tracking_model.h"

using fuzz::Input;
using fuzz::platform;

namespace {

uint32_t isOverPeriod(TrackingModel& times, uint32_t key, uint32_t sub, uint32_t family, uint32_t period) {
    return times.isOverPeriod(key, sub, family, period, static_cast<uint32_t>(platform.nowMs / 1000));
}

// Few keys that come again, many that collide, and any.
uint32_t readKey(Input& input) {
    const uint8_t choice = input.byte();
    return choice < 0x80   ? choice % 32
           : choice < 0xC0 ? input.byte() * QOS_TLM_HASH_BUCKET_NUM + choice % 4
           : choice < 0xF8 ? input.number<uint16_t>() % 1024
                           : input.number<uint32_t>();
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Input input(data, size);
    platform = {};
    std::multiset<uint32_t> sent[QOS_TLM_FAMILY_NUM];
    TrackingModel history;
    TrackingModel times;
    size_t blocks = 0;
    while (!input.isOver()) {
        const uint8_t step = input.byte();
        const uint32_t family = step / 16;  // up to 15
        const bool exists = family < QOS_TLM_FAMILY_NUM;
        const uint32_t key = readKey(input);
        switch (step % 16) {
            case 0:  // many at once: a table of rows
                for (uint32_t i = 0, count = input.below(32); i < count && exists; ++i, ++blocks) {
                    QOS_HashInsert(family, key + i * 7);
                    sent[family].insert(key + i * 7);
                }
                break;
            case 1:
                QOS_HashRelease(family);
                if (exists) {
                    blocks -= sent[family].size();
                    sent[family].clear();
                }
                break;
            case 2:  // out of memory
                platform.untilFailure = 1;
                QOS_HashInsert(family, key);
                platform.untilFailure = 0;
                break;
            case 3:
            case 4:
            case 5:
                QOS_HashInsert(family, key);
                if (exists) {
                    sent[family].insert(key);
                    ++blocks;
                }
                break;
            case 6:
            case 7:
            case 8:  // in a row, as a table is walked
                for (uint32_t i = 0, count = 1 + input.below(16); i < count; ++i) {
                    REQUIRE(QOS_HashFind(family, key + i * 7) ==
                            (exists && sent[family].contains(key + i * 7) ? 1 : 0));
                }
                break;
            case 9:
                platform.nowMs += input.spread() - 1000;
                break;
            case 10:  // fills the slots
                for (uint32_t i = 0, count = input.below(64); i < count; ++i) {
                    REQUIRE(QOS_TLM_IsRedundantData(key + i, 0, i, family) ==
                            history.isRedundant(key + i, 0, i, family));
                    REQUIRE(QOS_TLM_IsOverPeriod(key + i, 0, family, i) == isOverPeriod(times, key + i, 0, family, i));
                }
                break;
            case 11:
            case 12: {
                const uint32_t sub = input.below(10);
                const uint64_t digest = input.byte() % 4u;
                REQUIRE(QOS_TLM_IsRedundantData(key, sub, digest, family) ==
                        history.isRedundant(key, sub, digest, family));
                break;
            }
            default: {
                const uint32_t sub = input.below(10);
                const auto period = static_cast<uint32_t>(input.spread());
                REQUIRE(QOS_TLM_IsOverPeriod(key, sub, family, period) ==
                        isOverPeriod(times, key, sub, family, period));
            }
        }
        REQUIRE(platform.blocks == blocks);
    }
    fuzz::forget();
    REQUIRE(platform.blocks == 0);
    return 0;
}
