// Every platform call of a pass, made to fail once: the message and result that it must have, and nothing left behind.
#include <algorithm>
#include <cstring>
#include <fstream>
#include <map>
#include <numeric>
#include <set>
#include <sstream>

#include "nivex_qos/encode.h"
#include "plugin/families.h"

using fake::platform;
using nlohmann::json;

namespace {

using Log = std::vector<std::string>;
using Rows = std::vector<size_t>;

constexpr uint32_t kCode = 75;
constexpr uint32_t kPeriod = 10;
constexpr size_t kSentRow = 1;  // by the call before the one that continues a pass
constexpr const char* kQueryFailed = "[Tlm QueryFunc] query data failed.";
constexpr const char* kNoData = "[Tlm EncodeSampleData] sampleData data is null.";

// They answer nothing, so they cannot tell of a failure; cJSON's two that add could, but are used as if they did not.
const std::set<std::string> kCannotFail = {
    "NIVEX_FreeBuff",
    "KAT_SystimeGet",
    "KAT_SystimeMsSince1970",
    "KAT_SystimeSecSince1970",
    "cJSON_AddItemToObject",
    "cJSON_AddItemToArray",
    "cJSON_free",
    "cJSON_Delete",
};
bool canFail(const std::string& function) {
    return kCannotFail.count(function) == 0 && function.rfind("db_release_", 0) != 0;
}

struct Variant {
    bool resumes;
    bool suppresses;
    bool waits;  // for a period
};

std::vector<Variant> variantsOf(const Family& family) {
    std::vector<Variant> variants{{false, false, false}, {true, !family.isMonitor(), false}};
    if (family.index == QOS_TLM_FAMILY_QUEUE || family.index == QOS_TLM_FAMILY_TM_BUF) {
        variants.push_back({false, false, true});
    }
    return variants;
}

// What may come of a sampling call in which one platform call failed.
enum class Effect {
    fails,    // result 2, nothing uploaded
    loses,    // the batch, whose records count as sent
    damages,  // one record, or what is around them all: it lacks what could not be written
    sends,    // whole records
};

struct Failure {
    std::string function;
    Effect effect;
    Log log;
};

std::string line(uint32_t status, uint32_t site) {
    return encodeLine(status, 0, site);
}

// A line of the status log with 0 as its value.
std::string withoutValue(std::string message) {
    const size_t from = message.find("value=");
    return from == std::string::npos ? message : message.replace(from + 6, message.find(',', from) - from - 6, "0");
}

// The failures of a pass: those of a function in the order in which its calls come to them.
std::vector<Failure> failuresOf(const Family& family, bool json, const Variant& variant) {
    std::vector<Failure> all;
    const auto add = [&](const std::string& function, Effect effect, Log log, const char* last = nullptr) {
        if (last != nullptr) {
            log.emplace_back(last);
        }
        all.push_back({function, effect, log});
    };
    const auto fails = [&](const std::string& function, const Log& log) {
        add(function, Effect::fails, log, kQueryFailed);
    };
    const auto loses = [&](const std::string& function, const Log& log) { add(function, Effect::loses, log, kNoData); };
    const auto damages = [&](const std::string& function, const Log& log) { add(function, Effect::damages, log); };
    const auto sends = [&](const std::string& function, const Log& log) { add(function, Effect::sends, log); };
    const std::string alloc = "NIVEX_AllocBuff";
    const std::string table = "qos_tlm_" + family.table;

    add(alloc, Effect::fails, {"[Tlm QueryFunc] sampleData alloc buff failed."});
    add("memset_s", Effect::fails, {});
    fails("db_create_" + table + "_obj", {family.createObject + "75."});
    fails("db_create_root_iter", {family.createIterator + "75."});
    for (const char* node : json ? std::vector<const char*>{"root", "node1", "node2", "node3"}
                                 : std::vector<const char*>{"node1", "node2"}) {
        fails(alloc, {(json ? family.jsonStart : family.gpbStart) + node + " failed."});
    }
    fails("db_root_iterator_next", {});
    for (const std::string& column : family.columns) {
        fails("db_get_" + table + "_" + column, {family.columnMessage(column, kCode)});
    }
    fails("strcpy_s", {family.copyText + "75."});
    if (family.isMonitor()) {
        damages("KAT_SystimeSec2Time", {});
        for (const std::string moment : {"end", "start", "peak"}) {
            fails("sprintf_s", {"DATETIME to String failed.",
                                "[Tlm ReadBufMonitorStatField] read " + moment + "-time failed, ret=1."});
        }
    }
    if (family.index == QOS_TLM_FAMILY_TM_BUF) {  // a slot of two numbers is converted for each use
        const char* const period = variant.waits ? "IsSelfDefEvtTmBufStat" : nullptr;
        const char* const count = variant.resumes ? nullptr : "IsTmBufStatRecordCntOver";
        for (const char* step : {"IsSentTmBufStat", period, count}) {
            for (const char* function : {"sscanf_s", "DEVM_DB_GetGlobalSlotIdByLocalSlotId"}) {
                if (step != nullptr) {
                    sends(function, {std::string("[Tlm ") + step + "] parse string slot to num slot failed."});
                }
            }
        }
    }
    fails(alloc, {family.entryNode});
    const auto entry = entryOf(family, 1);  // with the largest numbers
    for (const Leaf& leaf : family.leaves) {
        const bool wide = leaf.column[0] != '=' && entry[leaf.name] > UINT32_MAX;
        const std::string kind = entry[leaf.name].is_string()    ? "String"
                                 : entry[leaf.name].is_boolean() ? "Bool"
                                 : wide                          ? "Uint64"
                                                                 : "Uint32";
        fails(alloc, {"[TLM AddChild" + kind + "] malloc failed."});
        if (kind == "String") {  // without its text the leaf makes the whole sample invalid
            const std::string invalid = "[Tlm Encoding] validate tree failed, ret=1.";
            loses(alloc, {line(2, 423), invalid, line(1, 530)});
            loses("strcpy_s", {line(6, 429), invalid, line(1, 530)});
        }
    }
    sends(alloc, {"[Tlm HashInsert] alloc buff failed."});
    sends("gettimeofday", {"[Tlm GetSystimeSecUs] get time of day failed, ret=4294967295."});
    if (json) {
        loses("cJSON_CreateObject", {"[Tlm EncodeJson] create json object failed.", line(3, 465)});
        const auto unwrapped = [&](const std::string& kind, uint32_t site) {
            loses("cJSON_Create" + kind, {line(3, site), "[Tlm EncodeJson] wrap json failed.", line(3, 472)});
        };
        unwrapped("Object", 368);
        unwrapped("Array", 400);
        unwrapped("Object", 388);
        for (const auto& value : entry) {
            unwrapped(value.is_string() ? "String" : value.is_boolean() ? "Bool" : "Number", 325);
        }
        loses("cJSON_PrintUnformatted", {});
        loses(alloc, {line(2, 423)});
        loses("strcpy_s", {line(6, 429)});
    } else {
        loses(alloc, {"[TLM EncodeProto] malloc failed.", line(2, 290)});
        damages(alloc, {line(2, 261)});
        for (const uint32_t site : {211u, 217u, 228u, 195u, 200u}) {
            damages("memcpy_s", site == 228 ? Log{line(6, 228)} : Log{line(6, 179), line(4, site)});
        }
    }
    add("memcpy_s", Effect::loses, {"[Tlm SetSampleData] memcpy error, ret=75."});
    add("sampleDataUpload", Effect::fails, {"[Tlm QueryFunc] upload sample data failed."});
    return all;
}

class FailureInjectionTest : public StartedPluginTest {
  protected:
    void begin(const Family& family, uint32_t encodeType, const Variant& variant) {
        reload();
        fake::watchCjson(GLOBAL(g_qosTlmCjsonHandle), GLOBAL(g_qosTlmCjsonFunc));
        family_ = family;
        variant_ = variant;
        plain_ = {};
        plain_.encodeType = encodeType;
        setCondition(plain_, "interface-name", family.isMonitor() ? "e0" : "e*");
        request_ = plain_;
        request_.suppressRedundant = variant.suppresses;
        request_.periodCheck = variant.waits;
        request_.redundantPeriod = request_.selfDefPeriod = kPeriod;
        for (const uint32_t number : {4u, 1u, 2u}) {  // the last has another name, and so does not pass
            addRow(family_, number);
        }
        passing_ = family.index == QOS_TLM_FAMILY_TM_BUF ? Rows{0, 1, 2} : Rows{0, 1};
        sent_ = passing_.size() - variant.resumes;
        failures_ = failuresOf(family_, encodeType == QOS_TLM_ENCODE_JSON, variant);
    }
    // Everything as before the first call.
    void rewind() {
        fake::failNothing();
        CALL(QOS_HashRelease)(family_.index);
        memset(GLOBAL(g_qosTlmHisData), 0, sizeof(GLOBAL(g_qosTlmHisData)));
        memset(GLOBAL(g_qosTlmStatTime), 0, sizeof(GLOBAL(g_qosTlmStatTime)));
        for (uint32_t status = 1; status < QOS_TLM_ENC_STATUS_NUM; ++status) {
            CALL(QOS_TLM_LogEncode)(status, 0, ++site_);  // no line that follows is a repeated one
        }
        flag() = 0;
        if (variant_.waits) {
            call();
            platform.nowMs += (kPeriod + 1) * 1000;
            CALL(QOS_HashRelease)(family_.index);
        }
        flag() = variant_.resumes;
        if (variant_.resumes) {
            CALL(QOS_HashInsert)(family_.index, keyOf(family_, kSentRow)->sent);
        }
        fake::takeLog();
        platform.uploads.clear();
        platform.calls.clear();
    }
    uint32_t call() {
        platform.timesOfDay.assign(4, {1000, 5});
        return callEntryPoint(family_, request_);
    }
    uint32_t& flag() const { return *pluginSymbolAs<uint32_t*>(family_.flag); }

