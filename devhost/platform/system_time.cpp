#include "platform/system_time.h"

#include <atomic>
#include <chrono>
#include <ctime>
#include <limits>

#include "devhost/platform/stand_in.h"

namespace {

constexpr uint64_t kRunning = UINT64_MAX;
std::atomic<uint64_t> stoppedAt{kRunning};

uint64_t currentMs() {
    const uint64_t stopped = stoppedAt;
    if (stopped != kRunning) {
        return stopped;
    }
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(now).count());
}

void split(uint64_t value, uint32_t* high, uint32_t* low) {
    *high = static_cast<uint32_t>(value >> 32);
    *low = static_cast<uint32_t>(value);
}

/* A KatSystime holds milliseconds since 1970, high half first. */
uint64_t millisecondsOf(const KatSystime* time) {
    return uint64_t{time->opaque[0]} << 32 | time->opaque[1];
}

}  // namespace

void KAT_SystimeGet(KatSystime* now) {
    split(currentMs(), &now->opaque[0], &now->opaque[1]);
    now->opaque[2] = 0;
}

void KAT_SystimeMsSince1970(const KatSystime* time, uint32_t* high, uint32_t* low) {
    split(millisecondsOf(time), high, low);
}

void KAT_SystimeSecSince1970(const KatSystime* time, uint32_t* high, uint32_t* low) {
    split(millisecondsOf(time) / 1000, high, low);
}

// UTC, as the count of seconds is.
uint32_t KAT_SystimeSec2Time(uint64_t seconds, KatCalendar* calendar) {
    constexpr int kFirstYear = 1900;
    std::tm utc{};
    if (calendar == nullptr || seconds > static_cast<uint64_t>(std::numeric_limits<std::time_t>::max())) {
        return 1;
    }
    const auto time = static_cast<std::time_t>(seconds);
    if (gmtime_r(&time, &utc) == nullptr || utc.tm_year > UINT16_MAX - kFirstYear) {
        return 1;
    }
    *calendar = {static_cast<uint16_t>(utc.tm_year + kFirstYear),
                 static_cast<uint8_t>(utc.tm_mon + 1),
                 static_cast<uint8_t>(utc.tm_mday),
                 static_cast<uint8_t>(utc.tm_hour),
                 static_cast<uint8_t>(utc.tm_min),
                 static_cast<uint8_t>(utc.tm_sec),
                 {}};
    return 0;
}

namespace devhost {

void setClock(std::optional<uint64_t> milliseconds) {
    stoppedAt = milliseconds.value_or(kRunning);
}

}  // namespace devhost
