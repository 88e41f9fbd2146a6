#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <functional>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include "devhost/platform/stand_in.h"
#include "devhost/qosdb/qosdb.h"
#include "devhost/qosdb/store.h"
#include "platform/qos_db.h"

namespace {

using qosdb::Round;
using qosdb::Store;
using qosdb::StoreError;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using Ecn = qosdb::row::port_ecn_stat;
namespace fs = std::filesystem;

/* The C functions of a row's table; read() answers the sum of the accessors' codes, as a reader of records does. */
template <class Row>
struct Face;
#define READ_COLUMN(table, column, kind, role)                              \
    {                                                                       \
        QOS_DB_TYPE_##kind value{};                                         \
        const uint32_t code = db_get_qos_tlm_##table##_##column(o, &value); \
        sum += code;                                                        \
        if (code == 0) {                                                    \
            row.column = value;                                             \
        }                                                                   \
    }
#define FACE(table, columns)                                                 \
    template <>                                                              \
    struct Face<qosdb::row::table> {                                         \
        static constexpr auto create = db_create_qos_tlm_##table##_obj;      \
        static constexpr auto release = db_release_qos_tlm_##table##_object; \
        static uint32_t read(void* o, qosdb::row::table& row) {              \
            uint32_t sum = 0;                                                \
            columns(READ_COLUMN, table) return sum;                          \
        }                                                                    \
    };
QOS_DB_TABLES(FACE)
#undef FACE
#undef READ_COLUMN

/* A database object with its iterator. */
template <class Row>
class Object {
  public:
    Object() {
        code_ = Face<Row>::create(5, 0, &object_);
        if (code_ == 0) {
            code_ = db_create_root_iter(object_, nullptr, nullptr, &iterator_);
        }
    }
    ~Object() { Face<Row>::release(object_); }
    Object(const Object&) = delete;
    Object& operator=(const Object&) = delete;

    uint32_t code() const { return code_; }
    void* object() const { return object_; }
    uint32_t next() { return db_root_iterator_next(iterator_); }

    /* The records that are left. */
    std::vector<Row> rest() {
        std::vector<Row> rows;
        uint32_t code = 0;
        while ((code = next()) == 0) {
            EXPECT_EQ(Face<Row>::read(object_, rows.emplace_back()), 0u) << QosDb_LastError();
        }
        EXPECT_EQ(code, QOS_DB_END);
        return rows;
    }

  private:
    uint32_t code_ = 0;
    void* object_ = nullptr;
    void* iterator_ = nullptr;
};

std::vector<Ecn> ecnRows(std::initializer_list<uint32_t> ifIndices) {
    std::vector<Ecn> rows;
    for (const uint32_t ifIndex : ifIndices) {
        rows.push_back({ifIndex, "eth" + std::to_string(ifIndex), ifIndex * 10});
    }
    return rows;
}

template <class Row>
void write(Store& store, const std::vector<Row>& rows) {
    Round round = store.begin();
    round.replace(rows);
    round.commit();
}

std::string messageOf(const std::function<void()>& action) {
    try {
        action();
    } catch (const StoreError& error) {
        return error.what();
    }
    return "no StoreError";
}

class QosDb : public testing::Test {
  protected:
    QosDb() {
        std::string name = (fs::temp_directory_path() / "qosdb-test-XXXXXX").string();
        directory_ = mkdtemp(name.data());
        use("qos.db");
        devhost::setLogSink([this](uint32_t level, uint32_t logId, std::string_view text) {
            EXPECT_EQ(level, QOS_DB_LOG_LEVEL);
            EXPECT_EQ(logId, QOS_DB_LOG_ID);
            logged_.emplace_back(text);
        });
    }
    ~QosDb() override {
        devhost::setLogSink(nullptr);
        QosDb_SetFile(nullptr);
        fs::remove_all(directory_);
    }

    void use(const std::string& name) {
        path_ = directory_ / name;
        QosDb_SetFile(path_.c_str());
    }

    /* As another program changes the file, or makes it. */
    void sql(const std::string& text) const {
        sqlite3* opened = nullptr;
        sqlite3_open(path_.c_str(), &opened);
        const qosdb::Connection connection(opened);
        EXPECT_EQ(sqlite3_exec(opened, text.c_str(), nullptr, nullptr, nullptr), SQLITE_OK) << sqlite3_errmsg(opened);
    }

