// Every platform call of a pass, made to fail once: the message and result that it must have, and nothing left behind.
#include <algorithm>
#include <cstring>
#include <fstream>
#include <map>
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

// What must come of a sampling call in which one platform call failed.
struct Outcome {
    Log log;
    uint32_t result = QOS_TLM_RESULT_FAILED;
    size_t keys = 0;  // marked as sent
    bool uploads = false;
    size_t count = 0;  // of records, in the header
    std::vector<json> entries{};
};

std::string line(uint32_t status, uint32_t site) {
    return encodeLine(status, 0, site);
}

// A line of the status log with 0 as its value.
std::string withoutValue(std::string message) {
    const size_t from = message.find("value=");
    return from == std::string::npos ? message : message.replace(from + 6, message.find(',', from) - from - 6, "0");
}

// The sampling call over a table, in order: at each platform call, what must come of its failure.
class Script {
  public:
    Script(const Family& family, uint32_t encodeType, const Variant& variant, const Rows& passing)
        : family_(family), json_(encodeType == QOS_TLM_ENCODE_JSON), variant_(variant) {
        keys_ = variant.resumes ? 1 : 0;
        std::copy_if(passing.begin(), passing.end(), std::back_inserter(sent_),
                     [&](size_t row) { return !variant.resumes || row != kSentRow; });
        start();
        for (size_t row = 0; row < rowCount(family_); ++row) {
            oneRow(row);
        }
        at("db_root_iterator_next", failed({}));
        clock();
        json_ ? asJson() : asGpb();
        clock();
        at("memcpy_s", lost({"[Tlm SetSampleData] memcpy error, ret=75."}));
        at("sampleDataUpload", {{"[Tlm QueryFunc] upload sample data failed."}, QOS_TLM_RESULT_FAILED, keys_});
    }

    const Rows& sentRows() const { return sent_; }
    const std::map<std::string, std::vector<Outcome>>& places() const { return places_; }
    Outcome sent(const Log& log, const Rows& rows) const {
        Outcome outcome{log, QOS_TLM_RESULT_DONE, rows.size() + (variant_.resumes ? 1u : 0u), true, rows.size()};
        for (const size_t row : rows) {
            outcome.entries.push_back(entryOf(family_, row));
        }
        return outcome;
    }

  private:
    void at(const std::string& function, const Outcome& outcome) { places_[function].push_back(outcome); }
    Outcome failed(Log log) const {
        log.emplace_back(kQueryFailed);
        return {log, QOS_TLM_RESULT_FAILED, keys_};
    }
    // Counted as sent all the same.
    Outcome lost(const Log& log) const {
        return {log, QOS_TLM_RESULT_DONE, sent_.size() + (variant_.resumes ? 1u : 0u)};
    }
    // The header counts more than the payload holds.
    Outcome sentWithout(const Log& log, std::optional<size_t> entry) const {
        Outcome outcome = sent(log, sent_);
        outcome.entries.erase(
            outcome.entries.begin() + static_cast<std::ptrdiff_t>(entry.value_or(0)),
            entry ? outcome.entries.begin() + static_cast<std::ptrdiff_t>(*entry) + 1 : outcome.entries.end());
        return outcome;
    }
    Rows rowsWith(size_t row) const {
        Rows rows = sent_;
        rows.insert(std::upper_bound(rows.begin(), rows.end(), row), row);
        return rows;
    }
    bool isSent(size_t row) const { return std::find(sent_.begin(), sent_.end(), row) != sent_.end(); }
    // Kind of a number by its column; the second row holds the largest ones.
    std::string addOf(const Leaf& leaf) const {
        if (leaf.column == "is_pfc_dynamic") {
            return "[TLM AddChildBool] malloc failed.";
        }
        const bool wide = leaf.column[0] != '=' && valueOf(family_, 1, leaf.column) > UINT32_MAX;
        return std::string("[TLM AddChildUint") + (wide ? "64" : "32") + "] malloc failed.";
    }

