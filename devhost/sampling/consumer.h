/*
 * What a running subscription brings, as those see it who hand it on: outputs and gNMI streams.
 *
 * All of it happens on one thread, the loop's (support/loop.h). A consumer is called in this order: sourceStarted()
 * before anything else of a subscription; batches of a pass as they arrive, then the end of the pass; when the worker
 * of the subscription was started anew, workerLost() first. It never blocks and never throws; what it cannot take it
 * counts.
 */
#ifndef DEVHOST_SAMPLING_CONSUMER_H
#define DEVHOST_SAMPLING_CONSUMER_H

#include <cstdint>
#include <string>
#include <vector>

#include "devhost/sampling/batch.h"
#include "devhost/sampling/capture.h"
#include "devhost/sampling/catalogue.h"
#include "devhost/sampling/records.h"
#include "devhost/sampling/subscription.h"

namespace host {

/* A running subscription; lives as long as any call mentions it. */
struct Source {
    std::string name;  // the subscription's, unique in the agent: a key of the configuration, or made up for gNMI
    uint32_t id;       // likewise, as its samples carry it
    const Catalogued& path;
    Subscription subscription;
};

struct SampledBatch {
    const Source& source;
    uint64_t run;   // a random number of the worker process
    uint64_t pass;  // from 1 in each run
    const Batch& batch;
    const std::string& frame;                   // the capture record that holds all of this
    const std::vector<RecordPointer>& records;  // decoded from the batch, in its order
};

struct SampledPass {
    const Source& source;
    uint64_t run;
    uint64_t pass;
    const PassEnd& end;
    const std::string& frame;
    /*
     * Whether the batches of this pass were all rows that the subscription has at this moment: the pass was read to its
     * end, nothing of it was lost, and the subscription neither suppresses nor checks a period.
     */
    bool whole;
    /* Rows that were in the table in the pass before and no more: only where the subscription suppresses or checks. */
    const std::vector<RowKey>& gone;
};

class Consumer {
  public:
    virtual ~Consumer() = default;
    /* The subscription begins; for those who say of it that nothing has come yet. */
    virtual void sourceStarted(const Source& /*source*/) {}
    virtual void batch(const SampledBatch& sampled) = 0;
    virtual void passEnded(const SampledPass& sampled) = 0;
    /* The capture record of one of a pass's gone rows, which passEnded() has together. */
    virtual void rowGone(const Source& /*source*/, const std::string& /*frame*/) {}
    /* A line that the plug-in or its host logged. */
    virtual void message(const Source& source, const LogLine& line, const std::string& frame) = 0;
    /* Passes that were due and not made. */
    virtual void missed(const Source& source, const MissedBeats& missed, const std::string& frame) = 0;
    /* The worker ended or was ended; what it knew of the past is gone, another one follows. why: for people. */
    virtual void workerLost(const Source& source, const std::string& why) = 0;
    /* The subscription has ended for good. */
    virtual void sourceEnded(const Source& source) = 0;
};

}  // namespace host

#endif
