/*
 * A subscription whose passes a test makes up.
 */
#ifndef TESTS_OUTPUTS_FEED_H
#define TESTS_OUTPUTS_FEED_H

#include <string>
#include <utility>
#include <vector>

#include "devhost/sampling/consumer.h"

namespace outputs {

/* A record of queue-statistics. */
inline host::RecordPointer queueRecord(std::string interface, uint64_t serviceClass, uint64_t packets) {
    auto record = std::make_shared<host::Record>();
    record->values = {std::move(interface), serviceClass, packets};
    record->values.resize(10, uint64_t{0});
    return record;
}

struct Feed {
    explicit Feed(uint32_t id, std::chrono::milliseconds every = std::chrono::seconds(1),
                  std::optional<uint32_t> redundantPeriod = {})
        : source{"s" + std::to_string(id), id, *host::findInCatalogue("queue-statistics"), {}} {
        source.subscription.every = every;
        source.subscription.redundantPeriod = redundantPeriod;
    }

    /* Hands a batch to call, and the end of its pass to the other. */
    template <class OnBatch, class OnEnd>
    void pass(const std::vector<host::RecordPointer>& records, OnBatch onBatch, OnEnd onEnd) {
        ++passes;
        host::Batch batch{};
        batch.recordCount = static_cast<uint32_t>(records.size());
        const auto bytesOf = [this](auto content) {
            return host::captureBytes({7, source.id, passes, source.path.alias, std::move(content)});
        };
        const std::string frame = bytesOf(host::CapturedBatch{{}, batch});
        onBatch(host::SampledBatch{source, 7, passes, batch, frame, records});
        const bool whole = result == QOS_TLM_RESULT_DONE && !source.subscription.redundantPeriod;
        const host::PassEnd end{.result = result, .records = records.size(), .duration = duration};
        const std::string endFrame = bytesOf(end);
        onEnd(host::SampledPass{source, 7, passes, end, endFrame, whole, gone});
    }

    host::Source source;
    uint64_t passes = 0;
    uint64_t duration = 0;
    uint8_t result = QOS_TLM_RESULT_DONE;
    std::vector<host::RowKey> gone = {};
};

}  // namespace outputs

#endif
