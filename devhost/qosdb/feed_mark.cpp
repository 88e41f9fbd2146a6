#include "devhost/qosdb/feed_mark.h"

#include <limits.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <limits>
#include <utility>

#include "devhost/qosdb/open_for_reading.h"

namespace qosdb {

namespace {

std::string textOf(sqlite3_stmt* row, int column) {
    constexpr size_t kLongest = 1000;
    const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(row, column));
    return text == nullptr ? std::string() : std::string(text).substr(0, kLongest);
}

std::string hostName() {
    char host[HOST_NAME_MAX + 1] = "";
    gethostname(host, sizeof host - 1);
    return host;
}

uint64_t numberOf(sqlite3_stmt* row, int column) {
    return static_cast<uint64_t>(sqlite3_column_int64(row, column));
}

/*
 * Bounds what a query costs, whoever made the file: "feed" may be a view that never ends, or have columns that compute.
 * Time is looked at between rounds of a loop only, so what runs straight on is kept short and its texts small.
 */
class Bounds {
  public:
    explicit Bounds(sqlite3* connection) {
        sqlite3_db_config(connection, SQLITE_DBCONFIG_ENABLE_VIEW, 0, nullptr);
        sqlite3_limit(connection, SQLITE_LIMIT_VDBE_OP, kMostInstructions);
        sqlite3_limit(connection, SQLITE_LIMIT_LENGTH, kLongestText);
        sqlite3_limit(connection, SQLITE_LIMIT_LIKE_PATTERN_LENGTH, 0);
        sqlite3_busy_timeout(connection, kLongest.count());
        sqlite3_progress_handler(
            connection, kLook, [](void* bounds) { return static_cast<Bounds*>(bounds)->isOver() ? 1 : 0; }, this);
    }
    Bounds(const Bounds&) = delete;
    Bounds& operator=(const Bounds&) = delete;

  private:
    using Clock = std::chrono::steady_clock;
    static constexpr std::chrono::duration<int, std::milli> kLongest{100};
    static constexpr int kMostInstructions = 64;  // SQLite's own of a query; that of a mark has 17
    static constexpr int kLongestText = 1 << 14;  // or row, in bytes; also of the statements that made the tables
    static constexpr int kLook = 100;             // instructions

    bool isOver() const { return Clock::now() > end_; }

    Clock::time_point end_ = Clock::now() + kLongest;
};

}  // namespace

uint64_t FeedMark::ageAt(Time now) const {
    const auto sinceEpoch = std::chrono::floor<std::chrono::milliseconds>(now.time_since_epoch());
    const auto now_ms = static_cast<uint64_t>(sinceEpoch.count());
    return time_ms < now_ms ? now_ms - time_ms : 0;
}

bool FeedMark::isFreshAt(Time now) const {
    constexpr uint64_t kRounds = 3;
    constexpr uint64_t kAlways = 1000;
    const uint64_t age = ageAt(now);
    return age <= kAlways || age / kRounds <= every_ms;
}

bool FeedMark::mayRun() const {
    if (host != hostName()) {
        return true;
    }
    const bool isProcess = process > 0 && process <= std::numeric_limits<pid_t>::max();
    return isProcess && (kill(static_cast<pid_t>(process), 0) == 0 || errno != ESRCH);
}

FeedMark FeedMark::ofThisProcess(std::string source, std::chrono::milliseconds every) {
    return {.source = std::move(source),
            .host = hostName(),
            .process = static_cast<uint64_t>(getpid()),
            .every_ms = static_cast<uint64_t>(every.count())};
}

void FeedMark::advance() {
    using std::chrono::milliseconds;
    const auto now = std::chrono::floor<milliseconds>(std::chrono::system_clock::now().time_since_epoch());
    time_ms = static_cast<uint64_t>(now.count());
    ++round;
}

std::optional<FeedMark> readFeedMark(const std::string& path) {
    Connection connection;
    bool asItStands = false;
    if (openForReading(path, connection, asItStands) != SQLITE_OK) {
        return std::nullopt;
    }
    sqlite3_db_config(connection.get(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);  // is for others to do
    const Bounds bounds(connection.get());
    sqlite3_stmt* row = nullptr;
    const char* select = "SELECT source, host, process, every_ms, round, time_ms, missed, note FROM feed";
    sqlite3_prepare_v2(connection.get(), select, -1, &row, nullptr);
    const Statement statement(row);
    if (row == nullptr || sqlite3_step(row) != SQLITE_ROW) {
        return std::nullopt;
    }
    return FeedMark{.source = textOf(row, 0),
                    .host = textOf(row, 1),
                    .process = numberOf(row, 2),
                    .every_ms = numberOf(row, 3),
                    .round = numberOf(row, 4),
                    .time_ms = numberOf(row, 5),
                    .missed = numberOf(row, 6),
                    .note = textOf(row, 7)};
}

}  // namespace qosdb
