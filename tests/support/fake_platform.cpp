#include "support/fake_platform.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <map>
#include <memory>
#include <set>

#include "platform/bounded.h"
#include "platform/device_db.h"
#include "platform/host_framework.h"
#include "platform/log.h"
#include "platform/qos_db.h"
#include "platform/system_time.h"

namespace fake {

Platform platform;

namespace {

struct Plan {
    uint32_t calls = 0;
    std::optional<uint32_t> failAt{};
    uint32_t code = 0;
    bool failed = false;
};

struct DbObject {
    const void* table;
    size_t rowCount;
    size_t position = 0;                          // 1 = on the first row
    DbObject* iterator = nullptr;                 // its address is the iterator
    std::vector<std::unique_ptr<char[]>> lent{};  // texts handed out, gone with the next row
};

std::map<std::string, Plan, std::less<>> plans;
std::map<void*, size_t> blocks;
size_t quickBlocks = 0;
std::set<void*> objects;

constexpr size_t kGuard = 16;
constexpr uint8_t kGuardByte = 0xA7;
constexpr int kFreshByte = 0xCD;
constexpr int kFreedByte = 0xDD;

Plan& planOf(std::string_view function) {
    const auto found = plans.find(function);
    return found != plans.end() ? found->second : plans[std::string(function)];
}

// Notes a call of a platform function; answers whether, and with what code, it is to fail.
std::optional<uint32_t> failureOf(const char* function) {
    if (platform.quick) {
        if (platform.untilFailure == 0 || --platform.untilFailure != 0) {
            return std::nullopt;
        }
        platform.untilFailure = platform.nextFailure;
        platform.hasFailed = true;
        return platform.failureCode;
    }
    platform.calls.push_back(function);
    Plan& plan = planOf(function);
    ++plan.calls;
    if (plan.failAt != plan.calls) {
        return std::nullopt;
    }
    plan.failed = true;
    return plan.code;
}

// Notes a call of one that cannot fail.
void noteCall(const char* function) {
    if (!platform.quick) {
        (void)failureOf(function);
    }
}

#define MAY_FAIL(function)                       \
    if (const auto code = failureOf(function)) { \
        return *code;                            \
    }

void checkBlock(const uint8_t* block, size_t size) {
    for (const uint8_t* guard : {block - kGuard, block + size}) {
        EXPECT_TRUE(std::all_of(guard, guard + kGuard, [](uint8_t byte) { return byte == kGuardByte; }))
            << "written " << (guard < block ? "before" : "behind") << " a block of " << size << " bytes";
    }
}

uint32_t registerXpath(uint32_t moduleId, const char* xpath, const QosTlmXpathRegInfo* info) {
    MAY_FAIL("sampleXpathRegister")
    platform.registrations.push_back({moduleId, xpath, {}});
    memcpy(platform.registrations.back().record.data(), info, sizeof *info);
    return 0;
}

uint32_t upload(uint32_t moduleId, const QosTlmSampleData* sample) {
    MAY_FAIL("sampleDataUpload")
    platform.uploads.push_back({moduleId, *sample});
    return 0;
}

template <typename Row>
uint32_t createObject(const char* function, const std::vector<Row>& table, uint32_t first, uint32_t second,
                      void** object) {
    EXPECT_EQ(first, 5u);
    EXPECT_EQ(second, 0u);
    MAY_FAIL(function)
    *object = new DbObject{&table, table.size()};
    objects.insert(*object);
    return 0;
}

void releaseObject(const char* function, void* object) {
    noteCall(function);
    ASSERT_EQ(objects.erase(object), 1u) << function << " of an object that does not exist";
    delete static_cast<DbObject*>(object);
}

template <typename T>
void handOut(DbObject&, const T& field, T* value) {
    *value = field;
}
void handOut(DbObject& object, const std::optional<std::string>& field, const char** value) {
    *value = nullptr;
    if (field) {
        char* lent = object.lent.emplace_back(std::make_unique<char[]>(strlen(field->c_str()) + 1)).get();
        *value = strcpy(lent, field->c_str());
    }
}

template <typename Row, typename Field, typename Value>
uint32_t access(const char* function, void* object, const std::vector<Row>& table, Field Row::*field, Value* value) {
    MAY_FAIL(function)
    auto& db = *static_cast<DbObject*>(object);
    if (db.table != &table || db.position == 0 || db.position > table.size()) {
        ADD_FAILURE() << function << " of an object that stands on no record of the table";
        return 1;
    }
    handOut(db, table[db.position - 1].*field, value);
    return 0;
}

void split(uint64_t value, uint32_t* high, uint32_t* low) {
    *high = static_cast<uint32_t>(value >> 32);
    *low = static_cast<uint32_t>(value);
}

uint64_t millisecondsOf(const KatSystime* time) {
    return (uint64_t{time->opaque[2]} << 32) | time->opaque[1];
}

// What a bounded function answers: the planned failure, which copies nothing, or whether its arguments will do.
int boundedResult(const char* function, const void* dest, const void* source, bool fits) {
    if (const auto code = failureOf(function)) {
        return static_cast<int>(*code);
    }
    const int result = dest == nullptr || source == nullptr ? EINVAL : fits ? 0 : ERANGE;
    platform.hasFailed |= result != 0;
    return result;
}

QosTlmCjsonFuncTable cjson;
size_t cjsonBlocks = 0;

// A function of cJSON in its slot of the table.
template <auto Slot, class Function = decltype(Slot)>
struct Watched;
template <auto Slot, class Result, class... Arguments>
struct Watched<Slot, Result (*QosTlmCjsonFuncTable::*)(Arguments...)> {
    static inline const char* name;
    static Result call(Arguments... arguments) {
        const bool fails = failureOf(name).has_value();
        if constexpr (std::is_pointer_v<Result>) {
            return fails ? nullptr : (cjson.*Slot)(arguments...);
        } else {
            (cjson.*Slot)(arguments...);
        }
    }
};

}  // namespace

#define WATCH(slot, function)                                \
    Watched<& QosTlmCjsonFuncTable::slot>::name = #function; \
    functions.slot = Watched<&QosTlmCjsonFuncTable::slot>::call;

void watchCjson(void* library, QosTlmCjsonFuncTable& functions) {
    cjson = functions;
    WATCH(createNumber, cJSON_CreateNumber)
    WATCH(createString, cJSON_CreateString)
    WATCH(createBool, cJSON_CreateBool)
    WATCH(createObject, cJSON_CreateObject)
    WATCH(createArray, cJSON_CreateArray)
    WATCH(addItemToObj, cJSON_AddItemToObject)
    WATCH(addItemToArr, cJSON_AddItemToArray)
    WATCH(cjsonFree, cJSON_free)
    WATCH(nodeFree, cJSON_Delete)
    WATCH(printUnfmt, cJSON_PrintUnformatted)
    struct Hooks {
        void* (*alloc)(size_t);
        void (*free)(void*);
    } hooks{[](size_t size) { return ++cjsonBlocks, malloc(size); },
            [](void* block) {
                cjsonBlocks -= block != nullptr ? 1 : 0;
                free(block);
            }};
    reinterpret_cast<void (*)(Hooks*)>(dlsym(library, "cJSON_InitHooks"))(&hooks);
}

size_t liveCjsonBlocks() {
    return cjsonBlocks;
}

void reset() {
    platform = Platform{};
    platform.vtable.sampleXpathRegister = registerXpath;
    platform.vtable.sampleDataUpload = upload;
    platform.vtableGiven = &platform.vtable;
    plans.clear();
}

void failCall(std::string_view function, uint32_t nth, uint32_t code) {
    Plan& plan = planOf(function);
    plan = {plan.calls, plan.calls + nth, code, false};
}

bool hasFailed(std::string_view function) {
    return planOf(function).failed;
}

void failNothing() {
    for (auto& [function, plan] : plans) {
        plan.failAt.reset();
    }
}

uint32_t callCount(std::string_view function) {
    return planOf(function).calls;
}

std::vector<std::string> callsWith(std::string_view prefix) {
    std::vector<std::string> found;
    std::copy_if(platform.calls.begin(), platform.calls.end(), std::back_inserter(found),
                 [&](std::string_view call) { return call.substr(0, prefix.size()) == prefix; });
    return found;
}

std::vector<std::string> takeLog() {
    return std::exchange(platform.log, {});
}

size_t liveBlocks() {
    return blocks.size() + quickBlocks;
}
size_t liveObjects() {
    return objects.size();
}

void checkGuards() {
    for (const auto& [block, size] : blocks) {
        checkBlock(static_cast<const uint8_t*>(block), size);
    }
}

}  // namespace fake

