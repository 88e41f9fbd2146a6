#include "bench/comparisons.h"

#include <fmt/core.h>
#include <google/protobuf/util/message_differencer.h>
#include <regex.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <memory>

#include "bench/database.h"
#include "bench/floor.h"
#include "bench/host.h"
#include "bench/peers.h"
#include "bench/tables.h"
#include "nivex_qos/filter.h"
#include "nivex_qos/paths.h"
#include "nivex_qos/queue_stat.h"
#include "nivex_qos/sample.h"
#include "nivex_qos/tracking.h"
#include "vexlor_qos.pb.h"

namespace bench {

namespace {

using EntryPoint = uint32_t (*)(uint32_t, uint32_t, const QosTlmQueryParam*);

// One batch less a row: a whole pass in one call.
constexpr size_t kQueueBatch = 127;
constexpr size_t kDropBatch = 64;
constexpr size_t kEcnBatch = 599;
constexpr size_t kJsonBatch = 64;     // as many as a payload holds in text
constexpr size_t kWalkedRows = 2048;  // of 256 interfaces, as many as the tracking tables hold

QosTlmQueryParam request(uint32_t encodeType = QOS_TLM_ENCODE_GPB) {
    QosTlmQueryParam made{};
    made.encodeType = encodeType;
    return made;
}

QosTlmQueryParam withCondition(const char* field, const char* value) {
    QosTlmQueryParam made = request();
    made.conditionNum = 1;
    snprintf(made.conditions[0].fieldName, sizeof made.conditions[0].fieldName, "%s", field);
    snprintf(made.conditions[0].value, sizeof made.conditions[0].value, "%s", value);
    return made;
}

QosTlmQueryParam withThresholds() {
    QosTlmQueryParam made = request();
    made.thresholdNum = 2;
    made.thresholdRelation = QOS_TLM_RELATION_AND;
    snprintf(made.thresholds[0].fieldName, sizeof made.thresholds[0].fieldName, "discard-byte-rate");
    made.thresholds[0].op = QOS_TLM_OP_GREATER_EQUAL;
    made.thresholds[1].op = QOS_TLM_OP_LESS_EQUAL;
    made.thresholds[1].value = 0xFFFFFFFF;
    return made;
}

QosTlmQueryParam suppressing() {
    QosTlmQueryParam made = request();
    made.suppressRedundant = 1;
    made.redundantPeriod = 3600;
    return made;
}

// One pass of a path, as a host samples it.
std::function<void()> pass(EntryPoint call, const QosTlmQueryParam& wanted) {
    return [call, wanted] {
        uint32_t result = QOS_TLM_RESULT_MORE;
        while (result == QOS_TLM_RESULT_MORE) {
            result = call(1, 1, &wanted);
        }
        if (result != QOS_TLM_RESULT_DONE) {
            fail("a sampling call failed");
        }
    };
}

// --- Checks before anything is timed ---

void expect(bool holds, const std::string& what) {
    if (!holds) {
        fail("the sides disagree: " + what);
    }
}

// The same bytes from the same calls of the host.
void expectSameCalls(const std::function<void()>& subject, const std::function<void()>& floor) {
    floor();  // afterwards it gives back blocks of a pass before, as the plug-in does
    subject();
    const Capture left = capture(subject);
    const Capture right = capture(floor);
    expect(left.payloads.size() == 1 && left.payloads == right.payloads, "payload bytes");
    expect(left.recordCounts == right.recordCounts, "record count");
    expect(left.calls == right.calls,
           fmt::format("calls of the host: {} blocks of {} bytes, {} copies of {} bytes against {} of {}, {} of {}",
                       left.calls.blocks, left.calls.blockBytes, left.calls.copies, left.calls.copiedBytes,
                       right.calls.blocks, right.calls.blockBytes, right.calls.copies, right.calls.copiedBytes));
}

void expectSameBytes(const std::function<void()>& subject, const std::function<void()>& peer) {
    const Capture left = capture(subject);
    const Capture right = capture(peer);
    expect(left.payloads.size() == 1 && left.payloads == right.payloads, "payload bytes");
}

// The same values; an encoder may leave out fields that are 0.
void expectSameMessage(const std::function<void()>& subject, const std::function<void()>& peer) {
    const Capture left = capture(subject);
    const Capture right = capture(peer);
    vexlor_qos::Sample leftMessage;
    vexlor_qos::Sample rightMessage;
    expect(left.payloads.size() == 1 && right.payloads.size() == 1 && leftMessage.ParseFromString(left.payloads[0]) &&
               rightMessage.ParseFromString(right.payloads[0]) &&
               google::protobuf::util::MessageDifferencer::Equals(leftMessage, rightMessage),
           "values of the messages");
}

uint32_t recordsSent(const std::function<void()>& run) {
    uint32_t sum = 0;
    for (const uint32_t count : capture(run).recordCounts) {
        sum += count;
    }
    return sum;
}

// --- The comparisons ---

template <class View>
Comparison againstFloor(const char* name, EntryPoint call, Numbers numbers, std::function<void()> fill, size_t rows,
                        double goal) {
    const auto floor = std::make_shared<Floor<View>>(numbers);
    const auto subject = pass(call, request());
    const auto peer = [floor] { floor->run(); };
    return {name,
            [=] {
                fill();
                expectSameCalls(subject, peer);
            },
            {"GPB pass", subject},
            {"floor", peer},
            static_cast<double>(rows),
            goal};
}

Comparison againstEncoder(const char* name, void (*peer)(), bool sameBytes, std::optional<double> goal = {}) {
    const auto subject = pass(PLUGIN(QOS_TLM_QueryQueueStat), request());
    return {fmt::format("queue statistics, GPB, against {}", name),
            [=] {
                fillQueueStat(kQueueBatch);
                (sameBytes ? expectSameBytes : expectSameMessage)(subject, peer);
            },
            {"GPB pass", subject},
            {name, peer},
            kQueueBatch,
            goal};
}

Comparison againstJson(const char* name, void (*peer)(), std::optional<double> goal = {}) {
    const auto subject = pass(PLUGIN(QOS_TLM_QueryQueueStat), request(QOS_TLM_ENCODE_JSON));
    return {fmt::format("queue statistics, JSON, against {}", name),
            [=] {
                fillQueueStat(kJsonBatch);
                expectSameBytes(subject, peer);
            },
            {"JSON pass", subject},
            {name, peer},
            kJsonBatch,
            goal};
}

// How far the floor itself is from an encoder that needs neither tree nor bounded copies.
Comparison floorAgainstProtobuf() {
    const auto floor = std::make_shared<Floor<view::queue_stat>>(Numbers{13, 1});
    const auto subject = [floor] { floor->run(); };
    return {"(the floor itself, queue statistics, against protobuf C++)",
            [=] {
                fillQueueStat(kQueueBatch);
                expectSameMessage(subject, peers::protobuf);
            },
            {"floor", subject},
            {"protobuf C++", peers::protobuf},
            kQueueBatch};
}

// The bytes of a batch that is there already, moved into a sample buffer and uploaded.
Comparison againstCopy() {
    const auto subject = pass(PLUGIN(QOS_TLM_QueryQueueStat), request());
    const auto payload = std::make_shared<std::string>();
    return {"queue statistics, GPB, against memcpy of the finished payload",
            [=] {
                fillQueueStat(kQueueBatch);
                *payload = capture(subject).payloads.at(0);
            },
            {"GPB pass", subject},
            {"memcpy",
             [=] {
                 const SampleBuffer sample;
                 memcpy(sample->data, payload->data(), payload->size());
                 sample.upload();
             }},
            kQueueBatch};
}

// What the C library makes of a pattern, compiled anew for each name.
bool matchesByRegex(const std::string& pattern, const char* name) {
    std::string expression = "^";
    for (const char character : pattern) {
        expression += character == '*' ? std::string("([0-9]*)") : std::string(1, character);
    }
    expression += '$';
    regex_t compiled;
    if (regcomp(&compiled, expression.c_str(), REG_EXTENDED | REG_ICASE) != 0) {
        return false;
    }
    regmatch_t match;
    const bool matches = regexec(&compiled, name, 1, &match, 0) == 0;
    regfree(&compiled);
    return matches;
}

Comparison namePatterns(const char* title, const std::vector<std::string>& patterns, std::optional<double> goal = {}) {
    static const std::vector<std::string> names{"GE1/0/0", "GE1/0/17", "ge12/0/3", "Eth-Trunk12.100", "GE1/0/170"};
    const auto match = PLUGIN(QOS_TLM_CheckIfName);
    const auto eachPair = [=](const auto& test) {
        uint32_t matches = 0;
        for (const std::string& pattern : patterns) {
            for (const std::string& name : names) {
                matches += test(pattern, name.c_str()) ? 1U : 0U;
            }
        }
        return matches;
    };
    const auto byPlugin = [=](const std::string& pattern, const char* name) {
        return match(pattern.c_str(), name, 32) != 0;
    };
    const auto count = [=](const auto& test) {
        if (eachPair(test) == 0) {
            fail("no name matches");
        }
    };
    return {title,
            [=] {
                eachPair([&](const std::string& pattern, const char* name) {
                    expect(byPlugin(pattern, name) == matchesByRegex(pattern, name), pattern + " on " + name);
                    return true;
                });
            },
            {"interface-name test", [=] { count(byPlugin); }},
            {"regular expression", [=] { count(matchesByRegex); }},
            static_cast<double>(patterns.size() * names.size()),
            goal};
}

Comparison withoutMatch(const char* name, const char* field, const char* value, double goal) {
    const auto subject = pass(PLUGIN(QOS_TLM_QueryQueueStat), withCondition(field, value));
    return {name,
            [=] {
                fillQueueStat(kWalkedRows);
                expect(recordsSent(subject) == 0, "a row meets the condition");
            },
            {"pass", subject},
            {"reads alone", [] { readAlone<view::queue_stat>(); }},
            kWalkedRows,
            goal};
}

Comparison unchangedRows() {
    const auto subject = pass(PLUGIN(QOS_TLM_QueryQueueStat), suppressing());
    return {"change suppression of unchanged rows against reads alone",
            [=] {
                fillQueueStat(kWalkedRows);
                subject();  // each row is new once, then over its period once
                subject();
                expect(recordsSent(subject) == 0, "a row counts as changed");
            },
            {"pass", subject},
            {"reads alone", [] { readAlone<view::queue_stat>(); }},
            kWalkedRows,
            1.6};
}

// Fills the tracking tables with the interfaces of no row.
void fillTracking() {
    const auto isRedundant = PLUGIN(QOS_TLM_IsRedundantData);
    const auto isOverPeriod = PLUGIN(QOS_TLM_IsOverPeriod);
    for (uint32_t key = 1; key <= QOS_TLM_TRACK_SLOT_NUM; ++key) {
        isRedundant(key, 0, 1, QOS_TLM_FAMILY_QUEUE);
        isOverPeriod(key, 0, QOS_TLM_FAMILY_QUEUE, 1);
    }
}

Comparison fullTracking() {
    const auto subject = pass(PLUGIN(QOS_TLM_QueryQueueStat), suppressing());
    const auto peer = pass(PLUGIN(QOS_TLM_QueryQueueStat), request());
    return {"change suppression with full tables against no filter",
            [=] {
                fillTracking();
                fillQueueStat(kQueueBatch, 5000);
                expectSameBytes(subject, peer);
                expect(recordsSent(subject) == kQueueBatch, "a row of no slot is left out");
            },
            {"suppressing pass", subject},
            {"pass", peer},
            kQueueBatch,
            1.10};
}

Comparison thresholds() {
    const auto subject = pass(PLUGIN(QOS_TLM_QueryQueueStat), withThresholds());
    const auto peer = pass(PLUGIN(QOS_TLM_QueryQueueStat), request());
    return {"two thresholds against no filter",
            [=] {
                fillQueueStat(kQueueBatch);
                expectSameBytes(subject, peer);
                expect(recordsSent(subject) == kQueueBatch, "a row is left out");
            },
            {"pass with thresholds", subject},
            {"pass", peer},
            kQueueBatch,
            1.08};
}

// Every call of a pass reads the rows of the calls before it again.
Comparison longPass(size_t rows, double goal) {
    constexpr size_t kLimit = QOS_TLM_BATCH_LIMIT_QUEUE;
    const auto subject = pass(PLUGIN(QOS_TLM_QueryQueueStat), request());
    double reads = 0;
    for (size_t end = kLimit; end < rows + kLimit; end += kLimit) {
        reads += static_cast<double>(std::min(end, rows));
    }
    return {fmt::format("whole pass over {} rows against its reads alone", rows),
            [=] {
                fillQueueStat(rows);
                expect(recordsSent(subject) == rows, "not every row is sent once");
            },
            {"pass", subject},
            {"reads alone",
             [=] {
                 for (size_t end = kLimit; end < rows + kLimit; end += kLimit) {
                     readAlone<view::queue_stat>(std::min(end, rows));
                 }
             }},
            reads,
            goal};
}

// The last call of a pass over many rows.
Comparison lateCall() {
    constexpr size_t kRows = 64000;
    const auto call = PLUGIN(QOS_TLM_QueryQueueStat);
    const auto insert = PLUGIN(QOS_HashInsert);
    const auto find = PLUGIN(QOS_HashFind);
    const auto release = PLUGIN(QOS_HashRelease);
    uint32_t* const continues = PLUGIN(g_qosTlmQueStatQueryToEnd);
    const auto wanted = request();
    const auto fillSent = [=] {
        release(QOS_TLM_FAMILY_QUEUE);
        for (size_t i = 0; i < kRows - kQueueBatch; ++i) {
            if (i == kRows - 2 * kQueueBatch) {  // the call before it has asked for the keys sent until then
                for (uint32_t bucket = 0; bucket < QOS_TLM_HASH_BUCKET_NUM; ++bucket) {
                    find(QOS_TLM_FAMILY_QUEUE, bucket);
                }
            }
            const qosdb::row::queue_stat& row = tables.queue_stat[i];
            insert(QOS_TLM_FAMILY_QUEUE, row.ifIndex * 8 + row.queueId);
        }
    };
    const auto prepare = [=] {
        fillSent();
        *continues = 1;
    };
    const auto subject = [=] { call(1, 1, &wanted); };
    const auto floor = std::make_shared<Floor<view::queue_stat>>(Numbers{13, 1});
    const auto peer = [=] { floor->run(kRows - kQueueBatch); };
    return {"one late call at 64,000 rows against the reads of all rows and one batch",
            [=] {
                fillQueueStat(kRows);
                prepare();
                expectSameBytes(subject, peer);
            },
            {"late call", subject, prepare},
            {"reads and one batch", peer, fillSent},  // from the same state of the caches,
            kRows,
            1.3};
}

}  // namespace

std::vector<Comparison> comparisons() {
    const auto queue = PLUGIN(QOS_TLM_QueryQueueStat);
    std::vector<Comparison> list;
    list.push_back(againstFloor<view::queue_stat>(
        "queue statistics, GPB, against the floor", queue, {13, 1}, [] { fillQueueStat(kQueueBatch); }, kQueueBatch,
        1.25));
    list.push_back(againstFloor<view::queue_drop_stat>(
        "queue drops, GPB, against the floor", PLUGIN(QOS_TLM_QueryQueueDropStat), {52, 2},
        [] { fillQueueDropStat(kDropBatch); }, kDropBatch, 1.18));
    list.push_back(againstFloor<view::port_ecn_stat>(
        "port ECN, GPB, against the floor", PLUGIN(QOS_TLM_QueryPortEcnStat), {55, 2},
        [] { fillPortEcnStat(kEcnBatch); }, kEcnBatch, 1.40));
    list.push_back(againstEncoder("protobuf C++", peers::protobuf, false, 3.1));
    list.push_back(floorAgainstProtobuf());
    list.push_back(againstEncoder("protozero", peers::protozero, true));
    list.push_back(againstEncoder("nanopb", peers::nanopb, false));
    list.push_back(againstCopy());
    list.push_back(againstJson("cJSON without a tree", peers::cJson, 1.10));
    list.push_back(againstJson("RapidJSON", peers::rapidJson));
    list.push_back(namePatterns("interface-name test of a record against regcomp, regexec and regfree",
                                {"GE1/0/*", "ge1/0/17", "GE*/0/*", "Eth-Trunk*.*", "GE1/0/1."}, 0.01));
    list.push_back(namePatterns("the same test for patterns with operators",
                                {"(GE|Eth-Trunk)*.*", "ge1/0/[13]7?", "(ge1/0/.+|Eth-Trunk.+)", "GE1/0/17{1,2}"},
                                0.08));
    list.push_back(
        withoutMatch("name pattern that no row meets, against reads alone", "interface-name", "GE9/9/*", 1.6));
    list.push_back(unchangedRows());
    list.push_back(fullTracking());
    list.push_back(longPass(4000, 2.3));
    list.push_back(longPass(16000, 1.6));
    list.push_back(longPass(64000, 1.4));
    list.push_back(lateCall());
    list.push_back(thresholds());
    std::ranges::move(databaseComparisons(), std::back_inserter(list));
    return list;
}

}  // namespace bench
