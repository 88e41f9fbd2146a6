/*
 * What a feed leaves in the database with each round, in its transaction: who wrote it and when. The one row of the
 * table feed, whose columns are the fields; a database that was made by hand has no such table.
 */
#ifndef DEVHOST_QOSDB_FEED_MARK_H
#define DEVHOST_QOSDB_FEED_MARK_H

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace qosdb {

struct FeedMark {
    std::string source = {};  // "kernel" or "sim"
    std::string host = {};    // the name of the machine
    uint64_t process = 0;     // the feed's id there
    uint64_t every_ms = 0;    // from round to round
    uint64_t round = 0;       // this one's number, from 1
    uint64_t time_ms = 0;     // of the round, since 1970
    uint64_t missed = 0;      // rounds that were due before and not written
    std::string note = {};    // what is to be known of the counters of queues; "" when nothing

    using Time = std::chrono::system_clock::time_point;

    /* How old it is at that time, in ms; 0 when it is of the future: a clock was set back. */
    uint64_t ageAt(Time now) const;

    /* Whether it is no older than three rounds, or than a second, in which a busy machine may hold up a fast feed. */
    bool isFreshAt(Time now) const;

    /*
     * Whether its feed may run: not when this machine has no such process. Beyond containers that share the machine's
     * name but not its process ids that is a guess; who feeds a file for certain tells its lock (feed_lock.h).
     */
    bool mayRun() const;

    /* Of this process, before its first round. */
    static FeedMark ofThisProcess(std::string source, std::chrono::milliseconds every);

    /* The next round, now. */
    void advance();
};

inline constexpr char kCreateFeedMark[] =
    "CREATE TABLE IF NOT EXISTS feed (source TEXT NOT NULL, host TEXT NOT NULL, process INT NOT NULL, "
    "every_ms INT NOT NULL, round INT NOT NULL, time_ms INT NOT NULL, missed INT NOT NULL, note TEXT NOT NULL)";
inline constexpr char kInsertFeedMark[] =
    "INSERT INTO feed (source, host, process, every_ms, round, time_ms, missed, note) VALUES (?, ?, ?, ?, ?, ?, ?, ?)";

/*
 * The mark in the file; none when there is none or it cannot be read within some 100 ms, from a table: who made the
 * file need not be trusted. Texts are cut at 1000 bytes.
 */
std::optional<FeedMark> readFeedMark(const std::string& path);

}  // namespace qosdb

#endif