using fake::failureOf;
using fake::noteCall;
using fake::platform;

// Host framework.

uint32_t COMP_GetVTable(uint32_t firstId, uint32_t secondId, const QosTlmFrmVtbl** table) {
    EXPECT_EQ(firstId, 1000u);
    EXPECT_EQ(secondId, 1000u);
    MAY_FAIL(__func__)
    *table = platform.vtableGiven;
    return 0;
}

void* NIVEX_AllocBuff(size_t size) {
    if (!platform.quick) {
        platform.allocSizes.push_back(size);
    }
    if (failureOf(__func__)) {
        return nullptr;
    }
    if (platform.quick) {
        ++fake::quickBlocks;
        return malloc(size);
    }
    auto* memory = static_cast<uint8_t*>(malloc(size + 2 * fake::kGuard));
    memset(memory, fake::kGuardByte, size + 2 * fake::kGuard);
    memset(memory + fake::kGuard, fake::kFreshByte, size);
    fake::blocks[memory + fake::kGuard] = size;
    return memory + fake::kGuard;
}

void NIVEX_FreeBuff(void* block) {
    if (platform.quick) {
        --fake::quickBlocks;
        return free(block);
    }
    noteCall(__func__);
    const auto found = fake::blocks.find(block);
    ASSERT_NE(found, fake::blocks.end()) << "NIVEX_FreeBuff of a block that does not exist";
    auto* bytes = static_cast<uint8_t*>(block);
    fake::checkBlock(bytes, found->second);
    platform.uncleared += found->second == sizeof(QosTlmNode) &&
                          std::any_of(bytes, bytes + found->second, [](auto each) { return each != 0; });
    static void* (*const volatile fill)(void*, int, size_t) = memset;  // not optimised away before free
    fill(bytes, fake::kFreedByte, found->second);
    fake::blocks.erase(found);
    free(bytes - fake::kGuard);
}

