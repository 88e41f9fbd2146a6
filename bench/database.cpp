#include "bench/database.h"

#include <dlfcn.h>
#include <fmt/core.h>

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <memory>
#include <string_view>

#include "bench/host.h"
#include "bench/tables.h"
#include "devhost/qosdb/qosdb.h"
#include "devhost/qosdb/store.h"
#include "devhost/qosdb/tables.h"
#include "nivex_qos/plugin.h"
#include "nivex_qos/queue_stat.h"
#include "nivex_qos/tracking.h"

namespace bench {

namespace {

constexpr size_t kRows = 1000;

// A database file, gone with its folder at the end of the program.
class File {
  public:
    File() {
        std::string name = (std::filesystem::temp_directory_path() / "qos_bench.XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr) {
            fail("no temporary folder");
        }
        folder_ = name;
        qosdb::Store store(path());
        qosdb::Round round = store.begin();
        round.replace(tables.queue_stat);
        round.commit();
    }
    ~File() {
        std::error_code ignored;
        std::filesystem::remove_all(folder_, ignored);
    }
    File(const File&) = delete;
    File& operator=(const File&) = delete;
    std::string path() const { return folder_ / "qos.db"; }

  private:
    std::filesystem::path folder_;
};

// What both sides make of the rows, so that nothing is read in vain.
struct Sum {
    uint64_t numbers = 0;
    size_t characters = 0;
    void add(uint64_t number) { numbers += number; }
    void add(const char* text) { characters += std::string_view(text).size(); }
    friend bool operator==(const Sum&, const Sum&) = default;
};

// libdb_qos itself: the program's own functions of the same names read from memory.
void* librarySymbol(const char* name) {
    static void* const library = dlopen(NIVEX_QOS_DB_FILE, RTLD_NOW | RTLD_LOCAL);
    void* symbol = library == nullptr ? nullptr : dlsym(library, name);
    if (symbol == nullptr) {
        fail(fmt::format("libdb_qos does not export {}", name));
    }
    return symbol;
}

#define LIBRARY(name) reinterpret_cast<decltype(&(name))>(librarySymbol(#name))

Sum readByLibrary() {
    static const auto create = LIBRARY(db_create_qos_tlm_queue_stat_obj);
    static const auto iterate = LIBRARY(db_create_root_iter);
    static const auto next = LIBRARY(db_root_iterator_next);
    static const auto release = LIBRARY(db_release_qos_tlm_queue_stat_object);
    void* object = nullptr;
    void* iterator = nullptr;
    if (create(5, 0, &object) != 0 || iterate(object, nullptr, nullptr, &iterator) != 0) {
        fail("libdb_qos cannot open the table");
    }
    Sum sum;
    uint32_t failed = 0;
#define BENCH_GET(table, column, kind, role)                                \
    {                                                                       \
        static const auto get = LIBRARY(db_get_qos_tlm_##table##_##column); \
        QOS_DB_TYPE_##kind value{};                                         \
        failed |= get(object, &value);                                      \
        sum.add(value);                                                     \
    }
    while (next(iterator) == 0) {
        QOS_DB_COLUMNS_QUEUE_STAT(BENCH_GET, queue_stat)
    }
#undef BENCH_GET
    release(object);
    if (failed != 0) {
        fail("libdb_qos cannot read a row");
    }
    return sum;
}

// The statement of libdb_qos, prepared once and stepped as SQLite's manual shows.
class Direct {
  public:
    explicit Direct(const std::string& path) {
        sqlite3* connection = nullptr;
        const int opened =
            sqlite3_open_v2(path.c_str(), &connection, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr);
        connection_.reset(connection);
        sqlite3_stmt* statement = nullptr;
        const std::string sql = qosdb::selectSql(qosdb::tableOf(qosdb::TableId::queue_stat));
        if (opened != SQLITE_OK || sqlite3_prepare_v3(connection, sql.c_str(), -1, SQLITE_PREPARE_PERSISTENT,
                                                      &statement, nullptr) != SQLITE_OK) {
            fail("SQLite cannot read the file");
        }
        statement_.reset(statement);
    }

    Sum read() const {
        sqlite3_stmt* const statement = statement_.get();
        Sum sum;
        while (sqlite3_step(statement) == SQLITE_ROW) {
            for (const int column : {0, 2, 3, 4, 5, 6, 7, 8, 9, 10}) {
                sum.add(static_cast<uint64_t>(sqlite3_column_int64(statement, column)));
            }
            sum.add(reinterpret_cast<const char*>(sqlite3_column_text(statement, 1)));
        }
        sqlite3_reset(statement);
        return sum;
    }

  private:
    qosdb::Connection connection_;
    qosdb::Statement statement_;
};

// A second plug-in, which libdb_qos serves: the first one is served by the program's own functions.
struct SecondPlugin {
    QosTlmQueryFunc query;  // queue statistics
    decltype(&QOS_HashRelease) forgetSent;
};

const SecondPlugin& secondPlugin(const std::string& copy) {
    static const SecondPlugin second = [&] {
        LIBRARY(QosDb_LastError);  // so that the copy finds it loaded
        std::filesystem::copy_file(NIVEX_QOS_PLUGIN_FILE, copy);
        void* const plugin = dlopen(copy.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_DEEPBIND);
        if (plugin == nullptr) {
            fail(dlerror());
        }
        const auto start = reinterpret_cast<decltype(&QOS_TLM_InitPlugin)>(dlsym(plugin, "QOS_TLM_InitPlugin"));
        const auto query = reinterpret_cast<QosTlmQueryFunc>(dlsym(plugin, "QOS_TLM_QueryQueueStat"));
        const auto forget = reinterpret_cast<decltype(&QOS_HashRelease)>(dlsym(plugin, "QOS_HashRelease"));
        if (start == nullptr || query == nullptr || forget == nullptr || start(1) != 0) {
            fail("the plug-in does not start twice");
        }
        return SecondPlugin{query, forget};
    }();
    return second;
}

void pass(QosTlmQueryFunc query) {
    const QosTlmQueryParam request{};
    uint32_t result = QOS_TLM_RESULT_MORE;
    while (result == QOS_TLM_RESULT_MORE) {
        result = query(1, 1, &request);
    }
    if (result != QOS_TLM_RESULT_DONE) {
        fail("a sampling call failed");
    }
}

void passOfOneState(QosTlmQueryFunc query) {
    LIBRARY(QosDb_BeginPass)();
    pass(query);
    LIBRARY(QosDb_EndPass)();
}

// Rows in a file, and who reads them there.
struct Sides {
    Sides() = default;
    ~Sides() { plugin.forgetSent(QOS_TLM_FAMILY_QUEUE); }  // in memory that is measured
    Sides(const Sides&) = delete;
    Sides& operator=(const Sides&) = delete;

    File file;
    Direct direct{file.path()};
    const SecondPlugin& plugin = secondPlugin(file.path() + ".so");
};
using SharedSides = std::shared_ptr<std::unique_ptr<Sides>>;

void arrange(const SharedSides& sides, size_t rows) {
    fillQueueStat(rows);
    *sides = std::make_unique<Sides>();
    LIBRARY(QosDb_SetFile)((*sides)->file.path().c_str());
}

Comparison passOverFile(size_t rows, const char* name, std::function<void(const Sides&)> peer, double goal) {
    const auto sides = std::make_shared<std::unique_ptr<Sides>>();
    return {fmt::format("whole pass over {} rows of a file, against {}", rows, name),
            [=] {
                arrange(sides, rows);
                const auto fromMemory = capture([] { pass(PLUGIN(QOS_TLM_QueryQueueStat)); });
                if (capture([&] { passOfOneState((*sides)->plugin.query); }).payloads != fromMemory.payloads) {
                    fail("the sides disagree: payload bytes");
                }
            },
            {"pass of one state", [=] { passOfOneState((*sides)->plugin.query); }},
            {name, [=] { peer(**sides); }},
            static_cast<double>(rows),
            goal};
}

}  // namespace

std::vector<Comparison> databaseComparisons() {
    const auto sides = std::make_shared<std::unique_ptr<Sides>>();
    return {
        {"libdb_qos over SQLite, a row read, against the statement stepped directly",
         [=] {
             arrange(sides, kRows);
             if (readByLibrary() != (*sides)->direct.read() || readByLibrary().numbers == 0) {
                 fail("the sides disagree: sums of the rows");
             }
         },
         {"libdb_qos", [] { readByLibrary(); }},
         {"sqlite3_step", [=] { (*sides)->direct.read(); }},
         kRows,
         1.3},
        passOverFile(
            32768, "SQLite reading them once", [](const Sides& on) { on.direct.read(); }, 25),
        passOverFile(
            8192, "the same without BeginPass", [](const Sides& on) { pass(on.plugin.query); }, 0.25),
    };
}

}  // namespace bench
