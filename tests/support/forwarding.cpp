#include "support/forwarding.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <stdexcept>
#include <vector>

#include "support/plugin.h"
#include "support/untyped_call.h"

namespace forwarding {

namespace {

const char* const kFunctions[] = {
#define EXPORTED_FUNCTION(name) #name,
#include "exported_functions.inc"
};

// A jump to the address behind it.
#if defined(__x86_64__)
constexpr std::array<uint8_t, 6> kJump = {0xFF, 0x25};  // jmp *0(%rip)
#else
constexpr std::array<uint8_t, 8> kJump = {0x50, 0, 0, 0x58, 0, 2, 0x1F, 0xD6};  // ldr x16, .+8; br x16
#endif
using Code = std::array<uint8_t, kJump.size() + sizeof(void*)>;
static_assert(sizeof(Code) <= kRoomOfJump);

struct Function {
    uint8_t* entry = nullptr;  // of the plug-in's own
    Code code{};
    Code jump{};

    void jumpTo(void* target) {
        const auto page = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
        auto* start = entry - reinterpret_cast<uintptr_t>(entry) % page;
        const size_t size = static_cast<size_t>(entry - start) + sizeof(Code);
        ASSERT_EQ(mprotect(start, size, PROT_READ | PROT_WRITE | PROT_EXEC), 0);
        memcpy(code.data(), entry, code.size());
        memcpy(jump.data(), kJump.data(), kJump.size());
        memcpy(jump.data() + kJump.size(), &target, sizeof target);
        write(jump);
    }
    void write(const Code& bytes) const {
        if (by == By::jumps) {
            memcpy(entry, bytes.data(), bytes.size());
            auto* begin = reinterpret_cast<char*>(entry);
            __builtin___clear_cache(begin, begin + bytes.size());
        }
    }
};

By byEnvironment() {
    const char* wanted = getenv("NIVEX_QOS_FORWARD");
    if (wanted == nullptr) {
        return By::nothing;
    }
    if (std::string(wanted) != "symbols" && std::string(wanted) != "jumps") {
        throw std::invalid_argument("NIVEX_QOS_FORWARD is neither symbols nor jumps");
    }
    return *wanted == 's' ? By::symbols : By::jumps;
}

void* module = nullptr;
constexpr uint32_t kCount = std::size(kFunctions);
std::array<Function, kCount> functions;
std::vector<uint32_t> atWork = {kCount};                     // the innermost last; first a test
std::array<std::array<bool, kCount>, kCount + 1> isNoted{};  // by caller and callee

// Six numbers or pointers and a floating-point number: the registers that hold the arguments of any of them.
using AnyFunction = uint64_t (*)(uint64_t, uint64_t, uint64_t, uint64_t, uint64_t, uint64_t, double);

extern "C" QOS_TLM_API UNTYPED_CALL uint64_t forwardCall(uint32_t index, uint64_t a, uint64_t b, uint64_t c, uint64_t d,
                                                         uint64_t e, uint64_t f, double real) {
    const Function& function = functions[index];
    isNoted[atWork.back()][index] = true;
    atWork.push_back(index);
    function.write(function.code);
    const uint64_t result = reinterpret_cast<AnyFunction>(function.entry)(a, b, c, d, e, f, real);
    function.write(function.jump);
    atWork.pop_back();
    return result;
}

}  // namespace

By by = byEnvironment();

void loadModule() {
    if (by != By::nothing) {
        module = dlopen(NIVEX_QOS_FORWARDERS_FILE, RTLD_NOW | (by == By::symbols ? RTLD_GLOBAL : RTLD_LOCAL));
        ASSERT_NE(module, nullptr) << dlerror();
    }
}

void attach() {
    if (by == By::nothing) {
        return;
    }
    for (uint32_t i = 0; i < kCount; ++i) {
        functions[i].entry = static_cast<uint8_t*>(pluginsOwnSymbol(kFunctions[i]));
        if (by == By::jumps) {
            functions[i].jumpTo(dlsym(module, kFunctions[i]));
        }
    }
}

void unloadModule() {
    if (module != nullptr) {
        dlclose(module);
        module = nullptr;
    }
}

void* inFrontOf(const std::string& name) {
    return by == By::symbols ? dlsym(module, name.c_str()) : nullptr;
}

std::set<std::string> exportedFunctions() {
    return {std::begin(kFunctions), std::end(kFunctions)};
}

std::set<std::pair<std::string, std::string>> calls() {
    std::set<std::pair<std::string, std::string>> names;
    for (uint32_t caller = 0; caller <= kCount; ++caller) {
        for (uint32_t callee = 0; callee < kCount; ++callee) {
            if (isNoted[caller][callee]) {
                names.emplace(caller == kCount ? "" : kFunctions[caller], kFunctions[callee]);
            }
        }
    }
    return names;
}

}  // namespace forwarding
