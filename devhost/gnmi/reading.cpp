#include "devhost/gnmi/reading.h"

#include <fmt/format.h>

#include <algorithm>
#include <exception>
#include <utility>
#include <vector>

#include "devhost/gnmi/fault.h"
#include "devhost/support/shown.h"
#include "nivex_qos/sample.h"

namespace gnmi {

namespace {

constexpr int64_t kNanosecondsPerMillisecond = 1'000'000;

int64_t inNanoseconds(uint64_t milliseconds) {
    return static_cast<int64_t>(milliseconds) * kNanosecondsPerMillisecond;
}

}  // namespace

Reading::Reading(Wanted wanted, Sampler& sampler, Reader& reader)
    : wanted_(std::move(wanted)), sampler_(sampler), reader_(reader) {}

void Reading::start(bool values) {
    sends_ = values;
    try {
        sampling_ = sampler_.start(wanted_.sampling, *this);
    } catch (const TooManySubscriptions& fault) {
        throw Fault(
            grpc::StatusCode::RESOURCE_EXHAUSTED,
            fmt::format("path {}: {}: end another stream, or raise max-subscriptions", wanted_.path, fault.what()));
    }
}

void Reading::requestPass() {
    if (sampling_) {
        sampling_->requestPass();
    }
}

void Reading::end() {
    // What it says at its end is no news.
    std::exchange(sampling_, nullptr).reset();
}

bool Reading::isDue(const Row& row, const host::Record& record, std::chrono::steady_clock::time_point now) const {
    if (!wanted_.changesOnly || row.sent == nullptr || std::ranges::any_of(wanted_.compared, [&](int index) {
            return record.values[static_cast<size_t>(index)] != row.sent->values[static_cast<size_t>(index)];
        })) {
        return true;
    }
    // Before it is too late: it may not be seen again earlier.
    return wanted_.heartbeat.count() > 0 && now - row.sentAt + wanted_.seenAgain > wanted_.heartbeat;
}

void Reading::batch(const host::SampledBatch& sampled) {
    received_ += sampled.batch.recordCount;
    const auto now = std::chrono::steady_clock::now();
    const int64_t time = inNanoseconds(sampled.batch.collectStartTime);
    for (const host::RecordPointer& record : sampled.records) {
        const host::RowKey key = host::rowKeyOf(*wanted_.what.list, *record);
        if (!wanted_.what.matches(key)) {
            continue;
        }
        Row& row = rows_[key];
        const bool isNew = std::exchange(row.pass, pass_) == 0;
        if (!isDue(row, *record, now)) {
            continue;
        }
        if (wanted_.changesOnly) {
            row.sent = record;
            row.sentAt = now;
        }
        if (sends_) {
            reader_.value(*this, key, isNew, record, time);
        }
    }
    reader_.paused();
}

void Reading::passEnded(const host::SampledPass& sampled) {
    const bool suppressed = wanted_.sampling.redundantPeriod.has_value();
    const uint64_t received = std::exchange(received_, 0);
    const std::string logged = std::exchange(logged_, {});
    // Whoever asks once wants nothing less than all rows.
    const bool arrived = wanted_.sampling.every.count() == 0
                             ? sampled.whole
                             : sampled.end.result == QOS_TLM_RESULT_DONE && received >= sampled.end.records;
    if (!arrived) {
        ++pass_;
        stale_ = suppressed;
        reader_.failed(*this, fmt::format("a pass over {} did not arrive whole{}{}", wanted_.sampling.alias,
                                          logged.empty() ? "" : ": ", logged));
        return;
    }
    const int64_t time = inNanoseconds(sampled.end.beginTime);
    // A plug-in that has just begun has sent nothing before, and so leaves nothing out.
    if (sampled.whole || (suppressed && sampled.pass == 1 && logged.empty())) {
        forgetMissing(time);
    }
    for (const host::RowKey& row : sampled.gone) {
        stale_ = (forget(row, time) && suppressed) || stale_;
    }
    ++pass_;
    ++passes_;
    sends_ = true;
    if (!stale_ || startAnew()) {
        reader_.passed(*this);
    }
}

// For the plug-in, records that were lost are sent, and rows that have gone and come again are unchanged: it would
// leave them out. Another one, which has seen nothing yet, brings all. Answers whether there still is a sampling.
bool Reading::startAnew() {
    stale_ = false;
    end();
    try {
        sampling_ = sampler_.start(wanted_.sampling, *this);
        sampling_->requestPass();
        return true;
    } catch (const std::exception& error) {
        reader_.ended(*this, error.what());
        return false;
    }
}

void Reading::forgetMissing(int64_t time) {
    std::vector<host::RowKey> missing;
    for (const auto& [key, row] : rows_) {
        if (row.pass != pass_) {
            missing.push_back(key);
        }
    }
    for (const host::RowKey& row : missing) {
        forget(row, time);
    }
}

// Answers whether the row was known. One that was sent again in the same pass is another row of that name.
bool Reading::forget(const host::RowKey& row, int64_t time) {
    const auto known = rows_.find(row);
    if (known == rows_.end() || known->second.pass == pass_) {
        return false;
    }
    rows_.erase(known);
    reader_.gone(*this, row, time);
    return true;
}

void Reading::message(const host::Source&, const host::LogLine& line, const std::string&) {
    constexpr size_t kLongest = 500;
    if (logged_.size() < kLongest) {
        logged_ += fmt::format("{}{}", logged_.empty() ? "" : "; ", host::shown(line.text));
    }
}

void Reading::workerLost(const host::Source&, const std::string& why) {
    received_ = 0;
    stale_ = false;
    ++pass_;
    const std::string logged = std::exchange(logged_, {});
    reader_.failed(*this, fmt::format("sampling {} broke off: the worker {}{}{}", wanted_.sampling.alias, why,
                                      logged.empty() ? "" : ": ", logged));
}

void Reading::sourceEnded(const host::Source&) {
    if (sampling_) {
        reader_.ended(*this, fmt::format("sampling {} has ended", wanted_.sampling.alias));
    }
}

}  // namespace gnmi
