#include "fuzz/platform.h"

#include <sys/time.h>

#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <ctime>
#include <memory>
#include <type_traits>
#include <vector>

#include "fuzz/input.h"
#include "nivex_qos/plugin.h"
#include "nivex_qos/tracking.h"
#include "platform/bounded.h"
#include "platform/device_db.h"
#include "platform/host_framework.h"
#include "platform/log.h"
#include "platform/patch_service.h"
#include "platform/qos_db.h"
#include "platform/system_time.h"

namespace fuzz {

Platform platform;

namespace {

bool failsNow() {
    if (platform.untilFailure == 0 || --platform.untilFailure != 0) {
        return false;
    }
    platform.untilFailure = platform.nextFailure;
    platform.hasFailed = true;
    return true;
}

#define MAY_FAIL()                         \
    if (failsNow()) {                      \
        return fuzz::platform.failureCode; \
    }

struct DbObject {
    uint32_t row = 0;  // 1 = on the first row
    size_t cursor = 0;
    std::vector<std::unique_ptr<char[]>> texts;

    uint8_t nextByte() {
        const std::string_view bytes = platform.rowBytes;
        return bytes.empty() ? 0 : static_cast<uint8_t>(bytes[cursor++ % bytes.size()]);
    }
};

template <std::unsigned_integral Number>
void read(DbObject& object, bool isKey, Number& value) {
    uint64_t number = object.row;
    if (!isKey || !platform.distinctKeys) {
        for (size_t i = 0; i < sizeof value; ++i) {
            number = number << 8 | object.nextByte();
        }
    }
    value = static_cast<Number>(number);
}

void read(DbObject& object, bool isKey, const char*& value) {
    std::string text = std::to_string(object.row);
    if (!isKey || !platform.distinctKeys) {
        const uint8_t length = object.nextByte();
        if (length == 0xFF) {
            value = nullptr;
            platform.hasFailed = true;
            return;
        }
        text.assign(length < 0xF0 ? length % 32 : 32, '\0');
        for (char& character : text) {
            character = static_cast<char>(object.nextByte());
            platform.isAscii &= static_cast<uint8_t>(character) < 0x80;
        }
        platform.hasFailed |= strlen(text.c_str()) == 32;
    }
    const size_t size = strlen(text.c_str()) + 1;
    char* lent = object.texts.emplace_back(std::make_unique<char[]>(size)).get();
    memcpy(lent, text.c_str(), size);
    value = lent;
}

template <class Value>
uint32_t access(void* object, bool isKey, Value* value) {
    MAY_FAIL()
    read(*static_cast<DbObject*>(object), isKey, *value);
    return 0;
}

uint32_t registerXpath(uint32_t, const char*, const QosTlmXpathRegInfo*) {
    return 0;
}

uint32_t upload(uint32_t, const QosTlmSampleData* sample) {
    MAY_FAIL()
    ++platform.uploads;
    platform.recordCount = sample->recordCount;
    platform.payload.assign(reinterpret_cast<const char*>(sample->data), sample->dataLen);
    return 0;
}

constexpr QosTlmFrmVtbl kTable = {{}, registerXpath, upload};

void split(uint64_t value, uint32_t* high, uint32_t* low) {
    *high = static_cast<uint32_t>(value >> 32);
    *low = static_cast<uint32_t>(value);
}

uint64_t millisecondsOf(const KatSystime* time) {
    return uint64_t{time->opaque[1]} << 32 | time->opaque[0];
}

// Slots are taken in order; key 0 leaves its mark in the first free one.
template <class Slot>
void clear(Slot (&slots)[QOS_TLM_TRACK_SLOT_NUM]) {
    for (Slot& slot : slots) {
        const bool last = slot.key == 0;
        slot = {};
        if (last) {
            break;
        }
    }
}

}  // namespace

void forget() {
    for (uint32_t family = 0; family < QOS_TLM_FAMILY_NUM; ++family) {
        QOS_HashRelease(family);
    }
    clear(g_qosTlmHisData);
    clear(g_qosTlmStatTime);
}

size_t sentKeys() {
    size_t count = 0;
    for (const auto& buckets : g_qosTlmHashData) {
        for (const QosTlmHashNode& bucket : buckets) {
            for (const QosTlmHashNode* node = bucket.next; node != nullptr; node = node->next) {
                ++count;
            }
        }
    }
    return count;
}

}  // namespace fuzz

using fuzz::failsNow;
using fuzz::platform;

uint32_t COMP_GetVTable(uint32_t, uint32_t, const QosTlmFrmVtbl** table) {
    *table = &fuzz::kTable;
    return 0;
}

void* NIVEX_AllocBuff(size_t size) {
    if (failsNow()) {
        return nullptr;
    }
    ++platform.blocks;
    return malloc(size);
}