    /* Checks that the last message went to the log as well, and answers it. */
    std::string lastMessage() const {
        EXPECT_FALSE(logged_.empty());
        EXPECT_EQ(logged_.empty() ? "" : logged_.back(), QosDb_LastError());
        return QosDb_LastError();
    }

    size_t openFiles() const {
        const auto opened = fs::directory_iterator("/proc/self/fd");
        return static_cast<size_t>(std::count_if(begin(opened), end(opened), [&](const auto& entry) {
            std::error_code gone;
            return fs::read_symlink(entry, gone).string().starts_with(path_.string());
        }));
    }

    fs::path directory_;
    fs::path path_;
    std::vector<std::string> logged_;
};

enum class Fill { kZero, kMax, kDistinct };

template <class Row>
Row filled(Fill fill) {
    Row row;
    uint8_t count = 0;
    Row::forEachColumn(row, [&]<class Field>(Field& field) {
        ++count;
        if constexpr (std::is_same_v<Field, std::string>) {
            field = fill == Fill::kZero  ? ""
                    : fill == Fill::kMax ? std::string(27, 'x') + "\x1b\n\xff\x80"  // as a kernel may name it
                                         : "text " + std::to_string(count);
        } else {
            field = fill == Fill::kZero  ? Field{0}
                    : fill == Fill::kMax ? std::numeric_limits<Field>::max()
                                         : Field{count};
        }
    });
    return row;
}

template <class Row>
uint32_t* queueOf(Row& row) {
    if constexpr (requires { row.queueId; }) {
        return &row.queueId;
    } else if constexpr (requires { row.queue; }) {
        return &row.queue;
    } else if constexpr (requires { row.queue_index; }) {
        return &row.queue_index;
    }
    return nullptr;
}

template <class Row>
void expectRoundTrip(Store& store) {
    // Keys neither ascending nor descending: rows come back in the order in which they were written.
    std::vector<Row> rows = {filled<Row>(Fill::kDistinct), filled<Row>(Fill::kMax), filled<Row>(Fill::kZero)};
    if (uint32_t* queue = queueOf(rows[1])) {
        *queue = 8;  // the plug-in would take it for queue 0 of the next interface
        EXPECT_THAT(messageOf([&] { write(store, rows); }),
                    AllOf(HasSubstr("table " + std::string(tableOf(Row::kTable).name)), HasSubstr(" BETWEEN 0 AND 7")));
        *queue = 7;
    }
    write(store, rows);
    EXPECT_TRUE(store.read<Row>() == rows);
    Object<Row> object;
    ASSERT_EQ(object.code(), 0u) << QosDb_LastError();
    EXPECT_TRUE(object.rest() == rows);
}

TEST_F(QosDb, EveryColumnOfEveryTableRoundTrips) {
    Store store(path_);
#define ROUND_TRIP(table, columns)                 \
    {                                              \
        SCOPED_TRACE(#table);                      \
        expectRoundTrip<qosdb::row::table>(store); \
    }
    QOS_DB_TABLES(ROUND_TRIP)
#undef ROUND_TRIP
    EXPECT_THAT(logged_, testing::IsEmpty());
}

TEST_F(QosDb, AnObjectKeepsTheStateInWhichItWasMade) {
    Store store(path_);
    write(store, ecnRows({1, 2, 3}));
    {
        Object<Ecn> old;
        write(store, ecnRows({7, 8}));  // not held up by the reader
        ASSERT_EQ(old.next(), 0u);
        {
            Round abandoned = store.begin();
            abandoned.replace(ecnRows({9}));
            EXPECT_TRUE(Object<Ecn>().rest() == ecnRows({7, 8}));
        }
        EXPECT_TRUE(Object<Ecn>().rest() == ecnRows({7, 8}));
        EXPECT_TRUE(old.rest() == ecnRows({2, 3}));
    }
    EXPECT_TRUE(Object<Ecn>().rest() == ecnRows({7, 8}));
}

TEST_F(QosDb, ReadersSeeWholeRoundsWhileAThreadWrites) {
    Store store(path_);
    std::atomic<bool> done = false;
    std::string failure;
    std::thread writer([&] {
        failure = messageOf([&] {
            for (uint64_t n = 1; n <= 300; ++n) {
                write(store, std::vector<Ecn>{{1, "a", n}, {2, "b", n}, {3, "c", n}});
            }
        });
        done = true;
    });
    const auto read = [&done] {
        uint64_t newest = 0;
        do {
            Object<Ecn> object;
            ASSERT_EQ(object.code(), 0u);
            for (const Ecn& row : object.rest()) {
                EXPECT_GE(row.packets, newest);
                newest = std::max(newest, row.packets);
                EXPECT_EQ(row.packets, newest);
            }
        } while (!done);
    };
    std::thread other(read);
    read();
    other.join();
    writer.join();
    EXPECT_EQ(failure, "no StoreError");
}

TEST_F(QosDb, OneConnectionServesObjectAfterObject) {
    Store store(path_);
    write(store, ecnRows({1}));
    EXPECT_EQ(Object<Ecn>().rest().size(), 1u);
    const size_t opened = openFiles();
    for (uint32_t i = 0; i < 50; ++i) {
        write(store, ecnRows({i, i + 1}));
        Object<Ecn> early;
        ASSERT_EQ(early.next(), 0u);  // released in the middle
        EXPECT_EQ(Object<qosdb::row::queue_stat>().rest().size(), 0u);
    }
    EXPECT_TRUE(Object<Ecn>().rest() == ecnRows({49, 50}));
    const size_t openedByTwo = openFiles();
    EXPECT_LE(openedByTwo, opened + 2);  // a second connection to the file and its log

    use("other.db");
    EXPECT_EQ(Object<Ecn>().code(), uint32_t{SQLITE_CANTOPEN});
    path_ = directory_ / "qos.db";
    EXPECT_LT(openFiles(), openedByTwo);  // idle connections to another file were closed
}

TEST_F(QosDb, CodesOfTheEndAndOfMisuse) {
    Store store(path_);
    write(store, ecnRows({1}));
    Object<Ecn> object;
    void* bare = nullptr;  // has no iterator
    ASSERT_EQ(db_create_qos_tlm_port_ecn_stat_obj(5, 0, &bare), 0u);
    uint64_t packets = 5;
    uint32_t queue = 5;
    void* second = &second;
    const auto misused = [&](uint32_t code) { return code == SQLITE_MISUSE && !lastMessage().empty(); };
    EXPECT_TRUE(misused(db_get_qos_tlm_port_ecn_stat_packets(object.object(), &packets))) << "before the first";
    ASSERT_EQ(object.next(), 0u);
    EXPECT_TRUE(misused(db_get_qos_tlm_queue_stat_queueId(object.object(), &queue)));
    EXPECT_TRUE(misused(db_get_qos_tlm_port_ecn_stat_packets(nullptr, &packets)));
    EXPECT_TRUE(misused(db_get_qos_tlm_port_ecn_stat_packets(object.object(), nullptr)));
    EXPECT_EQ(object.next(), QOS_DB_END);
    EXPECT_EQ(object.next(), QOS_DB_END);
    EXPECT_TRUE(misused(db_get_qos_tlm_port_ecn_stat_packets(object.object(), &packets))) << "behind the last";
    EXPECT_TRUE(misused(db_create_root_iter(object.object(), nullptr, nullptr, &second)));
    EXPECT_EQ(second, nullptr);
    EXPECT_TRUE(misused(db_create_root_iter(nullptr, nullptr, nullptr, &second)));
    EXPECT_TRUE(misused(db_create_qos_tlm_port_ecn_stat_obj(5, 0, nullptr)));
    EXPECT_TRUE(misused(db_root_iterator_next(nullptr)));
    EXPECT_TRUE(misused(db_root_iterator_next(bare)));
    EXPECT_EQ(packets + queue, 10u);
    db_release_qos_tlm_port_ecn_stat_object(bare);
    db_release_qos_tlm_port_ecn_stat_object(nullptr);

    std::thread([] { EXPECT_STREQ(QosDb_LastError(), ""); }).join();
}

TEST_F(QosDb, TheEnvironmentNamesTheFile) {
    const Store store(path_);
    QosDb_SetFile(nullptr);
    setenv("NIVEX_QOS_DB", path_.c_str(), 1);
    EXPECT_EQ(Object<Ecn>().code(), 0u);
    unsetenv("NIVEX_QOS_DB");
    EXPECT_EQ(Object<Ecn>().code(), uint32_t{SQLITE_CANTOPEN});
    EXPECT_THAT(lastMessage(), HasSubstr("NIVEX_QOS_DB"));
}

TEST_F(QosDb, APassReadsOneState) {
    // A table in memory, and one with texts of more than it may take there.
    const std::string large = std::to_string(QOS_DB_PASS_TABLE_BYTES / 2);
    for (const std::string& size : {std::string("1"), large}) {
        use(size + ".db");
        {
            Store store(path_);
            write(store, std::vector<qosdb::row::queue_stat>{{.ifName = "a"}});
        }
        sql("INSERT INTO port_ecn_stat VALUES (1, printf('%.*c', " + size + ", 'a'), 0), (2, printf('%.*c', " + size +
            ", 'b'), 0), (3, 'c', 0)");
        uint64_t round = 0;
        const auto newest = [] { return Object<Ecn>().rest().back().packets; };
        const auto batches = [&] {
            std::vector<uint64_t> seen;
            for (int batch = 0; batch < 3; ++batch) {
                const std::string number = std::to_string(++round);
                sql("BEGIN; UPDATE port_ecn_stat SET packets = " + number + " WHERE ifIndex = 3; " +
                    "UPDATE queue_stat SET passPackets = " + number + "; COMMIT");
                // The last of another table, which is read then for the first time.
                seen.push_back(batch < 2 ? newest() : Object<qosdb::row::queue_stat>().rest().at(0).passPackets);
            }
            return seen;
        };
        QosDb_EndPass();  // there is none
        EXPECT_THAT(batches(), ElementsAre(1, 2, 3));
        QosDb_BeginPass();
        EXPECT_THAT(batches(), ElementsAre(4, 4, 4));
        std::thread([&] { EXPECT_EQ(newest(), 6u); }).join();
        {
            const auto name = [](Object<Ecn>& object) {
                const char* text = nullptr;
                EXPECT_EQ(object.next() + db_get_qos_tlm_port_ecn_stat_ifName(object.object(), &text), 0u);
                return text;
            };
            Object<Ecn> left;
            Object<Ecn> other;
            EXPECT_EQ(name(left) == name(other), size != large) << "whether both read from memory";
            QosDb_BeginPass();  // ends the other
            EXPECT_THAT(batches(), ElementsAre(7, 7, 7));
            QosDb_EndPass();
            EXPECT_THAT(batches(), ElementsAre(10, 11, 12));
            EXPECT_EQ(left.rest().back().packets, 4u);
        }
        QosDb_BeginPass();
        EXPECT_EQ(newest(), 12u);
        sql("UPDATE port_ecn_stat SET packets = 13 WHERE ifIndex = 3; PRAGMA wal_checkpoint(TRUNCATE)");
        EXPECT_NE(fs::file_size(path_.string() + "-wal"), 0u);
        Store(directory_ / "new.db");
        fs::rename(directory_ / "new.db", path_);
        EXPECT_EQ(newest(), 12u) << "of a file that was replaced";
        fs::remove(path_);
        EXPECT_EQ(newest(), 12u) << "of a file that was removed";
        use("other.db");
        EXPECT_EQ(newest(), 12u) << "of a file that is no longer set";
        uint64_t rows = 0;
        EXPECT_EQ(QosDb_CountRows("port_ecn_stat", &rows) + rows, 3u);
        EXPECT_EQ(QosDb_CountRows("queue_stat", &rows) + rows, 1u);
        EXPECT_EQ(QosDb_CountRows("ports", &rows), uint32_t{SQLITE_MISUSE});
        EXPECT_THAT(lastMessage(), HasSubstr("no table 'ports'; the tables are port_ecn_stat, port_buf_stat, "));
        EXPECT_EQ(Object<qosdb::row::queue_stat>().rest().at(0).passPackets, 12u);
        QosDb_EndPass();
        EXPECT_EQ(Object<Ecn>().code(), uint32_t{SQLITE_CANTOPEN});
    }
}

TEST_F(QosDb, APassChangesNoAnswer) {
    const std::string table = "CREATE TABLE port_ecn_stat (ifIndex, ifName, packets); ";
    const std::string misfits = table + R"(INSERT INTO port_ecn_stat VALUES (1, 'a', -1), (4294967296, 'a', 1.5),
        (-1, 5, 'b'), (NULL, NULL, NULL), (x'41', x'41', x'41'), ('1', '', ''), (1, 'a', 1))";
    const std::string many = table + R"(INSERT INTO port_ecn_stat WITH RECURSIVE
        n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 4000) SELECT i, 'eth' || (i / 8), i FROM n)";
    struct Case {
        std::string sql;
        uintmax_t size;  // to which the file is cut, 0 for the whole
        const char* answer;
    };
    for (const auto& [text, size, answer] :
         {Case{misfits, 0, "ifName: an integer (5) where a text is wanted"},
          Case{"PRAGMA encoding = 'UTF-16'; " + misfits, 0, "packets: a real number"},
          Case{many, 65536, "read table port_ecn_stat: database disk image is malf"},
          Case{"CREATE TABLE port_ecn_stat (ifIndex)", 0, "no such column: ifName"},
          Case{"VACUUM", 0, "no such table: port_ecn_stat"}}) {
        fs::remove(path_);
        QosDb_BeginPass();
        EXPECT_EQ(Object<Ecn>().code(), uint32_t{SQLITE_CANTOPEN});  // the pass begins with what comes then
        sql(text);
        fs::resize_file(path_, size == 0 ? fs::file_size(path_) : size);
        const auto answers = [&] {
            logged_.clear();
            std::vector<Ecn> rows;
            Object<Ecn> object;
            uint32_t code = object.code();
            for (; code == 0 && (code = object.next()) == 0; logged_.push_back(std::to_string(code))) {
                code = Face<Ecn>::read(object.object(), rows.emplace_back());
                logged_.push_back(std::to_string(std::exchange(code, 0)));
            }
            logged_.push_back(std::to_string(code));
            return std::pair(rows, logged_);
        };
        const auto inPass = answers();
        EXPECT_TRUE(answers() == inPass) << text;
        QosDb_EndPass();
        EXPECT_TRUE(answers() == inPass) << text;
        EXPECT_THAT(logged_, Contains(HasSubstr(answer)));
    }
}