    void start() {
        at("NIVEX_AllocBuff", {{"[Tlm QueryFunc] sampleData alloc buff failed."}, QOS_TLM_RESULT_FAILED, keys_});
        at("memset_s", {{}, QOS_TLM_RESULT_FAILED, keys_});
        at("db_create_qos_tlm_" + std::string(family_.table) + "_obj", failed({family_.createObject + "75."}));
        at("db_create_root_iter", failed({family_.createIterator + "75."}));
        for (const char* node : json_ ? std::vector<const char*>{"root", "node1", "node2", "node3"}
                                      : std::vector<const char*>{"node1", "node2"}) {
            at("NIVEX_AllocBuff", failed({(json_ ? family_.jsonStart : family_.gpbStart) + node + " failed."}));
        }
    }
    void oneRow(size_t row) {
        at("db_root_iterator_next", failed({}));
        for (const std::string& column : family_.columns) {
            at("db_get_qos_tlm_" + std::string(family_.table) + "_" + column,
               failed({family_.columnMessage(column, kCode)}));
        }
        for (const std::string& column : family_.columns) {
            if (valueOf(family_, row, column).is_string()) {
                at("strcpy_s", failed({family_.copyText + "75."}));
            }
        }
        if (family_.isMonitor()) {
            times(row);
        }
        if (family_.index == QOS_TLM_FAMILY_TM_BUF) {
            slot(row);
        }
        if (!isSent(row)) {
            return;
        }
        at("NIVEX_AllocBuff", failed({family_.entryNode}));
        for (const Leaf& leaf : family_.leaves) {
            if (!entryOf(family_, row)[leaf.name].is_string()) {
                at("NIVEX_AllocBuff", failed({addOf(leaf)}));
                continue;
            }
            // Without its text the leaf makes the whole sample invalid.
            const auto invalid = [&](const std::string& first) {
                return lost({first, "[Tlm Encoding] validate tree failed, ret=1.", line(1, 530), kNoData});
            };
            at("NIVEX_AllocBuff", failed({"[TLM AddChildString] malloc failed."}));
            at("NIVEX_AllocBuff", invalid(line(2, 423)));
            at("strcpy_s", invalid(line(6, 429)));
        }
        Outcome unmarked = sent({"[Tlm HashInsert] alloc buff failed."}, sent_);
        --unmarked.keys;
        at("NIVEX_AllocBuff", unmarked);
        ++keys_;
    }
    void times(size_t row) {
        for (const auto& [leaf, moment] :
             {std::pair("time", "end"), std::pair("burst-start-time", "start"), std::pair("burst-peak-time", "peak")}) {
            Outcome undated = sent({}, sent_);
            for (size_t i = 0; i < sent_.size(); ++i) {
                if (sent_[i] == row) {
                    auto& text = undated.entries[i][leaf].get_ref<std::string&>();
                    text.replace(0, 19, "0000-00-00 00:00:00");
                }
            }
            at("KAT_SystimeSec2Time", undated);
            at("sprintf_s", failed({"DATETIME to String failed.", std::string("[Tlm ReadBufMonitorStatField] read ") +
                                                                      moment + "-time failed, ret=1."}));
        }
    }
    // A slot of two numbers is converted for each use.
    void slot(size_t row) {
        if (valueOf(family_, row, "slotId").get<std::string>().find('/') == std::string::npos) {
            return;
        }
        for (const char* function : {"sscanf_s", "DEVM_DB_GetGlobalSlotIdByLocalSlotId"}) {
            const auto message = [](const std::string& step) {
                return Log{"[Tlm " + step + "] parse string slot to num slot failed."};
            };
            if (!isSent(row)) {  // by now it counts as not sent before
                at(function, sent(message("IsSentTmBufStat"), rowsWith(row)));
                continue;
            }
            at(function, sent(message("IsSentTmBufStat"), sent_));
            if (variant_.suppresses) {
                at(function, sent(message("IsRedundantTmBufStat"), sent_));
            } else if (variant_.waits) {
                Rows others = sent_;
                others.erase(std::find(others.begin(), others.end(), row));
                at(function, sent(message("IsSelfDefEvtTmBufStat"), others));
            }
            Outcome uncounted = sent(message("IsTmBufStatRecordCntOver"), sent_);
            --uncounted.count;
            --uncounted.keys;
            at(function, uncounted);
        }
    }
    void clock() {
        for (int reading = 0; reading < 2; ++reading) {
            at("gettimeofday", sent({"[Tlm GetSystimeSecUs] get time of day failed, ret=4294967295."}, sent_));
        }
    }
    // The writer leaves out what it cannot write, and goes on.
    void asGpb() {
        const auto copy = [&](uint32_t site, const Outcome& outcome) {
            Outcome logged = outcome;
            logged.log = site == 228 ? Log{line(6, 228)} : Log{line(6, 179), line(4, site)};
            at("memcpy_s", logged);
        };
        const auto scratch = [&](std::optional<size_t> entry) {
            at("NIVEX_AllocBuff", sentWithout({line(2, 261)}, entry));
        };
        at("NIVEX_AllocBuff", lost({"[TLM EncodeProto] malloc failed.", line(2, 290), kNoData}));
        scratch({});
        scratch({});
        for (size_t entry = 0; entry < sent_.size(); ++entry) {
            scratch(entry);
            const Outcome whole = sent({}, sent_);
            const auto leaves = entryOf(family_, sent_[entry]);
            for (const auto& [name, value] : leaves.items()) {
                Outcome lacking = whole;
                lacking.entries[entry][name] = value.is_string()    ? json("")
                                               : value.is_boolean() ? json(false)
                                                                    : json(0);
                for (const uint32_t site :
                     value.is_string() ? std::vector<uint32_t>{211, 217, 228} : std::vector<uint32_t>{195, 200}) {
                    copy(site, lacking);
                }
            }
            for (const uint32_t site : {211u, 217u, 228u}) {
                copy(site, sentWithout({}, entry));
            }
        }
        for (const uint32_t site : {211u, 217u, 228u, 211u, 217u, 228u}) {  // of the list, then of all
            copy(site, sentWithout({}, {}));
        }
    }
    // The writer gives up.
    void asJson() {
        const auto gone = [&](const char* function, uint32_t site) {
            at(function, lost({line(3, site), "[Tlm EncodeJson] wrap json failed.", line(3, 472), kNoData}));
        };
        at("cJSON_CreateObject", lost({"[Tlm EncodeJson] create json object failed.", line(3, 465), kNoData}));
        for (int level = 0; level < 3; ++level) {
            gone("cJSON_CreateObject", 368);
        }
        gone("cJSON_CreateArray", 400);
        for (const size_t row : sent_) {
            gone("cJSON_CreateObject", 388);
            for (const auto& value : entryOf(family_, row)) {
                gone(value.is_string()    ? "cJSON_CreateString"
                     : value.is_boolean() ? "cJSON_CreateBool"
                                          : "cJSON_CreateNumber",
                     325);
            }
        }
        at("cJSON_PrintUnformatted", lost({kNoData}));
        at("NIVEX_AllocBuff", lost({line(2, 423), kNoData}));
        at("strcpy_s", lost({line(6, 429), kNoData}));
    }