void NIVEX_FreeBuff(void* block) {
    REQUIRE(block != nullptr);
    --platform.blocks;
    free(block);
}

int32_t IM_Agent_ReportLogById(uint32_t, uint32_t, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    REQUIRE(strlen(va_arg(arguments, const char*)) < 1024);
    va_end(arguments);
    return 0;
}

uint32_t TARN_PAT_C2HRegisterHook(TarnPatC2HHook) {
    return 0;
}
uint32_t TARN_PAT_RestoreForDLL(void*) {
    return 0;
}

void KAT_SystimeGet(KatSystime* now) {
    fuzz::split(platform.nowMs, &now->opaque[1], &now->opaque[0]);
}
void KAT_SystimeMsSince1970(const KatSystime* time, uint32_t* high, uint32_t* low) {
    fuzz::split(fuzz::millisecondsOf(time), high, low);
}
void KAT_SystimeSecSince1970(const KatSystime* time, uint32_t* high, uint32_t* low) {
    fuzz::split(fuzz::millisecondsOf(time) / 1000, high, low);
}

// Any numbers will do for a calendar; a year has five digits at most.
uint32_t KAT_SystimeSec2Time(uint64_t seconds, KatCalendar* calendar) {
    MAY_FAIL()
    memcpy(calendar, &seconds, sizeof seconds);
    return 0;
}

uint32_t DEVM_DB_GetGlobalSlotIdByLocalSlotId(uint32_t* globalSlot, uint32_t second, uint32_t first) {
    MAY_FAIL()
    *globalSlot = first * 1000 + second;
    return 0;
}

int strcpy_s(char* dest, size_t size, const char* source) {
    if (failsNow() || source == nullptr || strlen(source) >= size) {
        return ERANGE;
    }
    strcpy(dest, source);
    return 0;
}
int memcpy_s(void* dest, size_t size, const void* source, size_t count) {
    if (failsNow() || count > size) {
        return ERANGE;
    }
    memcpy(dest, source, count);
    return 0;
}
int memset_s(void* dest, size_t size, int byte, size_t count) {
    if (failsNow() || count > size) {
        return ERANGE;
    }
    memset(dest, byte, count);
    return 0;
}
int sprintf_s(char* dest, size_t size, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int length = failsNow() ? -1 : vsnprintf(dest, size, format, arguments);
    va_end(arguments);
    const bool fits = length >= 0 && length < static_cast<int>(size);
    platform.hasFailed |= !fits;
    return fits ? length : -1;
}
int sscanf_s(const char* text, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int items = failsNow() ? -1 : vsscanf(text, format, arguments);
    va_end(arguments);
    return items;
}
int vsnprintf_truncated_s(char* dest, size_t size, const char* format, va_list arguments) {
    return failsNow() ? -1 : std::min(vsnprintf(dest, size, format, arguments), static_cast<int>(size) - 1);
}

uint32_t db_create_root_iter(void* object, void*, void*, void** iterator) {
    MAY_FAIL()
    *iterator = object;
    return 0;
}

uint32_t db_root_iterator_next(void* iterator) {
    MAY_FAIL()
    auto& object = *static_cast<fuzz::DbObject*>(iterator);
    object.texts.clear();
    object.cursor = size_t{object.row} * platform.rowStep;
    return ++object.row <= platform.rowCount ? 0 : QOS_DB_END;
}

#define FUZZ_ROLE_KEY true
#define FUZZ_ROLE_QUEUE true
#define FUZZ_ROLE_VALUE false
#define FUZZ_ACCESSOR(table, column, kind, role)                                          \
    uint32_t db_get_qos_tlm_##table##_##column(void* object, QOS_DB_TYPE_##kind* value) { \
        return fuzz::access(object, FUZZ_ROLE_##role, value);                             \
    }
#define FUZZ_TABLE(table, columns)                                                \
    uint32_t db_create_qos_tlm_##table##_obj(uint32_t, uint32_t, void** object) { \
        MAY_FAIL()                                                                \
        ++platform.objects;                                                       \
        *object = new fuzz::DbObject;                                             \
        return 0;                                                                 \
    }                                                                             \
    void db_release_qos_tlm_##table##_object(void* object) {                      \
        --platform.objects;                                                       \
        delete static_cast<fuzz::DbObject*>(object);                              \
    }                                                                             \
    columns(FUZZ_ACCESSOR, table)
QOS_DB_TABLES(FUZZ_TABLE)

PLATFORM_API int gettimeofday(timeval* __restrict time, void* __restrict) noexcept {
    *time = {static_cast<time_t>(platform.nowMs / 1000), static_cast<suseconds_t>(platform.nowMs % 1000 * 1000)};
    return failsNow() ? -1 : 0;
}
