#include <fmt/chrono.h>
#include <fmt/format.h>

#include <ctime>
#include <map>

#include "devhost/cli/capture.h"
#include "devhost/cli/commands.h"
#include "devhost/cli/exit.h"
#include "devhost/cli/output.h"
#include "devhost/cli/shown.h"
#include "devhost/cli/stop.h"
#include "devhost/cli/trouble.h"

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

void printHeading(uint64_t number, const CapturedBatch& captured) {
    const Batch& batch = captured.batch;
    fmt::print(
        "batch {}: {} in {}, subscription {}, number {}, records {}, bytes {}, collected {}, encoding time {} us\n",
        number, shown(captured.alias), captured.encoding == QOS_TLM_ENCODE_GPB ? "gpb" : "json", batch.hostArg1,
        batch.hostArg2, batch.recordCount, batch.payload.size(), timeText(batch.collectStartTime),
        batch.encodeTimeSpend);
}

}  // namespace

int runDecode(const DecodeOptions& options) {
    CaptureReader reader(options.file);
    std::map<uint32_t, uint32_t> lastNumbers;  // by subscription
    int code = kDone;
    uint64_t count = 0;
    while (!stopRequested()) {
        std::optional<CapturedBatch> captured;
        try {
            captured = reader.next();
        } catch (const std::exception&) {
            flushOutput();  // what came before the fault stands before its message
            throw;
        }
        if (!captured) {
            break;
        }
        const Batch& batch = captured->batch;
        if (options.output != "json") {
            printHeading(++count, *captured);
        }
        uint32_t& last = lastNumbers[batch.hostArg1];
        if (batch.hostArg2 != last + 1) {
            flushOutput();
            report(fmt::format("'{}', byte {}: gap in subscription {}: number {} where {} is due", options.file,
                               captured->offset, batch.hostArg1, batch.hostArg2, last + 1));
            code = kFailed;
        }
        last = batch.hostArg2;
        printBatches({&batch, 1}, captured->alias, captured->encoding, options.output,
                     [&](const Batch&, const std::string& what) {
                         flushOutput();
                         report(fmt::format("'{}', byte {}: {}", options.file, captured->offset, what));
                         code = kFailed;
                     });
    }
    return code;
}

}  // namespace host