    void expectEffect(Effect effect, uint32_t result) {
        EXPECT_EQ(result, effect == Effect::fails ? QOS_TLM_RESULT_FAILED : QOS_TLM_RESULT_DONE);
        const size_t keys = sentKeys(family_.index).size();
        EXPECT_EQ(fake::liveBlocks(), keys);
        EXPECT_EQ(fake::liveObjects(), 0u);
        EXPECT_EQ(fake::liveCjsonBlocks(), 0u);
        const bool uploads = effect == Effect::damages || effect == Effect::sends;
        ASSERT_EQ(platform.uploads.size(), uploads ? 1u : 0u);
        const size_t all = sent_ + variant_.resumes;
        const size_t unlike = std::max(keys, all) - std::min(keys, all);  // by one that was not marked, or marked twice
        EXPECT_TRUE(effect == Effect::fails || unlike <= (effect == Effect::sends ? 1u : 0u)) << keys;
        if (!uploads) {
            return;
        }
        const size_t count = platform.uploads[0].sample.recordCount;
        const auto entries = takeEntries(family_, plain_.encodeType, false);
        const size_t others = entriesThatAreNoRow(family_, entries);
        // A slot whose conversion failed was not known as sent, or was not counted, or did not pass.
        const size_t unsure = family_.index == QOS_TLM_FAMILY_TM_BUF && effect == Effect::sends ? 1 : 0;
        EXPECT_LE(std::max(count, sent_) - std::min(count, sent_), unsure);
        if (effect == Effect::sends) {
            EXPECT_EQ(others, 0u);
            EXPECT_TRUE(entries.size() == count || entries.size() == count + unsure) << entries.size();
        } else if (!entries.empty()) {
            EXPECT_LE(others + count - entries.size(), 1u) << "more than one is damaged or missing";
        }
    }
    Log failOnce(const std::string& function, uint32_t nth) {
        SCOPED_TRACE(function + " " + std::to_string(nth));
        rewind();
        fake::failCall(function, nth, kCode);
        const uint32_t result = call();
        EXPECT_TRUE(fake::hasFailed(function)) << "there is no such call";
        Log log = fake::takeLog();
        std::transform(log.begin(), log.end(), log.begin(), withoutValue);
        const auto failure = std::find_if(failures_.begin(), failures_.end(), [&](const Failure& each) {
            return each.function == function && each.log == log;
        });
        if (failure == failures_.end()) {
            ADD_FAILURE() << testing::PrintToString(log);
            return log;
        }
        expectEffect(failure->effect, result);
        const bool opened = !fake::callsWith("db_root_iterator_next").empty();
        EXPECT_EQ(flag(), !opened && variant_.resumes ? 1u : 0u);
        fake::failNothing();
        flag() = 0;
        EXPECT_EQ(deliveredRows(family_, plain_), passing_) << "the next pass";
        return log;
    }
    // The calls of a sampling call in which nothing fails, each with its number.
    std::map<std::string, uint32_t> record() {
        rewind();
        std::map<std::string, uint32_t> calls;
        expectEffect(Effect::sends, call());
        for (const char* function : platform.calls) {
            ++calls[function];
        }
        return calls;
    }
    template <class Use>
    void forEachPass(const Family& family, uint32_t encodeType, Use use) {
        for (const Variant& variant : variantsOf(family)) {
            SCOPED_TRACE(testing::Message() << family.tag << " " << encodeType << " " << variant.resumes
                                            << variant.suppresses << variant.waits);
            begin(family, encodeType, variant);
            use(record());
        }
    }
    Family family_{};
    Variant variant_{};
    QosTlmQueryParam plain_{};
    QosTlmQueryParam request_{};
    Rows passing_;
    size_t sent_ = 0;
    std::vector<Failure> failures_;
    uint32_t site_ = 1000;
};

class EachFamilyFailureInjectionTest : public FailureInjectionTest,
                                       public testing::WithParamInterface<std::tuple<Family, uint32_t>> {};

TEST_P(EachFamilyFailureInjectionTest, EveryCallOfAPassFailsOnce) {
    const auto& [family, encodeType] = GetParam();
    const auto note = [](std::vector<Log>& logs, const Log& log) {
        if (std::find(logs.begin(), logs.end(), log) == logs.end()) {
            logs.push_back(log);
        }
    };
    forEachPass(family, encodeType, [&](const auto& recorded) {
        std::map<std::string, std::vector<Log>> expected;
        for (const Failure& failure : failures_) {
            note(expected[failure.function], failure.log);
        }
        std::map<std::string, std::vector<Log>> seen;
        for (const auto& [function, calls] : recorded) {
            for (uint32_t nth = 1; canFail(function) && nth <= calls && !HasFailure(); ++nth) {
                note(seen[function], failOnce(function, nth));
            }
        }
        for (const auto& [function, logs] : expected) {
            EXPECT_EQ(seen[function], logs) << function;
        }
        EXPECT_EQ(seen.size(), expected.size());
    });
}

INSTANTIATE_TEST_SUITE_P(Families, EachFamilyFailureInjectionTest, eachFamilyAndEncoding(), nameOf);

// Of all that the plug-in imports, what a pass calls is made to fail above or is said not to be able to.
TEST_F(FailureInjectionTest, NoPlatformFunctionIsLeftOut) {
    std::map<std::string, size_t> called;
    for (const Family& family : kFamilies) {
        for (const uint32_t encodeType : {0u, 1u}) {
            forEachPass(family, encodeType, [&](const auto& recorded) {
                for (const auto& [function, calls] : recorded) {
                    called[function] += calls;
                }
            });
        }
    }
    const std::set<std::string> notInAPass = {"COMP_GetVTable", "TARN_PAT_C2HRegisterHook", "TARN_PAT_RestoreForDLL",
                                              "IM_Agent_ReportLogById", "vsnprintf_truncated_s"};  // see StartUpTest
    std::ifstream file(NIVEX_QOS_IMPORTS_FILE);
    ASSERT_TRUE(file) << NIVEX_QOS_IMPORTS_FILE;
    for (std::string text; std::getline(file, text);) {
        std::istringstream words(text[0] == '#' ? "" : text);
        for (std::string function; words >> function;) {
            EXPECT_EQ(called.count(function) + notInAPass.count(function), 1u) << function;
        }
    }
    const auto failing =
        std::count_if(called.begin(), called.end(), [](const auto& call) { return canFail(call.first); });
    const size_t failures = std::accumulate(called.begin(), called.end(), size_t{0}, [](size_t sum, const auto& call) {
        return sum + (canFail(call.first) ? call.second : 0);
    });
    printf("%td functions fail in %zu calls\n", failing, failures);
}

}  // namespace
