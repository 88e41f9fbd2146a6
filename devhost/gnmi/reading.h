/*
 * One list that a client wants, while it is sampled: which rows of it are to be sent, and which are no more.
 */
#ifndef DEVHOST_GNMI_READING_H
#define DEVHOST_GNMI_READING_H

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>

#include "devhost/gnmi/requests.h"
#include "devhost/gnmi/sampler.h"
#include "devhost/sampling/consumer.h"

namespace gnmi {

class Reading;

/* Whoever sends what a reading brings. Times are nanoseconds since 1970, of the reading of the values. */
class Reader {
  public:
    virtual ~Reader() = default;
    /* isNew: the row was not there before. */
    virtual void value(const Reading& from, const host::RowKey& row, bool isNew, const host::RecordPointer& record,
                       int64_t time) = 0;
    virtual void gone(const Reading& from, const host::RowKey& row, int64_t time) = 0;

    /* No more for the moment. */
    virtual void paused() = 0;

    /* The last call about a pass. In each of these the reading may be ended: */
    virtual void passed(Reading& from) = 0;
    /* Part of a pass, or all of it, did not arrive; the next one makes up for it. why: for people. */
    virtual void failed(Reading& from, const std::string& why) = 0;
    /* There will be no more passes. */
    virtual void ended(Reading& from, const std::string& why) = 0;
};

class Reading : public host::Consumer {
  public:
    /* Both outlive it. */
    Reading(Wanted wanted, Sampler& sampler, Reader& reader);
    ~Reading() override { end(); }

    /*
     * Unless `values` is set, the first pass brings none. Throws what Sampler::start() throws, and Fault where that
     * is TooManySubscriptions.
     */
    void start(bool values);
    void requestPass();
    void end();

    const Wanted& wanted() const { return wanted_; }
    /* Known at this moment. */
    size_t rows() const { return rows_.size(); }
    /* That arrived whole. */
    uint64_t passes() const { return passes_; }

    void batch(const host::SampledBatch& sampled) override;
    void passEnded(const host::SampledPass& sampled) override;
    void message(const host::Source& source, const host::LogLine& line, const std::string& frame) override;
    void missed(const host::Source&, const host::MissedBeats&, const std::string&) override {}
    void workerLost(const host::Source& source, const std::string& why) override;
    void sourceEnded(const host::Source& source) override;

  private:
    struct Row {
        uint64_t pass = 0;              // the last one that had it, of pass_
        host::RecordPointer sent = {};  // where changes are sought
        std::chrono::steady_clock::time_point sentAt = {};
    };

    bool isDue(const Row& row, const host::Record& record, std::chrono::steady_clock::time_point now) const;
    void forgetMissing(int64_t time);
    bool forget(const host::RowKey& row, int64_t time);
    bool startAnew();

    const Wanted wanted_;
    Sampler& sampler_;
    Reader& reader_;
    std::unique_ptr<Sampling> sampling_;
    std::unordered_map<host::RowKey, Row> rows_;
    uint64_t pass_ = 1;  // since the start, failed ones among them
    uint64_t passes_ = 0;
    uint64_t received_ = 0;  // records of this pass
    bool sends_ = true;      // values; else they are what later ones are compared with
    bool stale_ = false;     // the plug-in remembers what is not so any more
    std::string logged_;     // last in this pass
};

}  // namespace gnmi

#endif