TEST_F(QosDb, APassGoesOnInNoOtherState) {
    {
        Store store(path_);
        write(store, ecnRows({1}));
    }
    sql("INSERT INTO tm_chip_buf_stat VALUES ('1', 0, 0, 0), (printf('%.*c', 9000000, '2'), 0, 0, 0)");
    QosDb_BeginPass();
    EXPECT_EQ(Object<Ecn>().rest().size(), 1u);
    sqlite3_hard_heap_limit64(sqlite3_memory_used() + 4000000);
    Object<qosdb::row::tm_chip_buf_stat> chips;
    sqlite3_hard_heap_limit64(0);
    EXPECT_EQ(chips.next(), 0u);
    EXPECT_EQ(chips.next(), uint32_t{SQLITE_NOMEM});
    EXPECT_THAT(lastMessage(), HasSubstr("cannot read table tm_chip_buf_stat: out of memory"));
    sql("DELETE FROM port_ecn_stat");
    EXPECT_EQ(Object<qosdb::row::queue_stat>().code(), uint32_t{SQLITE_ABORT});
    EXPECT_THAT(lastMessage(), HasSubstr("cannot read table queue_stat: what failed before"));
    EXPECT_EQ(Object<Ecn>().rest().size(), 1u);
    QosDb_EndPass();
    EXPECT_EQ(Object<Ecn>().rest().size(), 0u);
}

