// Batches that end before they outgrow the payload.
#include <algorithm>
#include <cstring>

#include "plugin/families.h"

using fake::platform;
using testing::IsEmpty;

namespace {

constexpr uint64_t kLong = 123'456'789'012'345'678;  // 18 digits

class BatchPolicyTest : public StartedPluginTest {
  protected:
    static void setPolicy(uint32_t policy) { EXPECT_EQ(CALL(QOS_TLM_SetBatchPolicy)(policy), 0u); }
    // Rows whose JSON is long: every counter has 18 digits, and a different value in each row.
    static void addLongRows(const Family& family, uint32_t count) {
        addRows(family, count);
        for (uint32_t row = 0; row < count; ++row) {
            for (const std::string& column : family.columns) {
                if (valueOf(family, row, column).is_number() && column.find("nde") == std::string::npos &&
                    column.find("queueI") != 0 && column != "queue" && column.find("time") == std::string::npos) {
                    setValue(family, row, column, kLong + row * 1'000'000);
                }
            }
        }
    }
    QosTlmQueryParam request_{};
};

TEST_F(BatchPolicyTest, RefusalByDefaultAndNoLossOnRequest) {
    for (const Family& family : kFamilies) {
        SCOPED_TRACE(family.tag);
        const uint32_t rows = 2 * family.batchLimit + 3;
        for (const uint32_t encodeType : {0u, 1u}) {
            request_.encodeType = encodeType;
            reload();
            addLongRows(family, rows);
            setPolicy(1);
            std::vector<size_t> expected(rows);
            std::generate(expected.begin(), expected.end(), [n = size_t{0}]() mutable { return n++; });
            EXPECT_EQ(deliveredRows(family, request_), expected) << "every row once, in order";
            EXPECT_LOG();
            EXPECT_EQ(fake::liveBlocks(), rows);
        }
        const bool refused = family.index != QOS_TLM_FAMILY_TM_BUF && !family.isMonitor();
        setPolicy(0);
        EXPECT_EQ(callEntryPoint(family, request_), refused ? QOS_TLM_RESULT_DONE : QOS_TLM_RESULT_MORE);
        if (refused) {
            EXPECT_LOG("[Tlm SetSampleData] memcpy error, ret=34.");
            EXPECT_THAT(platform.uploads, IsEmpty());
        }
        fake::takeLog();
        platform.uploads.clear();
    }
}

// Rows that take the most that a row can, behind some whose names are short: a batch that fits to the byte is sent, and
// one byte more sends its last row with the next.
TEST_F(BatchPolicyTest, PayloadsAreFilledToTheLastByte) {
    request_.encodeType = QOS_TLM_ENCODE_JSON;
    for (const uint32_t index : {QOS_TLM_FAMILY_PORT_ECN, QOS_TLM_FAMILY_QUEUE_DROP, QOS_TLM_FAMILY_ING_PORT_DROP}) {
        const Family& family = familyOf(index);
        SCOPED_TRACE(family.tag);
        const auto firstBatch = [&](size_t nameBytes) {
            reload();
            addRows(family, 300);
            for (size_t row = 0; row < rowCount(family); ++row) {
                for (const std::string& column : family.columns) {
                    if (column != family.nameColumn && column != "ifIndex") {
                        setValue(family, row, column, ~0ull);
                    }
                }
                const size_t length = std::min<size_t>(31, nameBytes - std::min(nameBytes, 31 * row));
                setText(family, row, family.nameColumn, row < 31 ? std::string(length, 'x') : std::string(31, '\1'));
            }
            setPolicy(1);
            runPass(family, request_);
            const QosTlmSampleData first = platform.uploads.at(0).sample;
            EXPECT_EQ(takeEntries(family, request_.encodeType).size(), 300u);
            return std::pair(first.recordCount, first.dataLen);
        };
        const auto [count, length] = firstBatch(0);
        const size_t gap = QOS_TLM_PAYLOAD_SIZE - length;
        EXPECT_EQ(firstBatch(gap), std::pair(count, QOS_TLM_PAYLOAD_SIZE));
        EXPECT_EQ(firstBatch(gap + 1).first, count - 1);
    }
}

// Slots that are none come with every call and are never counted: when they fill it, a line says so.
TEST_F(BatchPolicyTest, RecordsWithoutKeyAreNotSilent) {
    const Family& family = familyOf(QOS_TLM_FAMILY_TM_BUF);
    for (const std::string& first : {std::string("6"), std::string("none")}) {
        reload();
        addRows(family, 602);
        for (size_t row = 0; row < 602; ++row) {
            setText(family, row, "slotId", row == 0 ? first : row == 601 ? "8" : "none");
        }
        setPolicy(1);
        request_.encodeType = QOS_TLM_ENCODE_JSON;
        if (first == "6") {
            EXPECT_EQ(callEntryPoint(family, request_), QOS_TLM_RESULT_MORE);
            EXPECT_GT(takeEntries(family, request_.encodeType, false).size(), 100u);
            fake::takeLog();
        }
        EXPECT_EQ(callEntryPoint(family, request_), QOS_TLM_RESULT_DONE);
        EXPECT_THAT(platform.uploads, IsEmpty());
        std::vector<std::string> log = fake::takeLog();
        EXPECT_EQ(log.back(), "[Tlm QueryTmBufStatFromDb] records without a slot leave no room for others.");
        log.pop_back();
        EXPECT_THAT(log, testing::Each(testing::EndsWith("parse string slot to num slot failed.")));
    }
}

}  // namespace
