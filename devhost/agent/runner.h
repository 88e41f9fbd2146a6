/*
 * A running subscription: its worker, which is started anew whenever it ends or hangs, what it brings, and its ledger.
 */
#ifndef DEVHOST_AGENT_RUNNER_H
#define DEVHOST_AGENT_RUNNER_H

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "devhost/agent/children.h"
#include "devhost/agent/ledger.h"
#include "devhost/agent/order.h"
#include "devhost/sampling/capture.h"
#include "devhost/sampling/consumer.h"
#include "devhost/support/trouble.h"

namespace agent {

/* Who gets what a subscription brings; may change while it runs. */
using Consumers = std::vector<host::Consumer*>;

class Runner {
  public:
    /*
     * order: all but the database and what the source says. Throws host::SubscriptionError for what the path would not
     * follow.
     */
    Runner(host::Loop& loop, Children& children, host::Source source, WorkerOrder order, const Consumers& consumers);
    ~Runner();
    Runner(const Runner&) = delete;
    Runner& operator=(const Runner&) = delete;

    /* Starts the worker over this database, unless that was done before. */
    void begin(const std::string& database);

    const host::Source& source() const { return source_; }
    const SubscriptionLedger& ledger() const { return ledger_; }
    /* Of the worker; 0 when there is none at the moment. */
    pid_t process() const { return child_ ? child_->process() : 0; }

    /* A pass now, besides those that are due; the next worker makes it when this one ends before. */
    void requestPass();

    /* Nothing reaches the consumers any more, not even the end. */
    void silence() { silent_ = true; }

  private:
    std::chrono::milliseconds patience() const;
    void start();
    void lost(const std::string& why);
    void watch();
    void take(std::string_view bytes);
    void take(const host::CaptureRecord& record, const host::CapturedBatch& captured, const std::string& frame);
    void take(const host::CaptureRecord& record, const host::PassEnd& end, const std::string& frame);
    void take(const host::CaptureRecord& record, const host::LogLine& line, const std::string& frame);
    void take(const host::CaptureRecord& record, const host::MissedBeats& missed, const std::string& frame);
    void take(const host::CaptureRecord& record, const host::RowGone& row, const std::string& frame);
    void take(const host::CaptureRecord& record, const host::UnknownKind&, const std::string& frame);
    template <class Call>
    void tell(const Call& call);

    Children& children_;
    host::Source source_;
    WorkerOrder order_;
    const Consumers& consumers_;
    bool begun_ = false;
    bool silent_ = false;
    SubscriptionLedger ledger_;
    host::Trouble trouble_;

    std::unique_ptr<Child> child_;
    Backoff backoff_;
    host::Loop::Watch again_;     // starts the next worker
    host::Loop::Watch watchdog_;  // the worker has answered nothing for too long
    uint64_t requested_ = 0;      // passes that are due on request

    // Of the worker that runs.
    std::optional<host::CaptureParser> parser_;
    uint32_t nextNumber_ = 1;
    // Of the pass that it is in.
    std::vector<std::string> messages_;
    std::vector<host::RowKey> gone_;
    uint64_t passRecords_ = 0;  // the refused ones among them
    bool passBroken_ = false;   // something of it was lost
};

}  // namespace agent

#endif