TEST_F(QosDb, TheLogIsBoundedWhileSomebodyAlwaysReads) {
    Store store(path_);
    std::atomic<bool> done = false;
    std::thread reader([&done] {
        for (auto last = std::make_unique<Object<Ecn>>(); !done;) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
            last = std::make_unique<Object<Ecn>>();  // made before the other goes
        }
    });
    for (uint64_t round = 0; round < 40; ++round) {
        write(store, std::vector<Ecn>{{1, std::string(1 << 20, 'a'), round}});
    }
    EXPECT_LT(fs::file_size(path_.string() + "-wal"), 20u << 20);
    done = true;
    reader.join();
}

TEST_F(QosDb, ARoundIsAllOrNothing) {
    Store store(path_);
    write(store, ecnRows({1}));
    EXPECT_THAT(messageOf([&] {
                    write(store, ecnRows({5, 6, 5}));
                }),
                AllOf(HasSubstr(path_), HasSubstr("UNIQUE constraint failed: port_ecn_stat.ifIndex")));
    EXPECT_TRUE(store.read<Ecn>() == ecnRows({1}));
    {
        Round round = store.begin();
        round.add(ecnRows({4})[0]);
        EXPECT_THAT(messageOf([&] { store.begin(); }), HasSubstr(path_));
        round.commit();
    }
    EXPECT_TRUE(store.read<Ecn>() == ecnRows({1, 4}));
}

}  // namespace
