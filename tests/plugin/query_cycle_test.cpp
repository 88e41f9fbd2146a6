// The query cycle that all families share, through their entry points, in both encodings.
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "plugin/families.h"

using fake::platform;
using testing::IsEmpty;

namespace {

constexpr const char* kQueryFailed = "[Tlm QueryFunc] query data failed.";

class QueryCycleTest : public StartedPluginTest, public testing::WithParamInterface<std::tuple<Family, uint32_t>> {
  protected:
    void SetUp() override {
        StartedPluginTest::SetUp();
        std::tie(family_, request_.encodeType) = GetParam();
    }
    void restart(uint32_t rows) {
        reload();
        addRows(family_, rows);
    }
    uint32_t query(const QosTlmQueryParam& request) const { return callEntryPoint(family_, request); }
    uint32_t query() const { return query(request_); }
    uint32_t& flag() const { return *pluginSymbolAs<uint32_t*>(family_.flag); }

    // What was uploaded is the rows from one number to another, in order.
    void expectRows(uint32_t from, uint32_t to) {
        const auto entries = takeEntries(family_, request_.encodeType);
        ASSERT_EQ(entries.size(), to - from);
        for (const auto& entry : entries) {
            const nlohmann::json expected = entryOf(family_, from++);
            ASSERT_TRUE(sameJson(entry, expected)) << entry << " is not " << expected;
        }
    }
    void expectFullPass(uint32_t rows) {
        platform.uploads.clear();
        runPass(family_, request_);
        expectRows(0, rows);
    }
    // Monitoring results end a JSON batch by the payload, long before the batch limit.
    bool endsEarly() const { return family_.isMonitor() && request_.encodeType == QOS_TLM_ENCODE_JSON; }
    // The records of the first batch of so many rows.
    uint32_t firstBatch(uint32_t rows) {
        if (!endsEarly()) {
            return family_.batchLimit;
        }
        restart(rows);
        EXPECT_EQ(query(), QOS_TLM_RESULT_MORE);
        return platform.uploads.at(0).sample.recordCount;
    }
    std::string dbName(const std::string& before, const std::string& after) const {
        return "db_" + before + "_qos_tlm_" + family_.table + "_" + after;
    }

