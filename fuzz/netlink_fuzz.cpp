// The kernel feed: whatever the kernel answers, an error that says what is wrong, or rounds whose tables agree.
//
// An input is the answers in the order in which they are asked for (disciplines, the classes of each interface that has
// one as its root, interfaces, and so on in the next round), each behind its length in two bytes; a length above 32767
// is a dump that fails.
#include <stdlib.h>

#include <filesystem>
#include <map>

#include "devhost/feed/kernel_feed.h"
#include "fuzz/input.h"

namespace {

using namespace std::chrono_literals;
namespace row = qosdb::row;

class Answers : public feed::NetlinkSource {
  public:
    Answers(const uint8_t* data, size_t size) : input_(data, size) {}

    bool areOver() const { return input_.isOver(); }

    std::vector<std::byte> dump(uint16_t /*type*/, uint32_t /*ifIndex*/) override {
        const auto length = input_.number<uint16_t>();
        if (length > 0x7fff) {
            throw feed::NetlinkError("the dump fails");
        }
        const std::string_view text = input_.bytes(length);
        const auto bytes = std::as_bytes(std::span(text));
        return {bytes.begin(), bytes.end()};
    }

    void pause(std::chrono::milliseconds /*time*/) override {}

  private:
    fuzz::Input input_;
};

/* One for all inputs, as each round replaces what is there. */
class Database {
  public:
    Database() : store_(directory_ + "/qos.db") {}
    ~Database() { std::filesystem::remove_all(directory_); }

    qosdb::Store& store() { return store_; }

  private:
    static std::string makeDirectory() {
        std::string path = std::filesystem::temp_directory_path() / "netlink_fuzz-XXXXXX";
        REQUIRE(mkdtemp(path.data()) != nullptr);
        return path;
    }

    std::string directory_ = makeDirectory();
    qosdb::Store store_;
};

void check(qosdb::Store& store, size_t queues) {
    std::map<uint32_t, row::port_buf_stat> sums;
    std::map<uint32_t, uint32_t> next;
    const auto buffers = store.read<row::queue_buf_stat>();
    REQUIRE(buffers.size() == queues && store.read<row::queue_stat>().size() == queues);
    for (const row::queue_buf_stat& buffer : buffers) {
        REQUIRE(buffer.queueId == next[buffer.ifIndex]++);
        REQUIRE(buffer.curUsed <= buffer.peakUsed && buffer.avgUsed <= buffer.peakUsed);
        sums[buffer.ifIndex].currentUsed += buffer.curUsed;
        sums[buffer.ifIndex].totalBuff += buffer.totalBuf;
    }
    const auto ports = store.read<row::port_buf_stat>();
    REQUIRE(ports.size() == sums.size());
    for (const row::port_buf_stat& port : ports) {
        REQUIRE(port.currentUsed == sums[port.ifIndex].currentUsed && port.totalBuff == sums[port.ifIndex].totalBuff);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static Database database;
    Answers answers(data, size);
    const auto log = [](const std::string& line) { REQUIRE(!line.empty()); };
    feed::KernelFeed feed(answers, database.store(), log);
    auto now = feed::KernelFeed::Clock::time_point(1h);
    for (int round = 0; round < 3 && !answers.areOver(); ++round, now += 1s) {
        try {
            check(database.store(), feed.round(now, feed::WallTime(now.time_since_epoch())).queues);
        } catch (const feed::NetlinkError& error) {
            REQUIRE(*error.what() != '\0');
        }
    }
    return 0;
}