    const Family& family_;
    const bool json_;
    const Variant variant_;
    Rows sent_;
    size_t keys_;
    std::map<std::string, std::vector<Outcome>> places_;
};

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
        script_ = std::make_unique<Script>(family_, encodeType, variant, passing_);
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
        platform.allocSizes.clear();
    }
    uint32_t call() {
        platform.timesOfDay.assign(4, {1000, 5});
        return callEntryPoint(family_, request_);
    }
    uint32_t& flag() const { return *pluginSymbolAs<uint32_t*>(family_.flag); }

    void expectOutcome(const Outcome& expected, uint32_t result) {
        EXPECT_EQ(result, expected.result);
        Log log = fake::takeLog();
        std::transform(log.begin(), log.end(), log.begin(), withoutValue);
        EXPECT_EQ(log, expected.log);
        EXPECT_EQ(fake::liveBlocks(), expected.keys);
        EXPECT_EQ(fake::liveObjects(), 0u);
        EXPECT_EQ(fake::liveCjsonBlocks(), 0u);
        ASSERT_EQ(platform.uploads.size(), expected.uploads ? 1u : 0u);
        if (expected.uploads) {
            const auto& sample = platform.uploads[0].sample;
            EXPECT_EQ(sample.recordCount, expected.count);
            // A sample whose outer nodes could not be written is empty, or an empty message in the first of them.
            const bool bare = expected.entries.empty() && sample.dataLen <= 2;
            const auto entries = bare ? std::vector<json>() : takeEntries(family_, plain_.encodeType, false);
            ASSERT_EQ(entries.size(), expected.entries.size());
            for (size_t i = 0; i < entries.size(); ++i) {
                EXPECT_TRUE(sameJson(entries[i], expected.entries[i]))
                    << entries[i] << " is not " << expected.entries[i];
            }
        }
    }
    void failOnce(const std::string& function, uint32_t nth, const Outcome& expected) {
        SCOPED_TRACE(function + " " + std::to_string(nth));
        rewind();
        fake::failCall(function, nth, kCode);
        const uint32_t result = call();
        EXPECT_TRUE(fake::hasFailed(function)) << "there is no such call";
        expectOutcome(expected, result);
        const bool opened = !fake::callsWith("db_root_iterator_next").empty();
        EXPECT_EQ(flag(), !opened && variant_.resumes ? 1u : 0u);
        fake::failNothing();
        flag() = 0;
        EXPECT_EQ(deliveredRows(family_, plain_), passing_) << "the next pass";
    }
    // The calls of a sampling call in which nothing fails, each with its number.
    std::map<std::string, size_t> record() {
        rewind();
        EXPECT_EQ(call(), QOS_TLM_RESULT_DONE);
        std::map<std::string, size_t> calls;
        for (const char* function : platform.calls) {
            ++calls[function];
        }
        expectOutcome(script_->sent({}, script_->sentRows()), QOS_TLM_RESULT_DONE);
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
    std::unique_ptr<Script> script_;
    uint32_t site_ = 1000;
};

