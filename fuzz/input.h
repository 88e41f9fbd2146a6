/*
 * What a fuzz target reads its input with, and how it reports a finding.
 *
 * An input never ends: what is missing reads as 0. REQUIRE aborts, which libFuzzer and the replay both report together
 * with the input.
 */
#ifndef FUZZ_INPUT_H
#define FUZZ_INPUT_H

#include <algorithm>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#define REQUIRE(condition)                                                               \
    do {                                                                                 \
        if (!(condition)) {                                                              \
            std::fprintf(stderr, "%s:%d: not so: %s\n", __FILE__, __LINE__, #condition); \
            std::abort();                                                                \
        }                                                                                \
    } while (false)

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace fuzz {

class Input {
  public:
    Input(const uint8_t* data, size_t size) : rest_(reinterpret_cast<const char*>(data), size) {}

    bool isOver() const { return rest_.empty(); }
    std::string_view rest() const { return rest_; }

    std::string_view bytes(size_t count) {
        const std::string_view taken = rest_.substr(0, count);
        rest_.remove_prefix(taken.size());
        return taken;
    }

    template <std::unsigned_integral Number>
    Number number() {
        uint64_t number = 0;
        for (const char byte : bytes(sizeof(Number))) {
            number = number << 8 | static_cast<uint8_t>(byte);
        }
        return static_cast<Number>(number);
    }
    uint8_t byte() { return number<uint8_t>(); }
    uint8_t below(uint8_t limit) { return static_cast<uint8_t>(byte() % limit); }

    // Of all sizes alike: one byte says how many of the low bits are kept.
    uint64_t spread() {
        const uint8_t bits = byte() % 64;
        return number<uint64_t>() >> bits;
    }

  private:
    std::string_view rest_;
};

}  // namespace fuzz

#endif
