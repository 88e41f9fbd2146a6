#include "platform/host_framework.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>

#include "devhost/platform/stand_in.h"

namespace {

/* In front of each block. The seal depends on the address, so that a copy of a block is no block. */
struct alignas(alignof(max_align_t)) BlockHeader {
    uintptr_t seal;
};

constexpr uintptr_t kSeal = 0x51ac0de5;

uintptr_t sealOf(uintptr_t address) {
    return address ^ kSeal;
}

std::atomic<const QosTlmFrmVtbl*> functionTable{nullptr};

}  // namespace

uint32_t COMP_GetVTable(uint32_t /*firstId*/, uint32_t /*secondId*/, const QosTlmFrmVtbl** table) {
    const QosTlmFrmVtbl* current = functionTable;
    if (table == nullptr || current == nullptr) {
        return 1;
    }
    *table = current;
    return 0;
}

void* NIVEX_AllocBuff(size_t size) {
    if (size > SIZE_MAX - sizeof(BlockHeader)) {
        return nullptr;
    }
    auto* header = static_cast<BlockHeader*>(std::malloc(sizeof(BlockHeader) + size));
    if (header == nullptr) {
        return nullptr;
    }
    header->seal = sealOf(reinterpret_cast<uintptr_t>(header));
    return header + 1;
}

void NIVEX_FreeBuff(void* block) {
    auto* header = block == nullptr ? nullptr : static_cast<BlockHeader*>(block) - 1;
    if (header == nullptr || header->seal != sealOf(reinterpret_cast<uintptr_t>(header))) {
        std::fprintf(stderr, "NIVEX_FreeBuff: %p is not a block of NIVEX_AllocBuff\n", block);
        std::abort();
    }
    header->seal = 0;
    std::free(header);
}

namespace devhost {

void setFunctionTable(const QosTlmFrmVtbl* table) {
    functionTable = table;
}

}  // namespace devhost
