/*
 * What became of every record: the figures of subscriptions and outputs, in the form in which all that shows them reads
 * them.
 */
#ifndef DEVHOST_AGENT_LEDGER_H
#define DEVHOST_AGENT_LEDGER_H

#include <algorithm>
#include <cstdint>

namespace agent {

/* Of a subscription, since the agent began it. */
struct SubscriptionLedger {
    uint64_t passes = 0;        // ended, the failed ones among them
    uint64_t failedPasses = 0;  // whose last sampling call failed
    uint64_t missedBeats = 0;   // passes that were due and not made
    uint64_t restarts = 0;      // of the worker
    uint64_t rows = 0;          // that the table had, over all passes
    uint64_t records = 0;       // sent by the plug-in and read
    uint64_t refused = 0;       // records in batches that do not fit the schema
    uint64_t notSent = 0;       // rows without a record: filtered, suppressed, or lost with a call that failed
    uint64_t gaps = 0;          // running numbers that were left out: batches that were lost
    uint64_t batches = 0;
    uint64_t bytes = 0;         // of payload
    uint64_t encodeTime = 0;    // microseconds
    uint64_t passTime = 0;      // microseconds
    uint64_t messages = 0;      // that the plug-in and the database logged
    uint64_t lastPass = 0;      // when the last one began, milliseconds since 1970; 0: none yet
    uint64_t lastLateness = 0;  // microseconds by which it began later than it was due

    /* Whether any record of it was lost on the way to the agent. */
    bool anyLost() const { return refused > 0 || gaps > 0; }

    /* Sums up several subscriptions; the last pass is the latest of them. */
    void add(const SubscriptionLedger& other) {
        passes += other.passes;
        failedPasses += other.failedPasses;
        missedBeats += other.missedBeats;
        restarts += other.restarts;
        rows += other.rows;
        records += other.records;
        refused += other.refused;
        notSent += other.notSent;
        gaps += other.gaps;
        batches += other.batches;
        bytes += other.bytes;
        encodeTime += other.encodeTime;
        passTime += other.passTime;
        messages += other.messages;
        lastLateness = other.lastPass > lastPass ? other.lastLateness : lastLateness;
        lastPass = std::max(lastPass, other.lastPass);
    }
};

}  // namespace agent

#endif
