/*
 * The account of a place where records wait to be handed on. Always: offered = delivered + waiting + the sum of what
 * was dropped.
 */
#ifndef DEVHOST_SUPPORT_ACCOUNT_H
#define DEVHOST_SUPPORT_ACCOUNT_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace host {

/* Why a record was not delivered. */
enum class Drop : uint8_t {
    full,          // no room left in the bounded queue
    replaced,      // a newer value of the same row took its place while it waited
    tooLarge,      // more than the receiver takes
    refused,       // by the receiver, for another reason
    notConnected,  // the receiver was out of reach until the end
    stopped,       // waiting when the program or the stream ended
};
inline constexpr std::array<std::string_view, 6> kDropNames = {"full",    "replaced",      "too_large",
                                                               "refused", "not_connected", "stopped"};

struct Account {
    uint64_t offered = 0;  // records
    uint64_t delivered = 0;
    uint64_t waiting = 0;
    std::array<uint64_t, kDropNames.size()> dropped{};  // by Drop
    uint64_t bytesWaiting = 0;
    uint64_t reconnects = 0;
    std::string lastError;

    void drop(Drop reason, uint64_t records) { dropped[static_cast<size_t>(reason)] += records; }
    uint64_t allDropped() const {
        uint64_t sum = 0;
        for (const uint64_t each : dropped) {
            sum += each;
        }
        return sum;
    }
    bool balanced() const { return offered == delivered + waiting + allDropped(); }
};

}  // namespace host

#endif
