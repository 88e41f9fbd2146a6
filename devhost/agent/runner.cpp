#include "devhost/agent/runner.h"

#include <fmt/format.h>

#include <algorithm>
#include <csignal>
#include <utility>
#include <variant>

namespace agent {

namespace {

constexpr std::chrono::milliseconds kShortestPatience{10'000};
constexpr int kPatientIntervals = 3;

}  // namespace

Runner::Runner(host::Loop& loop, Children& children, host::Source source, WorkerOrder order, const Consumers& consumers)
    : children_(children),
      source_(std::move(source)),
      order_(std::move(order)),
      consumers_(consumers),
      trouble_(fmt::format("sampling {}", source_.name)),
      again_(loop.timer([this] { start(); })),
      watchdog_(loop.timer([this] {
          const std::string why = fmt::format("answered nothing for {:.3g} s and was ended",
                                              std::chrono::duration<double>(patience()).count());
          child_.reset();
          lost(why);
      })) {
    const host::Subscription& subscription = source_.subscription;
    order_.alias = source_.path.alias;
    order_.subscription = source_.id;
    order_.every = subscription.every;
    order_.followRows = subscription.period || subscription.redundantPeriod;
    order_.request = requestOf(subscription);
}

Runner::~Runner() {
    child_.reset();
    tell([this](host::Consumer& consumer) { consumer.sourceEnded(source_); });
}

void Runner::begin(const std::string& database) {
    if (!std::exchange(begun_, true)) {
        order_.database = database;
        tell([this](host::Consumer& consumer) { consumer.sourceStarted(source_); });
        start();
    }
}

std::chrono::milliseconds Runner::patience() const {
    return std::max(kShortestPatience, order_.every * kPatientIntervals);
}

void Runner::start() {
    parser_.emplace();
    nextNumber_ = 1;
    messages_.clear();
    gone_.clear();
    passRecords_ = 0;
    passBroken_ = false;
    backoff_.began();
    try {
        child_ = children_.start(
            WorkerOrder::kArgument, order_.bytes(), [this](std::string_view bytes) { take(bytes); },
            [this](const std::string& how) {
                if (child_) {  // it was not ended for what it had sent
                    child_.reset();
                    lost(how);
                }
            });
    } catch (const std::exception& error) {
        lost(error.what());
        return;
    }
    for (uint64_t request = 0; request < requested_; ++request) {
        child_->send(kPassRequest);
    }
    watch();
}

void Runner::requestPass() {
    ++requested_;
    if (child_) {
        child_->send(kPassRequest);
        watch();
    }
}

// A worker that makes passes by itself, or owes one, has to answer.
void Runner::watch() {
    if (order_.every.count() > 0 || requested_ > 0) {
        watchdog_.start(patience());
    } else {
        watchdog_.cancel();
    }
}

void Runner::lost(const std::string& why) {
    watchdog_.cancel();
    ++ledger_.restarts;
    messages_.push_back(fmt::format("the worker of subscription {} {}", source_.name, why));
    trouble_.tell(std::exchange(messages_, {}));
    again_.start(backoff_.next());
    tell([&](host::Consumer& consumer) { consumer.workerLost(source_, why); });
}

template <class Call>
void Runner::tell(const Call& call) {
    for (host::Consumer* const consumer : consumers_) {
        if (!silent_) {
            call(*consumer);
        }
    }
}

void Runner::take(std::string_view bytes) {
    watch();
    try {
        parser_->feed(bytes);
        while (const auto record = parser_->next()) {
            const std::string frame(parser_->bytes());
            std::visit([&](const auto& content) { take(*record, content, frame); }, record->content);
            if (silent_) {
                return;
            }
        }
    } catch (const std::runtime_error& error) {
        child_.reset();
        lost(fmt::format("sent what is no capture, and was ended: {}", error.what()));
    }
}

void Runner::take(const host::CaptureRecord& record, const host::CapturedBatch& captured, const std::string& frame) {
    const host::Batch& batch = captured.batch;
    ++ledger_.batches;
    ledger_.bytes += batch.payload.size();
    ledger_.encodeTime += batch.encodeTimeSpend;
    ledger_.gaps += batch.hostArg2 - std::exchange(nextNumber_, batch.hostArg2 + 1);
    std::vector<host::RecordPointer> records;
    try {
        records = decodeRecords(source_.path, captured.encoding, batch.payload);
    } catch (const std::exception& error) {
        ledger_.refused += batch.recordCount;
        passRecords_ += batch.recordCount;
        passBroken_ = true;
        // Without its number: of batches that are refused pass by pass, it is said once.
        messages_.push_back(fmt::format("a batch of subscription {} cannot be read: {}", source_.name, error.what()));
        return;
    }
    ledger_.records += records.size();
    passRecords_ += records.size();
    const host::SampledBatch sampled = {source_, record.run.value_or(0), record.pass, batch, frame, records};
    tell([&](host::Consumer& consumer) { consumer.batch(sampled); });
}

void Runner::take(const host::CaptureRecord& record, const host::PassEnd& end, const std::string& frame) {
    const bool done = end.result == QOS_TLM_RESULT_DONE;
    ++ledger_.passes;
    ledger_.failedPasses += done ? 0 : 1;
    ledger_.passTime += end.duration;
    ledger_.lastPass = end.beginTime;
    ledger_.lastLateness = end.lateness;
    if (end.rows) {
        ledger_.rows += *end.rows;
        ledger_.notSent += *end.rows - std::min(*end.rows, passRecords_);
    }
    requested_ -= requested_ > 0 ? 1 : 0;
    watch();
    if (!done) {
        messages_.push_back(fmt::format("a pass of subscription {} failed", source_.name));
    }
    // A line of the log may be about a row that did not come; it is not when all came.
    const bool allCame = end.rows && passRecords_ >= *end.rows;
    passBroken_ = passBroken_ || !done || passRecords_ < end.records || (!messages_.empty() && !allCame);
    trouble_.tell(std::exchange(messages_, {}));
    const std::vector<host::RowKey> gone = std::exchange(gone_, {});
    const bool whole = !passBroken_ && !order_.followRows;
    passBroken_ = false;
    passRecords_ = 0;
    const host::SampledPass sampled = {source_, record.run.value_or(0), record.pass, end, frame, whole, gone};
    tell([&](host::Consumer& consumer) { consumer.passEnded(sampled); });
}

void Runner::take(const host::CaptureRecord&, const host::LogLine& line, const std::string& frame) {
    ++ledger_.messages;
    messages_.push_back(line.text);
    tell([&](host::Consumer& consumer) { consumer.message(source_, line, frame); });
}

void Runner::take(const host::CaptureRecord&, const host::MissedBeats& missed, const std::string& frame) {
    ledger_.missedBeats += missed.count;
    tell([&](host::Consumer& consumer) { consumer.missed(source_, missed, frame); });
}

void Runner::take(const host::CaptureRecord&, const host::RowGone& row, const std::string& frame) {
    gone_.push_back(host::rowKeyOf(row.keys));
    tell([&](host::Consumer& consumer) { consumer.rowGone(source_, frame); });
}

void Runner::take(const host::CaptureRecord&, const host::UnknownKind&, const std::string&) {}

}  // namespace agent
