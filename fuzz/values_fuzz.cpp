// Numbers, slots, service classes, thresholds, time spans and varints against simple models in wide arithmetic.
#include <cstring>
#include <memory>

#include "fuzz/input.h"
#include "fuzz/platform.h"
#include "nivex_qos/assembly.h"
#include "nivex_qos/filter.h"
#include "nivex_qos/gpb.h"
#include "nivex_qos/tracking.h"

using fuzz::Input;

namespace {

__extension__ typedef __int128 Wide;
constexpr Wide kMax64 = ~uint64_t{0};

// Takes what strtoul would: white space, a sign, digits. kNone when there is no digit, kBeyond when 64 bits do not hold
// it.
constexpr Wide kNone = -1;
constexpr Wide kBeyond = -2;
Wide takeNumber(std::string_view& text) {
    text.remove_prefix(std::min(text.find_first_not_of(" \t\n\v\f\r"), text.size()));
    const bool negative = text.starts_with('-');
    text.remove_prefix(negative || text.starts_with('+') ? 1 : 0);
    const std::string_view digits = text.substr(0, text.find_first_not_of("0123456789"));
    text.remove_prefix(digits.size());
    Wide number = digits.empty() ? kNone : 0;
    for (const char digit : digits) {
        number = std::min(number * 10 + (digit - '0'), kMax64 + 1);
    }
    return number > kMax64 ? kBeyond : negative && number != kNone ? (kMax64 + 1 - number) & kMax64 : number;
}

// The result of a reader, and the number that it stores, must be those of the model's number; below 0 there is none.
template <class Read>
void checkReader(const std::string& text, Wide expected, Read read) {
    uint32_t number = 77;
    REQUIRE(read(text.c_str(), &number) == (expected < 0 ? 1 : 0));
    REQUIRE(number == (expected < 0 ? 77 : static_cast<uint32_t>(expected)));
}

void checkTexts(Input& input) {
    const std::string text = std::string(input.rest()).c_str();
    std::string_view rest = text;
    Wide expected = takeNumber(rest);
    expected = rest.empty() ? expected : kNone;
    checkReader(text, expected, QOS_TLM_ParsesString2Number);

    if (text.find('/') != std::string::npos) {
        rest = text;
        const Wide first = takeNumber(rest);
        const bool hasSlash = first != kNone && rest.starts_with('/');
        rest.remove_prefix(hasSlash ? 1 : 0);
        const Wide second = hasSlash ? takeNumber(rest) : kNone;
        // sscanf cuts a number down to 32 bits; one beyond 64 bits is all ones.
        const auto cut = [](Wide number) { return Wide{static_cast<uint32_t>(number == kBeyond ? kMax64 : number)}; };
        expected = second == kNone ? kNone : cut(first) * 1000 + cut(second);
    }
    checkReader(text, expected, QOS_TLM_StrSlot2IntSlot);

    constexpr const char* kClasses[] = {"be", "af1", "af2", "af3", "af4", "ef", "cs6", "cs7"};
    const auto* found = std::find(std::begin(kClasses), std::end(kClasses), text);
    uint32_t queue = 77;
    QOS_TLM_ParsesServiceClassToQueueId(text.c_str(), &queue);
    REQUIRE(queue == (found == std::end(kClasses) ? 0 : static_cast<uint32_t>(found - kClasses)));
}

void checkThresholds(Input& input) {
    QosTlmQueryParam request{};
    const auto value = static_cast<uint32_t>(input.spread());
    request.thresholdNum = static_cast<uint32_t>(input.below(4));
    request.thresholdRelation = input.below(4);
    bool pass[2];
    for (size_t i = 0; i < 2; ++i) {
        QosTlmThreshold& threshold = request.thresholds[i];
        threshold.op = input.below(7);
        const uint64_t limit = input.below(2) == 0 ? value : input.spread();
        threshold.value = limit | uint64_t{input.byte()} << 32;  // the high half does not count
        const Wide difference = Wide{value} - static_cast<uint32_t>(limit);
        const bool passes[] = {difference == 0, difference > 0, difference >= 0, difference < 0, difference <= 0};
        pass[i] = threshold.op < std::size(passes) && passes[threshold.op];
    }
    const bool expected = request.thresholdNum < 2         ? pass[0]
                          : request.thresholdRelation == 1 ? pass[0] && pass[1]
                                                           : request.thresholdRelation == 2 && pass[1];
    REQUIRE(QOS_TLM_ThresholdFilter(&request, value) == (expected ? 1 : 0));
}

void checkTime(Input& input) {
    uint32_t times[4];
    std::generate(std::begin(times), std::end(times), [&] { return static_cast<uint32_t>(input.spread()); });
    const Wide seconds = Wide{times[2]} - times[0];
    const Wide expected = seconds * 1'000'000 + times[3] - times[1];
    REQUIRE(QOS_TLM_GetUsToTimeSpend(times[0], times[1], times[2], times[3]) ==
            (seconds < 0 || expected < 0 ? 0 : static_cast<uint64_t>(expected)));
    uint64_t digest = input.spread();
    const uint64_t value = input.spread();
    const Wide turned = Wide{digest} * 512;
    const auto folded = static_cast<uint64_t>(turned) | static_cast<uint64_t>(turned >> 64);
    QOS_TLM_IntegerHash(&digest, value);
    REQUIRE(digest == (folded ^ value));
}

std::string varint(uint64_t value) {
    std::string bytes;
    Wide rest = value;
    do {
        bytes += static_cast<char>(rest % 128 + (rest >= 128 ? 128 : 0));
        rest /= 128;
    } while (rest > 0);
    return bytes;
}

// What a writer must do with room for so many bytes, alone on the heap: all of it, or 0 and nothing beyond the room.
template <class Write>
void checkWriter(const std::string& expected, uint32_t room, Write write) {
    const auto dest = std::make_unique<uint8_t[]>(room);
    const uint32_t written = write(dest.get(), room);
    REQUIRE(written == (expected.size() <= room ? expected.size() : 0));
    REQUIRE(memcmp(dest.get(), expected.data(), written) == 0);
}

void checkWire(Input& input) {
    const auto field = static_cast<uint32_t>(input.spread());
    const uint64_t value = input.spread();
    const uint32_t room = input.below(24);
    const std::string text = input.text(20);
    const auto length = static_cast<uint32_t>(text.size());
    const std::string number = varint(value);
    const std::string tag = varint(static_cast<uint32_t>(Wide{field} * 8));
    const std::string textTag = varint(static_cast<uint32_t>(Wide{field} * 8 + 2));
    REQUIRE(QOS_TLM_CalcProtoIntSize(value) == number.size());
    REQUIRE(QOS_TLM_GetProtoIntegerSize(field, value) == tag.size() + number.size());
    REQUIRE(QOS_TLM_GetProtoStringSize(field, length) == tag.size() + 1 + length);
    const auto content = static_cast<uint32_t>(value % 0x7FFFFFFF);
    REQUIRE(QOS_TLM_GetProtoStructSize(field, content) == tag.size() + varint(content).size() + content);
    checkWriter(number, room,
                [&](uint8_t* dest, uint32_t size) { return QOS_TLM_WrapProtoInteger(value, dest, size); });
    checkWriter(textTag, room,
                [&](uint8_t* dest, uint32_t size) { return QOS_TLM_WrapProtoType(field, 2, dest, size); });
    checkWriter(tag + number, room,
                [&](uint8_t* dest, uint32_t size) { return QOS_TLM_WrapProtoNodeInteger(field, value, dest, size); });
    checkWriter(textTag + varint(length) + text, room, [&](uint8_t* dest, uint32_t size) {
        return QOS_TLM_WrapProtoNodeString(field, text.data(), length, dest, size);
    });
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::platform = {};
    Input input(data, size);
    constexpr void (*kChecks[])(Input&) = {checkTexts, checkThresholds, checkTime, checkWire};
    kChecks[input.byte() % std::size(kChecks)](input);  // a digit in a seed: '0' is the first
    return 0;
}
