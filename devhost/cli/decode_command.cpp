#include <fmt/chrono.h>
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <ctime>
#include <iterator>
#include <map>
#include <set>
#include <tuple>
#include <utility>

#include "devhost/cli/commands.h"
#include "devhost/cli/output.h"
#include "devhost/sampling/capture.h"
#include "devhost/sampling/catalogue.h"
#include "devhost/support/exit.h"
#include "devhost/support/shown.h"
#include "devhost/support/stop.h"
#include "devhost/support/trouble.h"

namespace host {

namespace {

// Milliseconds since 1970 in ISO 8601.
std::string timeText(uint64_t time) {
    const auto seconds = static_cast<std::time_t>(time / 1000);
    std::tm fields = {};
    if (gmtime_r(&seconds, &fields) == nullptr) {
        return fmt::format("{} ms after 1970", time);
    }
    return fmt::format("{:%FT%T}.{:03}Z", fields, time % 1000);
}

void print(uint64_t number, const CaptureRecord& record, const CapturedBatch& captured) {
    const Batch& batch = captured.batch;
    fmt::print(
        "batch {}: {} in {}, subscription {}, number {}, records {}, bytes {}, collected {}, encoding time {} us\n",
        number, shown(record.alias), captured.encoding == QOS_TLM_ENCODE_GPB ? "gpb" : "json", record.subscription,
        batch.hostArg2, batch.recordCount, batch.payload.size(), timeText(batch.collectStartTime),
        batch.encodeTimeSpend);
}

void print(const CaptureRecord& record, const PassEnd& end) {
    fmt::print(
        "end of pass {}: {}, subscription {}, records {}, rows {}, begun {}, took {} us, late {} us, result {}\n",
        record.pass, shown(record.alias), record.subscription, end.records,
        end.rows ? std::to_string(*end.rows) : "unknown", timeText(end.beginTime), end.duration, end.lateness,
        resultText(end.result));
}

void print(const CaptureRecord& record, const LogLine& line) {
    fmt::print("logged {}: {}, subscription {}, pass {}: {}\n", timeText(line.time),
               record.alias.empty() ? "no path" : shown(record.alias), record.subscription, record.pass,
               shown(line.text));
}

void print(const CaptureRecord& record, const MissedBeats& missed) {
    fmt::print("missed before pass {}: {}, subscription {}, passes {}\n", record.pass, shown(record.alias),
               record.subscription, missed.count);
}

void print(const CaptureRecord& record, const RowGone& row) {
    std::vector<std::string> keys;
    std::ranges::transform(row.keys, std::back_inserter(keys), shown);
    fmt::print("gone in pass {}: {}, subscription {}, row {}\n", record.pass, shown(record.alias), record.subscription,
               fmt::join(keys, " "));
}

/* Whether the batches of a subscription follow each other, as far as its records tell. */
class Sequence {
  public:
    /* Answers what is missing before the batch. */
    std::string add(const Batch& batch) {
        const uint32_t due = std::exchange(last_, batch.hostArg2) + 1;
        records_ += batch.recordCount;
        if (batch.hostArg2 == due) {
            return {};
        }
        hasGap_ = true;
        return fmt::format("gap: number {} where {} is due", batch.hostArg2, due);
    }

    /* Answers what is missing in the pass, unless it was told before. */
    std::string end(const PassEnd& end) {
        const uint64_t records = std::exchange(records_, 0);
        if (std::exchange(hasGap_, false) || records == end.records) {
            return {};
        }
        return fmt::format("the pass sent {} records, {} are here", end.records, records);
    }

  private:
    uint32_t last_ = 0;
    uint64_t records_ = 0;  // since the last end of a pass
    bool hasGap_ = false;   // since then
};

Form formOf(const DecodeOptions& options) {
    std::vector<std::string> fields;
    for (const Catalogued& entry : catalogue()) {
        std::ranges::move(entry.fieldNames(), std::back_inserter(fields));
    }
    std::ranges::sort(fields);
    fields.erase(std::unique(fields.begin(), fields.end()), fields.end());
    Form form = {options.output.value_or("table"), options.columns};
    requireColumns(form, "no field of a path", fields);
    return form;
}

class Decoder {
  public:
    explicit Decoder(const DecodeOptions& options)
        : file_(options.file), form_(formOf(options)), reader_(options.file) {}

    int run() {
        while (!stopRequested()) {
            const std::optional<CaptureRecord> record = next();
            if (!record) {
                break;
            }
            std::visit([&](const auto& content) { show(*record, content); }, record->content);
            flushOutput();  // who watches a sampler through a pipe waits for it
        }
        return code_;
    }

  private:
    std::optional<CaptureRecord> next() {
        try {
            return reader_.next();
        } catch (const std::exception&) {
            flushOutput();  // what came before the fault stands before its message
            throw;
        }
    }

    void show(const CaptureRecord& record, const CapturedBatch& captured) {
        if (form_.output != "json") {
            print(++batches_, record, captured);
        }
        tellGap(record, sequence(record).add(captured.batch));
        printBatches({&captured.batch, 1}, record.alias, captured.encoding, form_,
                     [this](const Batch&, const std::string& what) { tell(what); });
    }

    void show(const CaptureRecord& record, const PassEnd& end) {
        if (form_.output != "json") {
            print(record, end);
        }
        tellGap(record, sequence(record).end(end));
    }

    // What concerns no record.
    template <class Content>
    void show(const CaptureRecord& record, const Content& content) {
        if (form_.output != "json") {
            print(record, content);
        }
    }

    void show(const CaptureRecord&, const UnknownKind& unknown) {
        if (unknownKinds_.insert(unknown.kind).second) {
            flushOutput();
            report(fmt::format("'{}', byte {}: records of kind {} are skipped, as this program does not know them",
                               file_, reader_.offset(), unknown.kind));
        }
    }

    // A run counts on its own, and so does each capture that names none.
    Sequence& sequence(const CaptureRecord& record) {
        constexpr size_t kMostSequences = 100'000;
        auto& sequence = sequences_[{!record.run, record.run.value_or(reader_.captures()), record.subscription}];
        if (sequences_.size() > kMostSequences) {
            throw std::runtime_error(fmt::format("'{}', byte {}: more than {} runs and subscriptions in one file",
                                                 file_, reader_.offset(), kMostSequences));
        }
        return sequence;
    }

    void tellGap(const CaptureRecord& record, const std::string& what) {
        if (!what.empty()) {
            const std::string run = record.run ? fmt::format(" of run {:016x}", *record.run) : "";
            tell(fmt::format("subscription {}{}: {}", record.subscription, run, what));
        }
    }

    void tell(const std::string& what) {
        flushOutput();
        report(fmt::format("'{}', byte {}: {}", file_, reader_.offset(), what));
        code_ = kFailed;
    }

    const std::string file_;
    const Form form_;
    CaptureReader reader_;
    std::map<std::tuple<bool, uint64_t, uint32_t>, Sequence> sequences_;
    std::set<uint8_t> unknownKinds_;  // that were told
    uint64_t batches_ = 0;
    int code_ = kDone;
};

}  // namespace

int runDecode(const DecodeOptions& options) {
    return Decoder(options).run();
}

}  // namespace host
