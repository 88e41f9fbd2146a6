#include "devhost/sampling/feed_watch.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <chrono>

#include "devhost/support/trouble.h"

namespace host {

namespace {

constexpr std::array<std::string_view, 4> kOfQueues = {"queue-statistics", "queue-drop-statistics",
                                                       "queue-buffer-usage-statistics", "port-buffer-usage-statistics"};

std::string spanText(uint64_t milliseconds) {
    const double seconds = static_cast<double>(milliseconds) / 1000;
    if (seconds < 120) {
        return fmt::format("{:.3g} s", seconds);
    }
    const double hours = seconds / 3600;
    return hours < 2 ? fmt::format("{:.0f} min", seconds / 60)
                     : (hours < 48 ? fmt::format("{:.0f} h", hours) : fmt::format("{:.0f} days", hours / 24));
}

}  // namespace

FeedWatch::FeedWatch(std::string database, std::string_view alias)
    : database_(std::move(database)), ofQueues_(std::ranges::find(kOfQueues, alias) != kOfQueues.end()) {}

void FeedWatch::look() {
    mark_ = qosdb::readFeedMark(database_);
    if (!mark_) {
        return;
    }
    const qosdb::FeedMark& mark = *mark_;
    const auto now = std::chrono::system_clock::now();
    const bool isStale = !mark.isFreshAt(now);
    const std::pair stale = isStale ? std::pair(mark.process, mark.round) : std::pair(uint64_t{0}, uint64_t{0});
    if (isStale && stale != stale_) {
        report(fmt::format("the data in '{}' is {} old: feed {}, process {} on {}, had a round due every {}", database_,
                           spanText(mark.ageAt(now)), mark.source, mark.process, mark.host, spanText(mark.every_ms)));
    }
    stale_ = stale;
    if (ofQueues_ && !mark.note.empty() && mark.note != note_) {
        report(mark.note);
    }
    note_ = mark.note;
}

}  // namespace host
