/*
 * What the feed of a database has left for whoever samples it: that nobody writes it any more, and its note. Told on
 * standard error, once until it changes; of a database without a feed's mark there is nothing to tell.
 */
#ifndef DEVHOST_SAMPLING_FEED_WATCH_H
#define DEVHOST_SAMPLING_FEED_WATCH_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "devhost/qosdb/feed_mark.h"

namespace host {

class FeedWatch {
  public:
    /* The note is told for the paths whose records are made of counters of queues. */
    FeedWatch(std::string database, std::string_view alias);

    /* Looks at the mark, and whether it is fresh. */
    void look();

    /* What the last look has found, if there was a mark. */
    const std::optional<qosdb::FeedMark>& lastMark() const { return mark_; }

  private:
    std::optional<qosdb::FeedMark> mark_;
    std::string database_;
    bool ofQueues_;
    std::pair<uint64_t, uint64_t> stale_;  // process and round that were told
    std::string note_;
};

}  // namespace host

#endif