    Family family_{};
    QosTlmQueryParam request_{};
};

TEST_P(QueryCycleTest, TablesArriveInBatches) {
    const uint32_t limit = family_.batchLimit;
    EXPECT_EQ(query(), QOS_TLM_RESULT_DONE) << "an empty table";
    EXPECT_THAT(platform.uploads, IsEmpty());
    EXPECT_EQ(fake::callCount("gettimeofday"), 0u) << "nothing is encoded";
    for (const uint32_t rows : {2 * limit, limit + 1, limit, limit - 1}) {
        restart(rows);
        if (endsEarly()) {
            expectFullPass(rows);
            continue;
        }
        for (int pass = 0; pass < 2; ++pass) {
            for (uint32_t from = 0; from <= rows; from += limit) {
                SCOPED_TRACE(testing::Message() << from << " of " << rows);
                const bool last = from + limit > rows;
                EXPECT_EQ(query(), last ? QOS_TLM_RESULT_DONE : QOS_TLM_RESULT_MORE);
                EXPECT_EQ(flag(), last ? 0u : 1u);
                EXPECT_LE(platform.uploads.size(), from < rows ? 1u : 0u);
                expectRows(from, last ? rows : from + limit);
            }
        }
        EXPECT_EQ(fake::liveBlocks(), rows) << "the sent keys alone are kept";
    }
}

TEST_P(QueryCycleTest, DatabaseIsReadInOrderWhateverFails) {
    addRows(family_, 1);
    EXPECT_EQ(query(), QOS_TLM_RESULT_DONE);
    std::vector<std::string> calls{dbName("create", "obj"), "db_create_root_iter", "db_root_iterator_next"};
    for (const std::string& column : family_.columns) {
        calls.push_back(dbName("get", column));
    }
    calls.insert(calls.end(), {"db_root_iterator_next", dbName("release", "object")});
    EXPECT_EQ(fake::callsWith("db_"), calls);

    calls.erase(calls.end() - 2);
    for (size_t position = 0; position < family_.columns.size(); ++position) {
        const std::string& failing = family_.columns[position];
        platform.calls.clear();
        fake::failCall(dbName("get", failing), 1, 3);
        EXPECT_EQ(query(), QOS_TLM_RESULT_FAILED);
        EXPECT_LOG(family_.columnMessage(failing, 3), kQueryFailed);
        auto expected = calls;
        if (family_.isMonitor()) {
            const auto next = expected.begin() + 3 + static_cast<std::ptrdiff_t>(position) + 1;
            expected.erase(next, expected.end() - 1);  // the first failure ends the reading
        }
        EXPECT_EQ(fake::callsWith("db_"), expected);
    }
    if (!family_.isMonitor()) {
        for (const std::string& column : family_.columns) {
            fake::failCall(dbName("get", column), 1, column == family_.columns[0] ? 0xFFFFFFFF : 10);
        }
        EXPECT_EQ(query(), QOS_TLM_RESULT_FAILED);
        const auto sum = 10 * static_cast<uint32_t>(family_.columns.size() - 1) - 1;
        EXPECT_LOG(family_.columnMessage("", sum), kQueryFailed);
    }
    expectFullPass(1);
}

TEST_P(QueryCycleTest, NullArgumentsAndNamesThatDoNotFitFail) {
    addRows(family_, 3);
    const auto fromDb = GLOBAL(g_qosTlmQueryFuncTable)[family_.index].queryFromDb;
    QosTlmSampleData sample{};
    EXPECT_EQ(fromDb(nullptr, &sample), QOS_TLM_RESULT_FAILED);
    EXPECT_EQ(fromDb(&request_, nullptr), QOS_TLM_RESULT_FAILED);
    EXPECT_LOG();

    using Name = std::pair<std::optional<std::string>, const char*>;
    for (const auto& [name, code] : {Name{std::string(32, 'n'), "34"}, Name{std::nullopt, "22"}}) {
        setText(family_, 0, family_.nameColumn, name);
        EXPECT_EQ(query(), QOS_TLM_RESULT_FAILED);
        EXPECT_LOG(family_.copyText + code + ".", kQueryFailed);
    }
}

TEST_P(QueryCycleTest, LostBatchCountsAsSentForTheRestOfThePass) {
    const uint32_t rows = family_.batchLimit + 2;
    const uint32_t limit = firstBatch(rows);
    restart(rows);
    if (endsEarly()) {
        return expectFullPass(rows);  // its batches after a lost one are not as long as the first
    }
    const uint32_t copies = fake::callCount("memcpy_s");
    fake::failCall("sampleDataUpload", 1);
    EXPECT_EQ(query(), QOS_TLM_RESULT_FAILED);
    EXPECT_LOG("[Tlm QueryFunc] upload sample data failed.");
    EXPECT_EQ(flag(), 1u) << "no new pass";
    const uint32_t intoBuffer = fake::callCount("memcpy_s") - copies;  // the last copy of a batch
    EXPECT_EQ(query(), QOS_TLM_RESULT_DONE);
    expectRows(limit, rows);

    // Nor does one that could not be encoded, or stored.
    const auto texts = std::count_if(family_.columns.begin(), family_.columns.end(), [&](const std::string& column) {
        return valueOf(family_, 0, column).is_string();
    });
    for (const auto& [function, nth] :
         {std::pair("strcpy_s", static_cast<uint32_t>(texts) + 1), {"memcpy_s", intoBuffer}}) {
        fake::failCall(function, nth, 9);
        EXPECT_EQ(query(), QOS_TLM_RESULT_DONE) << "no batch, so not \"more\" either";
        EXPECT_THAT(fake::takeLog().back(), testing::HasSubstr(function[0] == 's' ? "data is null" : "memcpy error"));
        EXPECT_THAT(platform.uploads, IsEmpty());
        EXPECT_EQ(flag(), 1u) << "and yet the pass goes on";
        EXPECT_EQ(query(), QOS_TLM_RESULT_DONE);
        expectRows(limit, rows);
    }
    expectFullPass(rows);
}

TEST_P(QueryCycleTest, NonsenseInTheRequestIsNeverReadPast) {
    addRows(family_, 3);
    // The request ends where readable memory ends.
    const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    void* pages = mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(pages, MAP_FAILED);
    auto* fence = static_cast<uint8_t*>(pages) + page;
    ASSERT_EQ(mprotect(fence, page, PROT_NONE), 0);
    auto& request = *reinterpret_cast<QosTlmQueryParam*>(fence - sizeof(QosTlmQueryParam));
    const auto spoil = [&](uint32_t conditionNum) {
        memset(&request, 0xFF, sizeof request);  // no text ends before the record does
        request.encodeType = request_.encodeType;
        request.conditionNum = conditionNum;
        request.periodCheck = 0;
    };
    for (const uint32_t conditionNum : {32u, 33u, 4'000'000'000u, 0xFFFFFFFFu}) {
        for (const char* field : {"interface-name", "service-class", "queue-id", "slot-id"}) {
            for (const uint32_t suppress : {0u, 1u}) {
                spoil(conditionNum);
                for (QosTlmCondition& condition : request.conditions) {
                    strcpy(condition.fieldName, field);
                }
                request.suppressRedundant = suppress;
                EXPECT_EQ(query(request), QOS_TLM_RESULT_DONE) << field;
            }
        }
        spoil(conditionNum);  // names that no family knows restrict nothing
        request.thresholdNum = 0;
        platform.uploads.clear();
        EXPECT_EQ(query(request), QOS_TLM_RESULT_DONE);
        expectRows(0, 3);
        fake::takeLog();
        request.encodeType = 2;
        EXPECT_EQ(query(request), QOS_TLM_RESULT_FAILED);
        EXPECT_LOG(kQueryFailed);
    }
    munmap(pages, 2 * page);
}

INSTANTIATE_TEST_SUITE_P(Families, QueryCycleTest, eachFamilyAndEncoding(), nameOf);

}  // namespace
