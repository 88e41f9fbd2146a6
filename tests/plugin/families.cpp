#include "plugin/families.h"

using fake::platform;

namespace {

// Small numbers keep a JSON batch within the payload; rows 1 and 2 hold extremes.
fake::row::queue_stat queueStat(uint32_t number) {
    constexpr uint64_t kMax = ~0ull;
    constexpr uint64_t kOdd = (1ull << 53) + 1;
    if (number == 1) {
        return {1, "eth0", 1, kMax, kMax, kMax, kMax, kOdd, kOdd, kOdd, kOdd};
    }
    if (number == 2) {
        return {0xFFFFFFFF, std::string(31, 'x'), 0, 0, 0, 0, 0, 0, 0, 0, 0};
    }
    const uint64_t n = number;
    return {
        number / 8 + 1, "eth" + std::to_string(number / 8), number % 8, n + 1, n + 2, n + 3, n + 4, n + 5, n + 6, n + 7,
        n + 8};
}

nlohmann::json queueStatEntry(uint32_t number) {
    const fake::row::queue_stat row = queueStat(number);
    return {{"interface-name", *row.ifName},          {"service-class", row.queueId},
            {"pass-packets", row.passPackets},        {"pass-bytes", row.passBytes},
            {"pass-packet-rate", row.passPktRate},    {"pass-byte-rate", row.passBytRate},
            {"discard-packets", row.dropPackets},     {"discard-bytes", row.dropBytes},
            {"discard-packet-rate", row.dropPktRate}, {"discard-byte-rate", row.dropBytRate}};
}

}  // namespace

const std::vector<Family> kFamilies = {
    {.tag = "QueueStat",
     .flag = "g_qosTlmQueStatQueryToEnd",
     .index = 3,
     .batchLimit = 128,
     .table = "queue_stat",
     .container = "queue-statisticss",
     .list = "queue-statistics",
     .columns = {"ifIndex", "ifName", "queueId", "passPackets", "passBytes", "passPktRate", "passBytRate",
                 "dropPackets", "dropBytes", "dropPktRate", "dropBytRate"},
     .addRow = [](uint32_t number) { platform.tables.queue_stat.push_back(queueStat(number)); },
     .entry = queueStatEntry,
     .setName = [](std::optional<std::string> name) { platform.tables.queue_stat[0].ifName = name; }},
};

uint32_t callEntryPoint(const Family& family, const QosTlmQueryParam& request) {
    return GLOBAL(g_qosTlmTaskMap)[family.index].queryFunc(1, 2, &request);
}

void runPass(const Family& family, const QosTlmQueryParam& request) {
    while (callEntryPoint(family, request) == QOS_TLM_RESULT_MORE) {
    }
    ASSERT_EQ(*pluginSymbolAs<uint32_t*>(family.flag), 0u);
}

std::vector<nlohmann::json> takeEntries(const Family& family, uint32_t encodeType) {
    std::vector<nlohmann::json> all;
    for (const auto& [moduleId, sample] : platform.uploads) {
        const auto entries = readEntries(sample, encodeType, family.container, family.list);
        EXPECT_EQ(sample.recordCount, entries.size());
        all.insert(all.end(), entries.begin(), entries.end());
    }
    platform.uploads.clear();
    return all;
}
