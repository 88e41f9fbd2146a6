/*
 * The platform as the plug-in finds it in the test programs: host framework, log, patch service, clock, device
 * database, bounded functions and libdb_qos over tables in memory.
 *
 * A test or fuzz target sets and reads `platform`, plans failures with failCall(), and starts from reset(). Misuse by
 * the plug-in (an unknown block or object, a damaged guard, a wrong constant) is a test failure where it happens. Texts
 * lie alone on the heap and die with their row, so that a sanitizer sees each misuse. One thread only.
 */
#ifndef TESTS_SUPPORT_FAKE_PLATFORM_H
#define TESTS_SUPPORT_FAKE_PLATFORM_H

#include <sys/time.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "nivex_qos/cjson.h"
#include "nivex_qos/plugin.h"
#include "nivex_qos/tree.h"
#include "platform/patch_service.h"
#include "platform/qos_db_tables.h"

namespace fake {

// A row of each table, and the tables. A text without value is handed out as a null pointer.
#define FAKE_TYPE_UINT32 uint32_t
#define FAKE_TYPE_UINT64 uint64_t
#define FAKE_TYPE_TEXT std::optional<std::string>
#define FAKE_TYPE_BYTE uint8_t
#define FAKE_FIELD(table, column, kind, role) FAKE_TYPE_##kind column{};
#define FAKE_ROW(table, columns)   \
    struct table {                 \
        columns(FAKE_FIELD, table) \
    };
#define FAKE_TABLE(table, columns) std::vector<row::table> table;
namespace row {
QOS_DB_TABLES(FAKE_ROW)
}
struct Tables {
    QOS_DB_TABLES(FAKE_TABLE)
};
#undef FAKE_TABLE
#undef FAKE_ROW
#undef FAKE_FIELD

struct Registration {
    uint32_t moduleId;
    const char* xpath;
    std::array<uint8_t, sizeof(QosTlmXpathRegInfo)> record;
};

struct Upload {
    uint32_t moduleId;
    QosTlmSampleData sample;
};

struct Platform {
    std::vector<std::string> log;
    std::vector<const char*> calls;  // of every platform function, in order
    uint32_t uncleared = 0;          // blocks of a tree node's size that were not all 0 when they were freed
    std::vector<size_t> allocSizes;
    std::vector<Registration> registrations;
    std::vector<Upload> uploads;
    QosTlmFrmVtbl vtable{};
    const QosTlmFrmVtbl* vtableGiven = nullptr;  // what COMP_GetVTable stores; reset() points it at vtable
    TarnPatC2HHook hook = nullptr;
    void* restored = nullptr;  // handle given to TARN_PAT_RestoreForDLL
    Tables tables;
    uint64_t nowMs = 1'700'000'000'123;  // what the KAT_ clock shows
    std::deque<timeval> timesOfDay;      // what gettimeofday answers next; the real time when empty
    std::string cjsonFile;               // opened in place of libcjson.so when not empty
    int cjsonMode = 0;                   // flags of that dlopen

    // No call list, no calls that are planned to fail by name, no guards. Instead, of the calls that can fail one
    // fails, 1 for the next of all, and then again each time that so many have succeeded; 0: none.
    bool quick = false;
    uint32_t untilFailure = 0;
    uint32_t nextFailure = 0;
    uint32_t failureCode = 1;
    bool hasFailed = false;  // one of them, or a bounded function because of its arguments
};

extern Platform platform;

void reset();

// The nth next call of a platform function fails with code (functions that answer a pointer: with null).
void failCall(std::string_view function, uint32_t nth, uint32_t code = 1);
bool hasFailed(std::string_view function);  // the planned failure took place
void failNothing();

// From now on the ten cJSON functions are platform functions too, of which those that answer a pointer can fail.
void watchCjson(void* library, QosTlmCjsonFuncTable& functions);
size_t liveCjsonBlocks();

uint32_t callCount(std::string_view function);
std::vector<std::string> callsWith(std::string_view prefix);  // in order
std::vector<std::string> takeLog();

size_t liveBlocks();
size_t liveObjects();
void checkGuards();

}  // namespace fake

#endif
