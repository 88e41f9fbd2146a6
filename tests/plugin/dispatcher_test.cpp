// The dispatcher behind the sampling entry points.
#include <algorithm>

#include "nivex_qos/queue_stat.h"
#include "support/plugin.h"

using fake::platform;
using testing::IsEmpty;

namespace {

class DispatcherTest : public StartedPluginTest {
  protected:
    void SetUp() override {
        StartedPluginTest::SetUp();
        platform.tables.queue_stat.push_back({1, "eth1", 2, 3, 4, 5, 6, 7, 8, 9, 10});
    }
};

bool allZero(const uint8_t* begin, const uint8_t* end) {
    return std::all_of(begin, end, [](uint8_t byte) { return byte == 0; });
}

TEST_F(DispatcherTest, UploadsWhatTheFamilyFound) {
    QosTlmQueryParam request{};
    setThreshold(request, "pass-packets", QOS_TLM_OP_EQUAL, 3);
    platform.nowMs = 0x1'2345'6789'ABCD;
    EXPECT_EQ(CALL(QOS_TLM_QueryQueueStat)(0xFFFFFFFF, 0x80000001, &request), 0u);
    EXPECT_EQ(platform.allocSizes.at(0), 32816u);
    ASSERT_EQ(platform.uploads.size(), 1u);
    EXPECT_EQ(platform.uploads[0].moduleId, 7u);
    QosTlmSampleData& sample = platform.uploads[0].sample;
    EXPECT_LT(std::exchange(sample.encodeTimeSpend, 0), 1'000'000u);
    EXPECT_EQ(hex(&sample, 48),
              "FF FF FF FF 01 00 00 80 CD AB 89 67 45 23 01 00 CD AB 89 67 45 23 01 00 "
              "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 01 00 00 00 1E 00 00 00");
    EXPECT_EQ(hex(sample.data, sample.dataLen),
              "2A 1C 6A 1A 0A 18 0A 04 65 74 68 31 10 02 18 03 20 04 28 05 30 06 38 07 40 08 48 09 50 0A");
    EXPECT_TRUE(allZero(sample.data + sample.dataLen, std::end(sample.data)));
    EXPECT_EQ(fake::liveBlocks(), 1u) << "the sent key alone is kept";

    QosTlmSampleData header{};
    CALL(QOS_TLM_FullSampleData)(0xFFFFFFFE, 2, &header);
    EXPECT_EQ(hex(&header, 8), "FE FF FF FF 02 00 00 00");
    EXPECT_TRUE(allZero(reinterpret_cast<uint8_t*>(&header) + 8, std::end(header.data)));
    CALL(QOS_TLM_FullSampleData)(1, 2, nullptr);
}

TEST_F(DispatcherTest, FailuresUploadNothing) {
    const char* noUpload = "[Tlm QueryFunc] g_qosTlmFrmVtbl or sampleDataUpload is null.";
    const auto nothing = [](QosTlmQueryParam&) {};
    using Case = std::tuple<void (*)(QosTlmQueryParam&), uint32_t, const char*>;
    const Case cases[] = {
        {nothing, QOS_TLM_FAMILY_NUM, "[Tlm QueryFunc] no query func."},
        {nothing, 0xFFFFFFFF, "[Tlm QueryFunc] no query func."},
        {[](QosTlmQueryParam& request) { request.encodeType = 2; }, 3, "[Tlm QueryFunc] query data failed."},
        {[](QosTlmQueryParam&) { GLOBAL(g_qosTlmFrmVtbl) = nullptr; }, 3, noUpload},
        {[](QosTlmQueryParam&) { platform.vtable.sampleDataUpload = nullptr; }, 3, noUpload},
    };
    for (const auto& [arrange, family, message] : cases) {
        SCOPED_TRACE(message);
        reload();
        QosTlmQueryParam request{};
        arrange(request);
        EXPECT_EQ(CALL(QOS_TLM_QueryFunc)(1, 2, &request, family), 2u);
        EXPECT_LOG(message);
        EXPECT_THAT(platform.uploads, IsEmpty());
    }
    platform.tables.queue_stat.clear();
    GLOBAL(g_qosTlmFrmVtbl) = nullptr;
    QosTlmQueryParam request{};
    EXPECT_EQ(CALL(QOS_TLM_QueryQueueStat)(1, 2, &request), 0u) << "nothing to upload";
}

}  // namespace
