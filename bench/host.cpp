#include "bench/host.h"

#include <dlfcn.h>
#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "devhost/platform/stand_in.h"
#include "platform/bounded.h"
#include "platform/host_framework.h"
#include "platform/log.h"
#include "platform/patch_service.h"

namespace bench {

Calls calls;
Memory memory;
bool expectsMessages = false;

namespace {

constexpr size_t kStep = 16;
constexpr size_t kLargest = 64 * 1024;
constexpr uint64_t kNowMs = 1'790'000'000'000;

// In front of each block; as long as the strictest alignment.
struct alignas(kStep) Header {
    size_t size;
    Header* nextFree;
};
std::array<Header*, kLargest / kStep + 1> freeLists;

std::vector<QosTlmSampleData>* captured = nullptr;

uint32_t takeUpload(uint32_t /*moduleId*/, const QosTlmSampleData* sample) {
    ++calls.uploads;
    if (captured != nullptr) {
        captured->push_back(*sample);
    }
    return 0;
}

uint32_t takeRegistration(uint32_t /*moduleId*/, const char* /*xpath*/, const QosTlmXpathRegInfo* /*info*/) {
    return 0;
}

const QosTlmFrmVtbl kHostTable = [] {
    QosTlmFrmVtbl table{};
    table.sampleXpathRegister = takeRegistration;
    table.sampleDataUpload = takeUpload;
    return table;
}();

int copied(size_t count) {
    ++calls.copies;
    calls.copiedBytes += count;
    return 0;
}

}  // namespace

Calls operator-(const Calls& left, const Calls& right) {
    return {left.blocks - right.blocks, left.blockBytes - right.blockBytes, left.copies - right.copies,
            left.copiedBytes - right.copiedBytes, left.uploads - right.uploads};
}

void resetPeak() {
    memory.peakBytes = memory.bytes;
}

Capture capture(const std::function<void()>& run) {
    std::vector<QosTlmSampleData> samples;
    captured = &samples;
    const Calls before = calls;
    run();
    captured = nullptr;
    Capture result;
    result.calls = calls - before;
    for (const QosTlmSampleData& sample : samples) {
        result.payloads.emplace_back(reinterpret_cast<const char*>(sample.data), sample.dataLen);
        result.recordCounts.push_back(sample.recordCount);
    }
    return result;
}

void upload(const QosTlmSampleData* sample) {
    kHostTable.sampleDataUpload(0, sample);
}

void* pluginSymbol(const char* name) {
    static void* const library = [] {
        void* loaded = dlopen(NIVEX_QOS_PLUGIN_FILE, RTLD_NOW | RTLD_LOCAL);
        if (loaded == nullptr) {
            fail(dlerror());
        }
        devhost::setClock(kNowMs);
        const auto start = reinterpret_cast<decltype(&QOS_TLM_InitPlugin)>(dlsym(loaded, "QOS_TLM_InitPlugin"));
        if (start == nullptr || start(1) != 0) {
            fail("the plug-in does not start");
        }
        return loaded;
    }();
    void* symbol = dlsym(library, name);
    if (symbol == nullptr) {
        fail(fmt::format("the plug-in does not export {}", name));
    }
    return symbol;
}

void fail(const std::string& message) {
    fmt::print(stderr, "qos_bench: {}\n", message);
    std::exit(1);
}

}  // namespace bench

using bench::calls;
using bench::copied;
using bench::Header;
using bench::memory;

uint32_t COMP_GetVTable(uint32_t /*firstId*/, uint32_t /*secondId*/, const QosTlmFrmVtbl** table) {
    *table = &bench::kHostTable;
    return 0;
}

void* NIVEX_AllocBuff(size_t size) {
    ++calls.blocks;
    calls.blockBytes += size;
    ++memory.blocks;
    memory.bytes += size;
    memory.peakBytes = std::max(memory.peakBytes, memory.bytes);
    const size_t list = (size + bench::kStep - 1) / bench::kStep;
    Header* header = nullptr;
    if (size <= bench::kLargest && bench::freeLists[list] != nullptr) {
        header = bench::freeLists[list];
        bench::freeLists[list] = header->nextFree;
    } else {
        header = static_cast<Header*>(std::aligned_alloc(bench::kStep, sizeof(Header) + list * bench::kStep));
        if (header == nullptr) {
            bench::fail("out of memory");
        }
    }
    header->size = size;
    return header + 1;
}

void NIVEX_FreeBuff(void* block) {
    Header* header = static_cast<Header*>(block) - 1;
    --memory.blocks;
    memory.bytes -= header->size;
    if (header->size > bench::kLargest) {
        return std::free(header);
    }
    Header*& list = bench::freeLists[(header->size + bench::kStep - 1) / bench::kStep];
    header->nextFree = list;
    list = header;
}

int32_t IM_Agent_ReportLogById(uint32_t /*level*/, uint32_t /*logId*/, const char* format, ...) {
    if (bench::expectsMessages) {
        return 0;
    }
    va_list arguments;
    va_start(arguments, format);
    bench::fail(fmt::format("message of the plug-in: {}", va_arg(arguments, const char*)));
}

uint32_t TARN_PAT_C2HRegisterHook(TarnPatC2HHook /*hook*/) {
    return 0;
}

uint32_t TARN_PAT_RestoreForDLL(void* /*handle*/) {
    return 0;
}

int strcpy_s(char* dest, size_t size, const char* source) {
    if (dest == nullptr || source == nullptr) {
        return EINVAL;
    }
    const size_t length = strnlen(source, size);
    if (length == size) {
        return ERANGE;
    }
    std::memcpy(dest, source, length + 1);
    return copied(length + 1);
}

int memcpy_s(void* dest, size_t size, const void* source, size_t count) {
    if (dest == nullptr || source == nullptr) {
        return EINVAL;
    }
    if (count > size) {
        return ERANGE;
    }
    std::memcpy(dest, source, count);
    return copied(count);
}

int memset_s(void* dest, size_t size, int byte, size_t count) {
    if (dest == nullptr || count > size) {
        return EINVAL;
    }
    std::memset(dest, byte, count);
    return 0;
}

int sprintf_s(char* dest, size_t size, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(dest, size, format, arguments);
    va_end(arguments);
    return length >= 0 && static_cast<size_t>(length) < size ? length : -1;
}

int sscanf_s(const char* text, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int items = std::vsscanf(text, format, arguments);
    va_end(arguments);
    return items;
}

int vsnprintf_truncated_s(char* dest, size_t size, const char* format, va_list arguments) {
    return std::vsnprintf(dest, size, format, arguments);
}