class EachFamilyFailureInjectionTest : public FailureInjectionTest,
                                       public testing::WithParamInterface<std::tuple<Family, uint32_t>> {};

TEST_P(EachFamilyFailureInjectionTest, EveryCallOfAPassFailsOnce) {
    const auto& [family, encodeType] = GetParam();
    size_t failures = 0;
    forEachPass(family, encodeType, [&](const auto& recorded) {
        for (const auto& [function, calls] : recorded) {
            EXPECT_TRUE(!canFail(function) || script_->places().count(function) == 1)
                << function << " is not known here";
        }
        for (const auto& [function, outcomes] : script_->places()) {
            const auto calls = recorded.find(function);
            EXPECT_EQ(calls == recorded.end() ? 0 : calls->second, outcomes.size()) << function;
            for (uint32_t nth = 1; nth <= outcomes.size() && !HasFailure(); ++nth, ++failures) {
                failOnce(function, nth, outcomes[nth - 1]);
            }
        }
    });
    EXPECT_GT(failures, 100u);
}

std::string nameOf(const testing::TestParamInfo<std::tuple<Family, uint32_t>>& test) {
    return std::string(std::get<0>(test.param).tag) + (std::get<1>(test.param) == 0 ? "_Gpb" : "_Json");
}

INSTANTIATE_TEST_SUITE_P(Families, EachFamilyFailureInjectionTest,
                         testing::Combine(testing::ValuesIn(kFamilies), testing::Values(0u, 1u)), nameOf);

// Of all that the plug-in imports, what a pass calls is made to fail above or is said not to be able to.
TEST_F(FailureInjectionTest, NoPlatformFunctionIsLeftOut) {
    std::set<std::string> failing;
    std::set<std::string> called;
    size_t failures = 0;
    for (const Family& family : kFamilies) {
        for (const uint32_t encodeType : {0u, 1u}) {
            forEachPass(family, encodeType, [&](const auto& recorded) {
                for (const auto& [function, calls] : recorded) {
                    called.insert(function);
                    if (canFail(function)) {
                        failing.insert(function);
                        failures += calls;
                    }
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
    EXPECT_GT(failing.size(), 100u);
    EXPECT_GT(failures, 4000u);
    printf("%zu functions fail in %zu calls; %zu more cannot\n", failing.size(), failures,
           called.size() - failing.size());
}

}  // namespace
