// The record filters.
#include "nivex_qos/filter.h"

#include <cerrno>
#include <clocale>

#include "support/plugin.h"

namespace {

class FiltersTest : public PluginTest {};

TEST_F(FiltersTest, InterfaceNames) {
    const std::string stars(34, '*');
    const std::string forty(40, 'a');
    const std::string long300 = "E" + std::string(298, '9') + "\n";
    using Names = std::vector<const char*>;
    const std::tuple<const char*, Names, Names> cases[] = {
        {"ETH1/0/*", {"ETH1/0/0", "eth1/0/17", "ETH1/0/"}, {"ETH1/0/1/1", "ETH1/0/3x", "xETH1/0/3", "ETH1/0", ""}},
        {"*", {"", "0", "0123456789"}, {"eth0", "0x", "-1"}},
        {"", {""}, {"e", "1"}},
        {"ETH1/0/1.1", {"ETH1/0/1.1", "ETH1/0/1x1"}, {"ETH1/0/11"}},
        {"eth0\\.1", {"eth0.1"}, {"eth0x1"}},
        {"a|b", {"a", "ax", "xb"}, {"xa", "bx"}},
        {"(eth|veth)*", {"eth1", "VETH22", "eth"}, {"ethx"}},
        {"eth[13]", {"eth1", "eth3"}, {"eth2"}},
        {"[*]", {"5)]", "(4)]", ")]"}, {"5", "*"}},  // the set ends where the run's own does
        {"eth+", {"eth", "ethhh"}, {"et"}},
        {"(ab){1,3}c", {"abc", "ababc", "abababc"}, {"c", "ababababc", "abcc"}},
        // Names longer than a record's.
        {"(a|b)+", {forty.c_str()}, {long300.c_str()}},
        {"a{40}", {forty.c_str()}, {"a"}},
        {"[d-f]9{2,}.$", {long300.c_str()}, {forty.c_str()}},
        {"eth\\", {"eth$", "eth$1"}, {"eth"}},  // escapes the final anchor
        {"e\\+[+]\\h", {"e++h", "E++H"}, {"eee+h", "e++\\h"}},
        {"Eth[1", {}, {"Eth1", "Eth[1", ""}},
        {"eth(", {}, {"eth", "eth("}},
        {"(+a)", {}, {"a", "+a"}},
        {"a{1}", {"a"}, {"aa", "a{1}"}},
        // Each byte is a character, whatever the locale.
        {"\xE4{1}", {"\xE4"}, {"\xC4", "\xC3\xA4"}},
        {"(.)[\x80-\xBF].*", {"\xC3\xA4\xFF"}, {"\xC3", "\xC3\xE4"}},
        {"\\W*\\>|..", {"\xC3\xA4"}, {"\xC3"}},
        {"\xC4", {"\xC4"}, {"\xE4"}},
        {"a.b|c\n\\'", {"a\nb", "xc\n"}, {"ab", "c\n\n"}},
        {"eth*1", {"eth1", "eth01", "eth11"}, {"eth", "eth10"}},
        {"GigabitEthernet0/0/0123456789.1*", {"gigabitethernet0/0/0123456789.10"}, {"gigabitethernet0/0/012345678"}},
        {"[[:alpha:]-]*:[^b-d]", {"a1:a", "-1:E"}, {"1:a", "a1:c", "a1:d", "a1:"}},
        {"e\\Bth", {"eth"}, {"e-th"}},
        {"\\<eth\\>.*|\\bx", {"eth 1", "veth-x"}, {"eths1", "vethx"}},
        // Back-references; with the second one the C library overflows its stack, with the third it takes seconds.
        {"(e)\\1h", {}, {"eeh", "ee\nh"}},
        {"()(\\1((\\1)|.))+", {}, {"", long300.c_str()}},
        {"a|*(*)?(1?)\\3*?\\3\\2?\\3\\3\\3\\3\\3\\3", {}, {"a", "0123456789012345678901234567890"}},
        {"(.)\\1\\+\\+|.", {}, {"a", "aa++"}},
        {"[\\1]", {"1", "\\"}, {"2"}},
        // What regcomp takes minutes for, or crashes on.
        {"*+++++", {"", "12"}, {"a"}},
        {"*{32767}", {"", "12"}, {"1a"}},
        {"((*?|ab?)+{3}{3}{3}c)+", {"abc", "a1cc"}, {"abca", ""}},
        {"(a?b?){9}{9}{9}", {}, {forty.c_str()}},  // too many counts
        {stars.c_str(), {"", "0123456789012345678901234567890"}, {"1a"}},
    };
    const auto match = CALL(QOS_TLM_CheckIfName);
    ASSERT_NE(setlocale(LC_CTYPE, "C.UTF-8"), nullptr);
    for (const auto& [pattern, matching, others] : cases) {
        SCOPED_TRACE(pattern);
        for (const char* name : matching) {
            EXPECT_EQ(match(pattern, name, 32), 1u) << name;
            EXPECT_EQ(match(pattern, name, 0), 1u) << name;
        }
        for (const char* name : others) {
            EXPECT_EQ(match(pattern, name, 32), 0u) << name;
        }
    }
    EXPECT_EQ(match(nullptr, "eth0", 32), 0u);
    EXPECT_EQ(match("eth0", nullptr, 32), 0u);
    for (const char character : {'a', '*', '('}) {  // longer than a request can carry
        EXPECT_EQ(match(std::string(35, character).c_str(), std::string(35, 'a').c_str(), 32), 0u);
        EXPECT_EQ(match(std::string(5000, character).c_str(), "", 32), 0u);
    }
    setlocale(LC_CTYPE, "C");
}

TEST_F(FiltersTest, Thresholds) {
    const uint64_t high = 5ull << 32;
    // thresholdNum, relation, first operator and value, second; values that pass, and that fail
    using Case = std::tuple<uint32_t, int, int, uint64_t, int, uint64_t, std::vector<uint32_t>, std::vector<uint32_t>>;
    const Case cases[] = {
        {1, 0, 0, 100, 0, 0, {100}, {99, 101}},
        {1, 0, 1, 100, 0, 0, {101, ~0u}, {100, 0}},
        {1, 0, 2, 100, 0, 0, {100, 101}, {99}},
        {1, 0, 3, 100, 0, 0, {99, 0}, {100, ~0u}},
        {1, 0, 4, 100, 0, 0, {100, 0}, {101}},
        {1, 0, 5, 100, 0, 0, {}, {99, 100, 101}},
        {1, 0, 255, 100, 0, 0, {}, {99, 100, 101}},
        {1, 0, 0, high + 100, 0, 0, {100}, {5}},
        {2, 1, 2, 10, 4, high + 20, {10, 15, 20}, {9, 21}},
        {2, 2, 0, 10, 0, 20, {20}, {10}},
        {2, 2, 5, 0, 0, 20, {20}, {10}},
        {2, 0, 2, 0, 2, 0, {}, {0, 10}},
        {2, 3, 2, 0, 2, 0, {}, {0, 10}},
        {7, 1, 2, 10, 4, 20, {10, 20}, {9, 21}},
        {~0u, 2, 0, 10, 0, 20, {20}, {10}},
    };
    for (const auto& [number, relation, op1, value1, op2, value2, passing, failing] : cases) {
        QosTlmQueryParam request{};
        setThreshold(request, "", static_cast<uint8_t>(op1), value1);
        setThreshold(request, "", static_cast<uint8_t>(op2), value2);
        request.thresholdNum = number;
        request.thresholdRelation = static_cast<uint8_t>(relation);
        SCOPED_TRACE(testing::PrintToString(std::tuple(number, relation, op1, op2)));
        for (const uint32_t value : passing) {
            EXPECT_EQ(CALL(QOS_TLM_ThresholdFilter)(&request, value), 1u) << value;
        }
        for (const uint32_t value : failing) {
            EXPECT_EQ(CALL(QOS_TLM_ThresholdFilter)(&request, value), 0u) << value;
        }
    }
    EXPECT_EQ(CALL(QOS_TLM_ThresholdFilter)(nullptr, 0), 0u);
}

TEST_F(FiltersTest, NumbersAndSlots) {
    constexpr uint32_t kUntouched = 0xABCD;
    using Case = std::tuple<const char*, uint32_t, uint32_t>;  // text, result, number
    const Case numbers[] = {{"12", 0, 12},
                            {"  12", 0, 12},
                            {"\t\n+012", 0, 12},
                            {"", 1, kUntouched},
                            {"+", 1, kUntouched},
                            {"12 ", 1, kUntouched},
                            {"1a", 1, kUntouched},
                            {"0x10", 1, kUntouched},
                            {"4294967296", 0, 0},
                            {"18446744073709551615", 0, 0xFFFFFFFF},
                            {"18446744073709551616", 1, kUntouched},
                            {"-1", 0, 0xFFFFFFFF},
                            {nullptr, 1, kUntouched}};
    for (const auto& [text, result, number] : numbers) {
        for (const auto parse : {CALL(QOS_TLM_ParsesString2Number), CALL(QOS_TLM_StrSlot2IntSlot)}) {
            uint32_t parsed = kUntouched;
            errno = ERANGE;  // left over from somebody else
            EXPECT_EQ(parse(text, &parsed), result) << text;
            EXPECT_EQ(parsed, number) << text;
            EXPECT_EQ(parse("1", nullptr), 1u);
        }
    }
    EXPECT_EQ(fake::callCount("DEVM_DB_GetGlobalSlotIdByLocalSlotId"), 0u);
    const Case slots[] = {{"1/3", 0, 1003},     {"1/3abc", 0, 1003},     {"12/0/7", 0, 12000},
                          {" 1/ 3", 0, 1003},   {"1/", 1, kUntouched},   {"/3", 1, kUntouched},
                          {"/", 1, kUntouched}, {"1 /3", 1, kUntouched}, {"a/3", 1, kUntouched}};
    uint32_t slot = 0;
    for (const auto& [text, result, number] : slots) {
        slot = kUntouched;
        EXPECT_EQ(CALL(QOS_TLM_StrSlot2IntSlot)(text, &slot), result) << text;
        EXPECT_EQ(slot, number) << text;
    }
    fake::failCall("DEVM_DB_GetGlobalSlotIdByLocalSlotId", 1, 77);
    EXPECT_EQ(CALL(QOS_TLM_StrSlot2IntSlot)("1/3", &slot), 77u);
}

TEST_F(FiltersTest, ServiceClasses) {
    using Case = std::pair<const char*, uint32_t>;
    for (const auto& [name, expected] :
         {Case{"af1", 1}, Case{"af2", 2}, Case{"af3", 3}, Case{"af4", 4}, Case{"ef", 5}, Case{"cs6", 6}, Case{"cs7", 7},
          Case{"be", 0}, Case{"CS7", 0}, Case{"", 0}, Case{"af", 0}, Case{"af11", 0}, Case{"ef ", 0}}) {
        uint32_t queue = 99;
        CALL(QOS_TLM_ParsesServiceClassToQueueId)(name, &queue);
        EXPECT_EQ(queue, expected) << name;
    }
    CALL(QOS_TLM_ParsesServiceClassToQueueId)("ef", nullptr);
}

}  // namespace
