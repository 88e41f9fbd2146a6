// Sample assembly and the clock functions.
#include "nivex_qos/assembly.h"

#include <cstring>

#include "platform/system_time.h"
#include "support/plugin.h"

using fake::platform;

namespace {

class AssemblyTest : public StartedPluginTest {
  protected:
    // A tree that encodes to textLength bytes and 8 (GPB, 16 KB and more) or 14 (JSON) around them.
    static Tree treeOf(uint32_t textLength) {
        Tree top = makeTree("t", 1);
        CALL(QOS_TLM_AddChildString)(top.get(), "s", std::string(textLength, 'x').c_str(), 1);
        return top;
    }
    static QosTlmEncodeResult resultOf(uint32_t dataLen) {
        return {1, 2, 3, 4, dataLen, static_cast<uint8_t*>(NIVEX_AllocBuff(dataLen))};
    }
    bool untouched() const {
        static const QosTlmSampleData zero{};
        return memcmp(&sample_, &zero, sizeof zero) == 0;
    }

    QosTlmSampleData sample_{};
};

TEST_F(AssemblyTest, PayloadHolds32768BytesAndNotOneMore) {
    for (const uint32_t type : {0u, 1u}) {
        const uint32_t overhead = type == 0 ? 8 : 14;
        sample_ = {};
        CALL(QOS_TLM_EncodingData)(treeOf(32769 - overhead).get(), type, 3, &sample_);
        EXPECT_LOG("[Tlm SetSampleData] memcpy error, ret=34.");
        EXPECT_TRUE(untouched());
        CALL(QOS_TLM_EncodingData)(treeOf(32768 - overhead).get(), type, 3, &sample_);
        EXPECT_EQ(sample_.dataLen, 32768u);
        EXPECT_EQ(sample_.recordCount, 3u);
        EXPECT_EQ(sample_.collectStartTime, platform.nowMs);
        EXPECT_EQ(sample_.collectEndTime, platform.nowMs);
        EXPECT_EQ(hex(sample_.data, 4), type == 0 ? "0A FC FF 01" : "7B 22 74 22");
        EXPECT_EQ(fake::liveBlocks(), 0u);
    }
}

TEST_F(AssemblyTest, BatchesAreAppended) {
    sample_.dataLen = 100;
    sample_.recordCount = 9;
    memset(sample_.data, 0x11, 100);
    platform.timesOfDay = {{10, 900000}, {10, 900000}, {11, 100000}, {11, 100001}};
    CALL(QOS_TLM_EncodingData)(treeOf(2).get(), QOS_TLM_ENCODE_GPB, 1, &sample_);
    EXPECT_EQ(hex(sample_.data + 99, 8), "11 0A 04 0A 02 78 78 00");
    EXPECT_EQ(sample_.dataLen, 106u);
    EXPECT_EQ(sample_.recordCount, 1u);
    EXPECT_EQ(sample_.encodeTimeSpend, 200000u);

    QosTlmEncodeResult result = resultOf(32768 - 106);
    EXPECT_EQ(CALL(QOS_TLM_SetSampleData)(2, &result, &sample_), 0u);
    const auto header = hex(&sample_, 48);
    EXPECT_EQ(header.substr(24),
              "01 00 00 00 00 00 00 00 02 00 00 00 00 00 00 00 03 00 00 00 00 00 00 00 "
              "04 00 00 00 00 00 00 00 02 00 00 00 00 80 00 00");
    result = resultOf(1);
    EXPECT_EQ(CALL(QOS_TLM_SetSampleData)(5, &result, &sample_), 1u);
    EXPECT_EQ(hex(&sample_, 48), header);
    EXPECT_EQ(fake::liveBlocks(), 0u);
    EXPECT_LOG("[Tlm SetSampleData] memcpy error, ret=34.");
    EXPECT_THAT(std::vector<std::string>(platform.calls.end() - 2, platform.calls.end()),
                testing::ElementsAre("IM_Agent_ReportLogById", "NIVEX_FreeBuff"));
}

TEST_F(AssemblyTest, NothingHappensWithoutRecordsTreeOrBuffer) {
    const Tree top = treeOf(1);
    CALL(QOS_TLM_EncodingData)(top.get(), QOS_TLM_ENCODE_GPB, 0, &sample_);
    EXPECT_EQ(fake::callCount("gettimeofday"), 0u);
    CALL(QOS_TLM_EncodingData)(top.get(), QOS_TLM_ENCODE_GPB, 1, nullptr);
    EXPECT_EQ(fake::liveBlocks(), 3u) << "the encoded block is freed";
    EXPECT_LOG();
    CALL(QOS_TLM_EncodingData)(nullptr, QOS_TLM_ENCODE_GPB, 1, &sample_);
    EXPECT_LOG("[Tlm EncodeSampleData] sampleData data is null.");

    EXPECT_EQ(CALL(QOS_TLM_EncodeSampleData)(0, top.get(), nullptr), 1u);
    QosTlmEncodeResult result = resultOf(4);
    EXPECT_EQ(CALL(QOS_TLM_SetSampleData)(1, nullptr, &sample_), 1u);
    EXPECT_EQ(CALL(QOS_TLM_SetSampleData)(1, &result, nullptr), 1u);
    NIVEX_FreeBuff(std::exchange(result.data, nullptr));  // was not freed
    EXPECT_EQ(CALL(QOS_TLM_SetSampleData)(1, &result, &sample_), 1u);
    EXPECT_TRUE(untouched());
}

TEST_F(AssemblyTest, LowByteOfTheEncodeTypeDecides) {
    const Tree top = treeOf(1);
    using Case = std::pair<uint32_t, char>;
    for (const auto& [type, first] : {Case{0, '\n'}, Case{1, '{'}, Case{2, '\n'}, Case{0x101, '{'}, Case{~0u, '\n'}}) {
        QosTlmEncodeResult result{};
        EXPECT_EQ(CALL(QOS_TLM_EncodeSampleData)(type, top.get(), &result), 0u);
        const Block data(result.data);
        EXPECT_EQ(static_cast<char>(result.data[0]), first) << type;
        EXPECT_EQ(result.thresholdValue, 0u);
    }
    QosTlmEncodeResult result{};
    EXPECT_EQ(CALL(QOS_TLM_EncodeSampleData)(0, nullptr, &result), 1u);
    EXPECT_TRUE(result.data == nullptr && result.collectStartTime == 0 && result.encodeTimeSpend == 0);
    EXPECT_LOG("[Tlm EncodeSampleData] sampleData data is null.");
}

TEST_F(AssemblyTest, TimeSpans) {
    const auto span = CALL(QOS_TLM_GetUsToTimeSpend);
    EXPECT_EQ(span(10, 900000, 11, 100000), 200000u);
    EXPECT_EQ(span(11, 0, 10, 999999), 0u);
    EXPECT_EQ(span(10, 5, 10, 4), 0u);
    EXPECT_EQ(span(10, 5, 10, 6), 1u);
    EXPECT_EQ(span(0, 0, 0xFFFFFFFF, 999999), 4294967295999999u);
    EXPECT_EQ(span(10, 0xFFFFFFFF, 11, 0), 0u);
}

TEST_F(AssemblyTest, WallClockIsReadTwice) {
    const std::string failed = "[Tlm GetSystimeSecUs] get time of day failed, ret=4294967295.";
    using Case = std::tuple<std::deque<timeval>, uint32_t, uint32_t, uint32_t>;  // readings, failing call, result
    const Case cases[] = {{{{10, 1}, {10, 2}}, 0, 10, 1},
                          {{{10, 999999}, {11, 1}, {11, 5}, {11, 6}}, 0, 11, 5},
                          {{{10, 999999}, {11, 1}, {12, 5}, {13, 6}}, 0, 12, 5},
                          {{{10, 1}, {10, 2}}, 1, 77, 78},
                          {{{10, 1}, {10, 2}}, 2, 77, 78},
                          {{{10, 1}, {11, 2}}, 3, 77, 78},
                          {{{10, 1}, {11, 2}, {11, 3}}, 4, 77, 78}};
    for (const auto& [readings, failAt, sec, usec] : cases) {
        SCOPED_TRACE(failAt);
        platform.timesOfDay = readings;
        uint32_t now[] = {77, 78};
        if (failAt != 0) {
            fake::failCall("gettimeofday", failAt);
        }
        CALL(QOS_TLM_GetSystimeSecUs)(&now[0], &now[1]);
        EXPECT_THAT(now, testing::ElementsAre(sec, usec));
        if (failAt != 0) {
            EXPECT_LOG(failed);
        } else {
            EXPECT_TRUE(platform.timesOfDay.empty()) << "each reading is taken";
        }
    }
    uint32_t value = 77;
    CALL(QOS_TLM_GetSystimeSecUs)(nullptr, &value);
    CALL(QOS_TLM_GetSystimeSecUs)(&value, nullptr);
    EXPECT_EQ(value, 77u);
}

TEST_F(AssemblyTest, PlatformClock) {
    platform.nowMs = (0x1'0000'0003ull * 1000) + 999;  // 2^32 + 3 seconds
    KatSystime now{};
    KAT_SystimeGet(&now);
    EXPECT_EQ(CALL(QOS_TLM_ConvertSystimeToMs)(&now), platform.nowMs);
    EXPECT_EQ(CALL(QOS_TLM_ConvertSystimeToMs)(nullptr), 0u);
    uint32_t seconds = 0;
    CALL(QOS_TLM_SetCurTime)(&seconds);
    EXPECT_EQ(seconds, 3u);
    uint64_t times[2] = {};
    CALL(QOS_TLM_SetCollectTime)(&times[0], &times[1]);
    EXPECT_THAT(times, testing::Each(platform.nowMs));
}

}  // namespace
