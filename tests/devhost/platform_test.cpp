#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <utility>
#include <vector>

#include "devhost/platform/stand_in.h"
#include "platform/bounded.h"
#include "platform/device_db.h"
#include "platform/host_framework.h"
#include "platform/log.h"
#include "platform/system_time.h"

namespace {

/* Eight bytes between guards; a fresh one is all '#'. */
struct Guarded {
    char before[8];
    char bytes[8];
    char after[8];

    Guarded() { std::memset(this, '#', sizeof *this); }
    bool intact() const {
        const std::string guard(8, '#');
        return std::string(before, 8) == guard && std::string(after, 8) == guard;
    }
    std::string all() const { return {bytes, 8}; }
};

__attribute__((format(printf, 3, 4))) int truncated(char* dest, size_t size, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int length = vsnprintf_truncated_s(dest, size, format, arguments);
    va_end(arguments);
    return length;
}

TEST(Bounded, TextCopyFitsWithItsNulOrLeavesAnEmptyText) {
    const std::string empty("\0#######", 8);
    const std::pair<const char*, std::string> cases[] = {{"seven77", std::string("seven77\0", 8)},
                                                         {"eight888", empty},
                                                         {"many more than eight", empty},
                                                         {nullptr, empty}};
    for (const auto& [source, left] : cases) {
        Guarded guarded;
        EXPECT_EQ(strcpy_s(guarded.bytes, 8, source) == 0, left != empty);
        EXPECT_EQ(guarded.all(), left);
        EXPECT_TRUE(guarded.intact());
    }
    Guarded none;
    EXPECT_NE(strcpy_s(none.bytes, 0, ""), 0);
    EXPECT_NE(strcpy_s(nullptr, 8, ""), 0);
    EXPECT_EQ(none.all(), "########");
}

TEST(Bounded, MemoryFunctionsFillTheDestinationAndRefuseMore) {
    Guarded memory;
    EXPECT_EQ(memcpy_s(memory.bytes, 8, "abcdefghij", 8), 0);
    EXPECT_NE(memcpy_s(memory.bytes, 8, "ABCDEFGHIJ", 9), 0);
    EXPECT_NE(memcpy_s(memory.bytes, 8, nullptr, 1), 0);
    EXPECT_NE(memcpy_s(nullptr, 8, "A", 1), 0);
    EXPECT_EQ(memory.all(), "abcdefgh");
    EXPECT_EQ(memset_s(memory.bytes, 8, 'x', 8), 0);
    EXPECT_NE(memset_s(memory.bytes, 8, 'y', 9), 0);
    EXPECT_NE(memset_s(nullptr, 8, 'y', 1), 0);
    EXPECT_EQ(memory.all(), "xxxxxxxx");
    EXPECT_TRUE(memory.intact());
}

TEST(Bounded, FormattingRefusesOrCutsWhatDoesNotFit) {
    Guarded text;
    EXPECT_EQ(sprintf_s(text.bytes, 8, "%d", 1234567), 7);
    EXPECT_STREQ(text.bytes, "1234567");
    EXPECT_EQ(sprintf_s(text.bytes, 8, "%d", 12345678), -1);
    EXPECT_STREQ(text.bytes, "");
    EXPECT_EQ(truncated(text.bytes, 8, "%s", "1234567"), 7);
    EXPECT_STREQ(text.bytes, "1234567");
    EXPECT_EQ(truncated(text.bytes, 8, "%s", "abcdefghij"), 7);
    EXPECT_STREQ(text.bytes, "abcdefg");
    EXPECT_EQ(sprintf_s(text.bytes, 0, "%d", 1), -1);
    EXPECT_EQ(sprintf_s(nullptr, 8, "%d", 1), -1);
    EXPECT_LT(truncated(text.bytes, 0, "%d", 1), 0);
    EXPECT_LT(truncated(nullptr, 8, "%d", 1), 0);
    EXPECT_STREQ(text.bytes, "abcdefg");
    EXPECT_TRUE(text.intact());
}

TEST(Bounded, ScanningCountsItems) {
    uint32_t first = 0;
    uint32_t second = 0;
    EXPECT_EQ(sscanf_s("1/3abc", "%u/%u", &first, &second), 2);
    EXPECT_EQ(std::pair(first, second), std::pair(1u, 3u));
    EXPECT_EQ(sscanf_s("1/", "%u/%u", &first, &second), 1);
    EXPECT_EQ(sscanf_s("/3", "%u/%u", &first, &second), 0);
    EXPECT_EQ(sscanf_s("", "%u/%u", &first, &second), 0);
}

TEST(SystemTime, CalendarIsUtcWhereverTheProcessRuns) {
    setenv("TZ", "Asia/Kathmandu", 1);
    tzset();
    const std::vector<std::pair<uint64_t, const char*>> known = {
        {0, "1970-1-1 0:0:0"},          {951782400, "2000-2-29 0:0:0"},   {1709251199, "2024-2-29 23:59:59"},
        {1709802302, "2024-3-7 9:5:2"}, {UINT32_MAX, "2106-2-7 6:28:15"}, {253402300799, "9999-12-31 23:59:59"},
    };
    for (const auto& [seconds, expected] : known) {
        KatCalendar calendar{};
        ASSERT_EQ(KAT_SystimeSec2Time(seconds, &calendar), 0u) << seconds;
        char text[64];
        sprintf_s(text, sizeof text, "%d-%d-%d %d:%d:%d", calendar.year, calendar.month, calendar.day, calendar.hour,
                  calendar.minute, calendar.second);
        EXPECT_STREQ(text, expected);
    }
    for (const uint64_t tooFar : {uint64_t{1} << 50, uint64_t{INT64_MAX}, UINT64_MAX}) {
        KatCalendar calendar{};
        EXPECT_NE(KAT_SystimeSec2Time(tooFar, &calendar), 0u);
        EXPECT_EQ(calendar.year, 0);
    }
    unsetenv("TZ");
    tzset();
}

TEST(SystemTime, CountsComeInHalvesFromTheClockOrTheStoppedOne) {
    const auto read = [](auto convert) {
        KatSystime now{};
        KAT_SystimeGet(&now);
        uint32_t high = 0;
        uint32_t low = 0;
        convert(&now, &high, &low);
        return uint64_t{high} << 32 | low;
    };
    devhost::setClock(((uint64_t{3} << 32) + 7) * 1000 + 999);
    EXPECT_EQ(read(KAT_SystimeMsSince1970), ((uint64_t{3} << 32) + 7) * 1000 + 999);
    EXPECT_EQ(read(KAT_SystimeSecSince1970), (uint64_t{3} << 32) + 7);

    devhost::setClock(std::nullopt);
    const auto before = static_cast<uint64_t>(std::time(nullptr));
    const uint64_t seconds = read(KAT_SystimeSecSince1970);
    const uint64_t milliseconds = read(KAT_SystimeMsSince1970);
    EXPECT_LE(before, seconds + 1);  // time() may read a coarser clock
    EXPECT_LE(seconds, milliseconds / 1000);
    EXPECT_LE(milliseconds / 1000, static_cast<uint64_t>(std::time(nullptr)) + 1);
}

TEST(DeviceDb, MapsSlotsUpTo63) {
    uint32_t slot = 99;
    EXPECT_EQ(DEVM_DB_GetGlobalSlotIdByLocalSlotId(&slot, 3, 1), 0u);
    EXPECT_EQ(slot, 67u);
    EXPECT_EQ(DEVM_DB_GetGlobalSlotIdByLocalSlotId(&slot, 63, 63), 0u);
    EXPECT_EQ(slot, 4095u);
    EXPECT_EQ(DEVM_DB_GetGlobalSlotIdByLocalSlotId(&slot, 64, 0), 1u);
    EXPECT_EQ(DEVM_DB_GetGlobalSlotIdByLocalSlotId(&slot, 0, 64), 1u);
    EXPECT_EQ(slot, 4095u);
}

TEST(Allocator, AlignsBlocksAndRefusesStrangers) {
    alignas(16) unsigned char copy[48];
    for (const size_t size : {size_t{0}, size_t{1}, size_t{17}, size_t{32816}}) {
        void* block = NIVEX_AllocBuff(size);
        ASSERT_NE(block, nullptr);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(block) % 16, 0u);
        std::memset(block, 0xff, size);
        std::memcpy(copy, static_cast<unsigned char*>(block) - 16, 16);
        NIVEX_FreeBuff(block);
    }
    EXPECT_EQ(NIVEX_AllocBuff(SIZE_MAX), nullptr);
    EXPECT_DEATH(NIVEX_FreeBuff(copy + 16), "is not a block of NIVEX_AllocBuff");
    EXPECT_DEATH(NIVEX_FreeBuff(nullptr), "is not a block of NIVEX_AllocBuff");
}

TEST(Log, GoesWholeToTheSinkOrAsOneLineToStandardError) {
    std::vector<std::pair<uint32_t, std::string>> messages;
    devhost::setLogSink([&](uint32_t level, uint32_t logId, std::string_view text) {
        messages.emplace_back(level * 100 + logId, text);
    });
    const std::string longText(5000, 'x');
    IM_Agent_ReportLogById(9, 21, "%s %d", longText.c_str(), 3);
    devhost::setLogSink(nullptr);
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_EQ(messages[0], std::pair(921u, longText + " 3"));

    testing::internal::CaptureStderr();
    IM_Agent_ReportLogById(9, 21, "ret=%u.", 4u);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "qos-plugin: ret=4.\n");
    EXPECT_EQ(messages.size(), 1u);
}

}  // namespace