// Log, patch service, clock, device database.

int32_t IM_Agent_ReportLogById(uint32_t level, uint32_t logId, const char* format, ...) {
    EXPECT_EQ(level, 9u);
    EXPECT_EQ(logId, 157421656u);
    EXPECT_STREQ(format, "%s");
    va_list arguments;
    va_start(arguments, format);
    platform.log.emplace_back(va_arg(arguments, const char*));
    va_end(arguments);
    return static_cast<int32_t>(failureOf(__func__).value_or(0));
}

uint32_t TARN_PAT_C2HRegisterHook(TarnPatC2HHook hook) {
    MAY_FAIL(__func__)
    platform.hook = hook;
    return 0;
}

uint32_t TARN_PAT_RestoreForDLL(void* handle) {
    platform.restored = handle;
    return failureOf(__func__).value_or(0);
}

void KAT_SystimeGet(KatSystime* now) {
    noteCall(__func__);
    EXPECT_EQ(now->opaque[0] | now->opaque[1] | now->opaque[2], 0u) << "system time not zeroed before use";
    now->opaque[0] = 12;
    fake::split(platform.nowMs, &now->opaque[2], &now->opaque[1]);
}

void KAT_SystimeMsSince1970(const KatSystime* time, uint32_t* high, uint32_t* low) {
    noteCall(__func__);
    fake::split(fake::millisecondsOf(time), high, low);
}

void KAT_SystimeSecSince1970(const KatSystime* time, uint32_t* high, uint32_t* low) {
    noteCall(__func__);
    fake::split(fake::millisecondsOf(time) / 1000, high, low);
}

uint32_t KAT_SystimeSec2Time(uint64_t seconds, KatCalendar* calendar) {
    EXPECT_EQ(calendar->year | calendar->month | calendar->second, 0) << "calendar not zeroed before use";
    MAY_FAIL(__func__)
    tm utc{};
    const auto time = static_cast<time_t>(seconds);
    gmtime_r(&time, &utc);
    *calendar = {static_cast<uint16_t>(utc.tm_year + 1900),
                 static_cast<uint8_t>(utc.tm_mon + 1),
                 static_cast<uint8_t>(utc.tm_mday),
                 static_cast<uint8_t>(utc.tm_hour),
                 static_cast<uint8_t>(utc.tm_min),
                 static_cast<uint8_t>(utc.tm_sec),
                 {0xA5, 0xA5, 0xA5, 0xA5, 0xA5}};
    return 0;
}

uint32_t DEVM_DB_GetGlobalSlotIdByLocalSlotId(uint32_t* globalSlot, uint32_t second, uint32_t first) {
    MAY_FAIL(__func__)
    *globalSlot = first * 1000 + second;
    return 0;
}

// Bounded functions.

int strcpy_s(char* dest, size_t size, const char* source) {
    const int result = fake::boundedResult(__func__, dest, source, source != nullptr && strlen(source) < size);
    return result != 0 ? result : (strcpy(dest, source), 0);
}

int memcpy_s(void* dest, size_t size, const void* source, size_t count) {
    const int result = fake::boundedResult(__func__, dest, source, count <= size);
    return result != 0 ? result : (memcpy(dest, source, count), 0);
}

int memset_s(void* dest, size_t size, int byte, size_t count) {
    const int result = fake::boundedResult(__func__, dest, dest, count <= size);
    return result != 0 ? result : (memset(dest, byte, count), 0);
}

int sprintf_s(char* dest, size_t size, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int length = failureOf(__func__) ? -1 : vsnprintf(dest, size, format, arguments);
    va_end(arguments);
    platform.hasFailed |= length >= static_cast<int>(size);
    return length < static_cast<int>(size) ? length : -1;
}

int sscanf_s(const char* text, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int items = failureOf(__func__) ? -1 : vsscanf(text, format, arguments);
    va_end(arguments);
    return items;
}

int vsnprintf_truncated_s(char* dest, size_t size, const char* format, va_list arguments) {
    return failureOf(__func__) ? -1 : std::min(vsnprintf(dest, size, format, arguments), static_cast<int>(size) - 1);
}

// libdb_qos.

uint32_t db_create_root_iter(void* object, void* first, void* second, void** iterator) {
    EXPECT_EQ(first, nullptr);
    EXPECT_EQ(second, nullptr);
    MAY_FAIL(__func__)
    auto* db = static_cast<fake::DbObject*>(object);
    db->iterator = db;
    *iterator = &db->iterator;
    return 0;
}

uint32_t db_root_iterator_next(void* iterator) {
    MAY_FAIL(__func__)
    fake::DbObject& db = **static_cast<fake::DbObject**>(iterator);
    db.lent.clear();
    return ++db.position <= db.rowCount ? 0 : QOS_DB_END;
}

#define FAKE_ACCESSOR(table, column, kind, role)                                                        \
    uint32_t db_get_qos_tlm_##table##_##column(void* object, QOS_DB_TYPE_##kind* value) {               \
        return fake::access(__func__, object, platform.tables.table, &fake::row::table::column, value); \
    }
#define FAKE_TABLE(table, columns)                                                             \
    uint32_t db_create_qos_tlm_##table##_obj(uint32_t first, uint32_t second, void** object) { \
        return fake::createObject(__func__, platform.tables.table, first, second, object);     \
    }                                                                                          \
    void db_release_qos_tlm_##table##_object(void* object) {                                   \
        fake::releaseObject(__func__, object);                                                 \
    }                                                                                          \
    columns(FAKE_ACCESSOR, table)
QOS_DB_TABLES(FAKE_TABLE)

// The C library's functions whose failure matters; they answer the plug-in's calls because the program comes first.

PLATFORM_API int gettimeofday(timeval* __restrict time, void* __restrict) noexcept {
    if (failureOf("gettimeofday")) {
        return -1;
    }
    if (platform.timesOfDay.empty()) {
        timespec now{};
        clock_gettime(CLOCK_REALTIME, &now);
        *time = {now.tv_sec, now.tv_nsec / 1000};
        return 0;
    }
    *time = platform.timesOfDay.front();
    platform.timesOfDay.pop_front();
    return 0;
}

PLATFORM_API void* dlopen(const char* file, int mode) noexcept {
    static const auto real = reinterpret_cast<void* (*)(const char*, int)>(dlsym(RTLD_NEXT, "dlopen"));
    if (file == nullptr || strcmp(file, "libcjson.so") != 0) {
        return real(file, mode);
    }
    platform.cjsonMode = mode;
    return failureOf("dlopen") ? nullptr : real(platform.cjsonFile.empty() ? file : platform.cjsonFile.c_str(), mode);
}
