// The kernel feed on recorded answers of a kernel, and on answers made here for what that kernel does not do.
#include "devhost/feed/kernel_feed.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/gen_stats.h>
#include <linux/if_link.h>
#include <linux/pkt_sched.h>
#include <linux/rtnetlink.h>
#include <netlink/attr.h>
#include <netlink/msg.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <optional>
#include <system_error>
#include <tuple>

namespace feed {
namespace {

using namespace std::chrono_literals;
namespace row = qosdb::row;
using row::queue_stat;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using Bytes = std::vector<std::byte>;

Bytes bytesAt(const void* start, size_t size) {
    const auto* bytes = static_cast<const std::byte*>(start);
    return Bytes(bytes, bytes + size);
}

class RecordedKernel : public NetlinkSource {
  public:
    Bytes dump(uint16_t type, uint32_t ifIndex) override {
        const std::string name = type == RTM_GETLINK    ? "links"
                                 : type == RTM_GETQDISC ? "disciplines"
                                                        : "classes-" + std::to_string(ifIndex);
        std::ifstream file(std::filesystem::path(NETLINK_DATA_DIR) / (name + ".bin"), std::ios::binary);
        EXPECT_TRUE(file) << name;
        const std::string text(std::istreambuf_iterator<char>(file), {});
        return bytesAt(text.data(), text.size());
    }
};

using Message = std::unique_ptr<nl_msg, void (*)(nl_msg*)>;

template <typename Header>
Message message(uint16_t type, int flags, const Header& header) {
    Message made(nlmsg_alloc_simple(type, flags), nlmsg_free);
    nlmsg_append(made.get(), const_cast<Header*>(&header), sizeof header, NLMSG_ALIGNTO);
    return made;
}

Bytes bytesOf(const Message& made) {
    return bytesAt(nlmsg_hdr(made.get()), nlmsg_hdr(made.get())->nlmsg_len);
}

struct Stats {
    uint64_t bytes = 0;
    uint32_t packets = 0;
    uint32_t drops = 0;
    std::optional<uint64_t> packets64 = {};
    bool legacy = false;    // TCA_STATS alone, as very old kernels
    bool counted = true;    // false: as a flow bucket, with a queue length only
    bool hardware = false;  // counts of the hardware as well
    uint32_t backlog = 0;   // bytes
    Bytes own = {};         // TCA_STATS_APP
    Bytes options = {};     // TCA_OPTIONS
};

template <typename Record>
Bytes recordBytes(const Record& record) {
    return bytesAt(&record, sizeof record);
}

// Options that hold one attribute.
Bytes nestedOption(int type, const Bytes& value) {
    const Message made(nlmsg_alloc(), nlmsg_free);
    nla_put(made.get(), type, static_cast<int>(value.size()), value.data());
    return bytesAt(nlmsg_data(nlmsg_hdr(made.get())), static_cast<size_t>(nlmsg_datalen(nlmsg_hdr(made.get()))));
}

void putBytes(nl_msg* msg, int type, const Bytes& value) {
    if (!value.empty()) {
        nla_put(msg, type, static_cast<int>(value.size()), value.data());
    }
}

Bytes tcMessage(uint16_t type, const TcObject& object, const Stats& stats) {
    tcmsg header = {};
    header.tcm_ifindex = static_cast<int>(object.ifIndex);
    header.tcm_handle = object.handle;
    header.tcm_parent = object.parent;
    const Message made = message(type, NLM_F_MULTI, header);
    nl_msg* msg = made.get();
    nla_put_string(msg, TCA_KIND, object.kind.c_str());
    putBytes(msg, TCA_OPTIONS, stats.options);
    tc_stats old = {};
    if (stats.legacy) {
        old.bytes = stats.bytes;
        old.packets = stats.packets;
        old.drops = stats.drops;
    } else {
        nlattr* nest = nla_nest_start(msg, TCA_STATS2);
        gnet_stats_basic basic = {stats.bytes, stats.packets};
        if (stats.counted) {
            nla_put(msg, TCA_STATS_BASIC, sizeof basic, &basic);
        }
        if (stats.packets64) {
            nla_put_u64(msg, TCA_STATS_PKT64, *stats.packets64);
        }
        if (stats.hardware) {
            basic = {7, 7};
            nla_put(msg, TCA_STATS_BASIC_HW, sizeof basic, &basic);
            nla_put_u64(msg, TCA_STATS_PKT64, uint64_t{7} << 32);
        }
        gnet_stats_queue queue = {};
        queue.drops = stats.drops;
        queue.backlog = stats.backlog;
        nla_put(msg, TCA_STATS_QUEUE, sizeof queue, &queue);
        putBytes(msg, TCA_STATS_APP, stats.own);
        nla_nest_end(msg, nest);
    }
    nla_put(msg, TCA_STATS, sizeof old, &old);
    return bytesOf(made);
}

/* A kernel that shows what the test puts into it. */
class MadeKernel : public NetlinkSource {
  public:
    struct Entry {
        TcObject object;
        Stats stats;
    };

    std::vector<Link> links = {{3, "eth0"}};
    std::vector<Entry> disciplines = {{{3, 0x10000, TC_H_ROOT, "htb", {}}, {}}};
    std::vector<Entry> classes;
    bool interrupted = false;  // the dump is marked as such
    int status = 0;            // in the message that ends an answer
    std::function<void(uint16_t type, uint32_t ifIndex)> onDump = [](uint16_t, uint32_t) {};

    /* The root discipline's own class, or one under another. */
    Stats& addClass(uint32_t handle, Stats stats = {}, uint32_t parent = TC_H_ROOT) {
        classes.push_back({{3, handle, parent, "htb", {}}, stats});
        return classes.back().stats;
    }

    void addDiscipline(uint32_t handle, uint32_t parent, const char* kind, Stats stats) {
        disciplines.push_back({{3, handle, parent, kind, {}}, std::move(stats)});
    }

    void pause(std::chrono::milliseconds) override {}

    Bytes dump(uint16_t type, uint32_t ifIndex) override {
        onDump(type, ifIndex);
        Bytes answer;
        const auto add = [&answer](const Bytes& bytes) { answer.insert(answer.end(), bytes.begin(), bytes.end()); };
        if (type == RTM_GETLINK) {
            for (const Link& link : links) {
                ifinfomsg header = {};
                header.ifi_index = static_cast<int>(link.ifIndex);
                const Message made = message(RTM_NEWLINK, NLM_F_MULTI, header);
                nla_put_string(made.get(), IFLA_IFNAME, link.name.c_str());
                nla_put_u32(made.get(), IFLA_MTU, link.mtu);
                nla_put_u32(made.get(), IFLA_TXQLEN, link.txQueueLength);
                if (link.receiveDrops) {
                    rtnl_link_stats64 stats = {};
                    stats.rx_dropped = *link.receiveDrops - 7;
                    stats.rx_missed_errors = 7;
                    stats.tx_dropped = 99;
                    nla_put(made.get(), IFLA_STATS64, sizeof stats, &stats);
                }
                add(bytesOf(made));
            }
        }
        for (const Entry& entry : type == RTM_GETQDISC ? disciplines : classes) {
            if (type == RTM_GETQDISC || (type == RTM_GETTCLASS && entry.object.ifIndex == ifIndex)) {
                add(tcMessage(type == RTM_GETQDISC ? RTM_NEWQDISC : RTM_NEWTCLASS, entry.object, entry.stats));
            }
        }
        add(bytesOf(message(NLMSG_DONE, interrupted ? NLM_F_MULTI | NLM_F_DUMP_INTR : NLM_F_MULTI, status)));
        return answer;
    }
};

class KernelFeedTest : public testing::Test {
  protected:
    ~KernelFeedTest() override {
        store_.reset();
        std::filesystem::remove_all(directory_);
    }

    std::vector<queue_stat> round(std::chrono::milliseconds later = 0ms) {
        now_ += later;
        wall_ += later;
        troubles_ = feed_.round(now_, wall_).troubles;
        return store_->read<queue_stat>();
    }

    static std::filesystem::path makeDirectory() {
        std::string path = testing::TempDir() + "kernel_feed-XXXXXX";
        return mkdtemp(path.data());
    }

    MadeKernel kernel_;
    std::vector<std::string> log_;
    std::vector<std::string> troubles_;
    const std::filesystem::path directory_ = makeDirectory();
    std::optional<qosdb::Store> store_{std::in_place, (directory_ / "qos.db").string()};
    KernelFeed feed_{kernel_, *store_, [this](const std::string& line) { log_.push_back(line); }};
    KernelFeed::Clock::time_point now_ = KernelFeed::Clock::now();
    WallTime wall_ = WallTime(1'700'000'000'250ms);
};

using Counts = std::tuple<uint64_t, uint64_t, uint64_t>;  // packets, bytes, drops

Counts totals(const queue_stat& row) {
    return {row.passPackets, row.passBytes, row.dropPackets};
}
Counts rates(const queue_stat& row) {
    return {row.passPktRate, row.passBytRate, row.dropPktRate};
}

TEST_F(KernelFeedTest, RecordedNetwork) {
    RecordedKernel recorded;
    KernelFeed feed(recorded, *store_, [this](const std::string& line) { log_.push_back(line); });
    for (int time = 0; time < 2; ++time) {
        EXPECT_EQ(feed.round(now_, wall_).queues, 14u);
    }
    const std::string note = "qos1 has no queue (noqueue): the kernel counts nothing there";
    EXPECT_THAT(log_, ElementsAre(note)) << "once";
    EXPECT_EQ(qosdb::readFeedMark((directory_ / "qos.db").string()).value().note, note);
    using Named = std::tuple<uint32_t, std::string, uint32_t, Counts>;  // interface, its name, queue
    const std::vector<Named> expected = {
        {10, "qos0", 0, {3, 300, 3}},     // 1:10
        {10, "qos0", 1, {16, 3200, 0}},   // 1:11
        {10, "qos0", 2, {16, 4800, 2}},   // 1:12
        {10, "qos0", 3, {15, 6000, 5}},   // 1:13
        {10, "qos0", 4, {14, 7000, 8}},   // 1:14
        {10, "qos0", 5, {13, 7800, 11}},  // 1:15
        {10, "qos0", 6, {13, 9100, 13}},  // 1:16
        {10, "qos0", 7, {28, 22400, 0}},  // 1:17, a leaf although there is a discipline with a class below it
        {11, "qos1", 0, {0, 0, 0}},       // noqueue
        {12, "qos2", 0, {9, 4500, 0}},    // 2:1
        {12, "qos2", 1, {33, 16500, 0}},  // 2:2
        {12, "qos2", 2, {9, 4500, 0}},    // 2:3
        {12, "qos2", 3, {9, 4500, 0}},    // 2:4
        {13, "qos3", 0, {30, 30000, 0}},  // the discipline, since its class has no counters
    };
    std::vector<Named> queues;
    for (const queue_stat& row : store_->read<queue_stat>()) {
        queues.emplace_back(row.ifIndex, row.ifName, row.queueId, totals(row));
        EXPECT_EQ(rates(row), Counts{});
    }
    std::ranges::sort(queues);
    EXPECT_EQ(queues, expected);

    constexpr uint64_t kPfifo = 10 * 1500;      // limit 10
    constexpr uint64_t kTxQueue = 1000 * 1500;  // disciplines without a limit
    const auto buffers = store_->read<row::queue_buf_stat>();
    ASSERT_THAT(buffers, SizeIs(14));
    for (const row::queue_buf_stat& buffer : buffers) {
        SCOPED_TRACE(buffer.ifName + " " + std::to_string(buffer.queueId));
        const bool waiting = buffer.ifIndex == 10 && buffer.queueId == 0;
        EXPECT_EQ(buffer.curUsed, waiting ? 800u : 0u);
        EXPECT_EQ(buffer.totalBuf, buffer.ifIndex == 11                         ? 0
                                   : buffer.ifIndex == 10 && buffer.queueId < 7 ? kPfifo
                                                                                : kTxQueue);
    }
    EXPECT_THAT(store_->read<row::port_buf_stat>(), SizeIs(4));
    EXPECT_THAT(store_->read<row::queue_drop_stat>(), SizeIs(4));
    EXPECT_THAT(store_->read<row::ing_port_drop_stat>(), SizeIs(5)) << "lo as well";
    EXPECT_THAT(store_->read<row::port_ecn_stat>(), IsEmpty());
    EXPECT_THAT(store_->read<row::buffer_monitor_result>(), IsEmpty());
}

TEST_F(KernelFeedTest, RatesAreOverTheTimeBetweenRounds) {
    kernel_.addClass(0x10010, {.bytes = 1000, .packets = 10, .drops = 1});
    EXPECT_EQ(rates(round().at(0)), Counts{}) << "first sight";

    kernel_.classes[0].stats = {.bytes = 4000, .packets = 13, .drops = 5};
    queue_stat row = round(1500ms).at(0);
    EXPECT_EQ(totals(row), (Counts{13, 4000, 5}));
    EXPECT_EQ(rates(row), (Counts{2, 2000, 3})) << "3 packets, 3000 bytes and 4 drops in 1.5 s, to the nearest";
    EXPECT_EQ(row.dropBytes, 0u);
    EXPECT_EQ(row.dropBytRate, 0u);

    EXPECT_EQ(rates(round(1s).at(0)), Counts{}) << "nothing happened";
    kernel_.classes[0].stats.bytes += 1000;
    EXPECT_EQ(rates(round(0ms).at(0)), Counts{}) << "no time has passed";

    // A class that comes later has no rate yet, the one that was there keeps its own although its queue number moves.
    kernel_.classes[0].stats.packets += 7;
    kernel_.addClass(0x10001, {.bytes = 50, .packets = 5});
    const auto rows = round(1s);
    EXPECT_EQ(totals(rows.at(0)), (Counts{5, 50, 0}));
    EXPECT_EQ(rates(rows.at(0)), Counts{});
    EXPECT_EQ(rates(rows.at(1)), (Counts{7, 0, 0}));
}

TEST_F(KernelFeedTest, CountsGoOnPast32Bits) {
    constexpr uint64_t k32 = uint64_t{1} << 32;
    Stats& stats = kernel_.addClass(0x10010, {.bytes = 5 * k32, .packets = 0xFFFF'FFF0, .drops = 0xFFFF'FFFF});
    round();

    stats = {.bytes = 5 * k32 + 6400, .packets = 0x10, .drops = 2};
    queue_stat row = round(1s).at(0);
    EXPECT_EQ(totals(row), (Counts{k32 + 0x10, 5 * k32 + 6400, k32 + 2})) << "wrapped";
    EXPECT_EQ(rates(row), (Counts{0x20, 6400, 3}));
    stats.packets += 8;
    EXPECT_EQ(rates(round(1s).at(0)), (Counts{8, 0, 0})) << "high bits are kept";

    stats.packets64 = 3 * k32 + 1;
    row = round(1s).at(0);
    EXPECT_EQ(row.passPackets, 3 * k32 + 1) << "the kernel's own 64 bits";
    EXPECT_EQ(row.passPktRate, 2 * k32 + 1 - 0x18);
    stats.hardware = true;
    row = round(1s).at(0);
    EXPECT_EQ(row.passPackets, 3 * k32 + 1) << "those of the hardware are another count";
    EXPECT_EQ(row.passBytes, 5 * k32 + 6400);

    stats = {.bytes = 600, .packets = 6, .drops = 1};
    row = round(1s).at(0);
    EXPECT_EQ(totals(row), (Counts{6, 600, 1})) << "a new discipline counts from 0";
    EXPECT_EQ(rates(row), Counts{});

    // Passed more bytes than the one before it, but fewer packets: no wrap, since it would be of nearly 2^32 packets.
    stats = {.bytes = 700, .packets = 1, .drops = 1};
    row = round(1s).at(0);
    EXPECT_EQ(totals(row), (Counts{1, 700, 1}));
    EXPECT_EQ(rates(row), Counts{});
    stats.drops = 0;
    EXPECT_EQ(round(1s).at(0).dropPackets, 0u) << "fewer drops alone tell as well";
    stats = {.bytes = 200, .packets = 4, .drops = 0};
    EXPECT_EQ(rates(round(1s).at(0)), Counts{}) << "and fewer bytes";
}

TEST_F(KernelFeedTest, BuffersOfQueuesAndPorts) {
    kernel_.links = {{.ifIndex = 3, .name = "eth0", .mtu = 1500, .txQueueLength = 20}};
    kernel_.addDiscipline(0x20000, 0x10010, "pfifo", {.options = recordBytes(tc_fifo_qopt{10})});
    kernel_.addDiscipline(0x30000, 0x10011, "bfifo", {.options = recordBytes(tc_fifo_qopt{3000})});
    kernel_.addDiscipline(0x40000, 0x10013, "sfq", {.options = recordBytes(tc_sfq_qopt{5, 0, 127, 1024, 128})});
    tc_red_qopt red = {};
    red.limit = 70'000;
    kernel_.addDiscipline(0x50000, 0x10014, "red", {.options = nestedOption(TCA_RED_PARMS, recordBytes(red))});
    kernel_.addDiscipline(0x60000, 0x10015, "codel",
                          {.options = nestedOption(TCA_CODEL_LIMIT, recordBytes(uint32_t{1000}))});
    kernel_.disciplines.push_back({{4, 0x70000, 0x10012, "bfifo", {}}, {.options = recordBytes(tc_fifo_qopt{1})}});
    constexpr uint64_t kTotals[] = {15'000, 3000, 30'000, 30'000, 70'000, 1'500'000};
    constexpr uint32_t kBacklogs[3][6] = {{100, 2000, 0, 0, 0, 0}, {900, 0, 3, 0, 0, 0}, {0, 100, 0, 0, 0, 2'000'000}};
    constexpr uint64_t kPeaks[3][6] = {
        {100, 2000, 0, 0, 0, 0}, {900, 2000, 3, 0, 0, 0}, {900, 2000, 3, 0, 0, 2'000'000}};
    constexpr uint64_t kAverages[3][6] = {
        {100, 2000, 0, 0, 0, 0}, {500, 1000, 2, 0, 0, 0}, {333, 700, 1, 0, 0, 666'667}};
    constexpr uint64_t kPortAverages[3] = {2100, 1502, 667'701};  // of 2100, 903 and 2000100
    for (uint32_t minor = 0x10; minor <= 0x15; ++minor) {
        kernel_.addClass(0x10000 + minor);
    }
    for (size_t time = 0; time < 3; ++time) {
        SCOPED_TRACE(time);
        for (size_t queue = 0; queue < 6; ++queue) {
            kernel_.classes[queue].stats.backlog = kBacklogs[time][queue];
        }
        round(1s);
        const auto rows = store_->read<row::queue_buf_stat>();
        ASSERT_THAT(rows, SizeIs(6));
        row::port_buf_stat sum = {.slotIdStr = "0", .ifIndex = 3, .ifName = "eth0"};
        for (size_t queue = 0; queue < 6; ++queue) {
            SCOPED_TRACE(queue);
            EXPECT_EQ(rows[queue],
                      (row::queue_buf_stat{0, "0", 3, "eth0", static_cast<uint32_t>(queue), kBacklogs[time][queue],
                                           kPeaks[time][queue], kAverages[time][queue], kTotals[queue]}));
            sum.totalBuff += rows[queue].totalBuf;
            sum.currentUsed += rows[queue].curUsed;
        }
        sum.remained = sum.totalBuff - std::min(sum.totalBuff, sum.currentUsed);
        EXPECT_EQ(sum.remained == 0, time == 2) << "more than the estimate is no negative rest";
        sum.peakUsed = time == 2 ? 2'000'100 : 2100;
        sum.avgUsed = kPortAverages[time];
        EXPECT_THAT(store_->read<row::port_buf_stat>(), ElementsAre(sum));
    }

    kernel_.disciplines[0].object.ifIndex = 9;  // eth0 goes and comes back
    round(1s);
    EXPECT_THAT(store_->read<row::port_buf_stat>(), IsEmpty());
    kernel_.disciplines[0].object.ifIndex = 3;
    round(1s);
    EXPECT_EQ(store_->read<row::queue_buf_stat>().at(0).peakUsed, 0u) << "a new queue has a new history";
    EXPECT_EQ(store_->read<row::queue_buf_stat>().at(1).avgUsed, 100u);
}

TEST_F(KernelFeedTest, DropsOfQueuesAndOnReceive) {
    kernel_.links = {{.ifIndex = 3, .name = "eth0", .receiveDrops = (uint64_t{5} << 32) + 11}, {4, "eth1"}};
    kernel_.addClass(0x10010, {.drops = 0xFFFF'FFFF});
    kernel_.addClass(0x10011, {.drops = 4});
    round();
    kernel_.classes[0].stats.drops = 1;
    round(1s);
    EXPECT_THAT(store_->read<row::queue_drop_stat>(),
                ElementsAre(row::queue_drop_stat{
                    .ifIndex = 3, .ifName = "eth0", .queue0DropPkts = (uint64_t{1} << 32) + 1, .queue1DropPkts = 4}));
    EXPECT_THAT(store_->read<row::ing_port_drop_stat>(),
                ElementsAre(row::ing_port_drop_stat{
                    .ifIndex = 3, .ifName = "eth0", .dropByts = 0, .dropPkts = (uint64_t{5} << 32) + 11}))
        << "eth1 does not tell";
}

TEST_F(KernelFeedTest, EcnMarksOfEachKindOfDiscipline) {
    tc_red_xstats red = {9, 9, 9, 1};
    tc_choke_xstats choke = {9, 9, 9, 20, 9};
    tc_codel_xstats codel = {};
    codel.ecn_mark = 300;
    codel.dropping = codel.drop_overlimit = 9;
    tc_fq_codel_xstats fqCodel = {};
    fqCodel.type = TCA_FQ_CODEL_XSTATS_QDISC;
    fqCodel.qdisc_stats.drop_overlimit = fqCodel.qdisc_stats.new_flow_count = 9;
    fqCodel.qdisc_stats.ecn_mark = 4000;
    tc_pie_xstats pie = {};
    pie.maxq = 9;
    pie.ecn_mark = 50'000;
    tc_fq_pie_xstats fqPie = {};
    fqPie.overmemory = fqPie.new_flow_count = 9;
    fqPie.ecn_mark = 600'000;
    kernel_.addDiscipline(0, 0x10010, "red", {.own = recordBytes(red)});
    kernel_.addDiscipline(0, 0x10011, "choke", {.own = recordBytes(choke)});
    kernel_.addDiscipline(0, 0x10012, "codel", {.own = recordBytes(codel)});
    kernel_.addDiscipline(0, 0x10013, "fq_codel", {.own = recordBytes(fqCodel)});
    kernel_.addDiscipline(0, 0x10014, "pie", {.own = recordBytes(pie)});
    kernel_.addDiscipline(0, 0x10015, "fq_pie", {.own = recordBytes(fqPie)});
    kernel_.addDiscipline(0, 0x10016, "red", {.own = Bytes(4)});  // too short to tell
    kernel_.addDiscipline(0, 0x10017, "sfq", {.own = recordBytes(choke)});
    kernel_.links.push_back({4, "eth1"});
    kernel_.disciplines.push_back({{4, 0, TC_H_ROOT, "pfifo_fast", {}}, {}});
    const auto marks = [this] {
        round(1s);
        return store_->read<row::port_ecn_stat>();
    };
    EXPECT_THAT(marks(), ElementsAre(row::port_ecn_stat{.ifIndex = 3, .ifName = "eth0", .packets = 654'321}));

    // Two disciplines without a handle wrap each for itself; a new one counts from 0.
    red.marked = 0xFFFF'FFFE;
    kernel_.disciplines[1].stats.own = recordBytes(red);
    EXPECT_EQ(marks().at(0).packets, 0xFFFF'FFFEu + uint64_t{654'320});
    red.marked = 3;
    kernel_.disciplines[1].stats.own = recordBytes(red);
    EXPECT_EQ(marks().at(0).packets, (uint64_t{1} << 32) + 3 + 654'320);
    codel.ecn_mark = 10;
    kernel_.disciplines[3].stats.own = recordBytes(codel);
    EXPECT_EQ(marks().at(0).packets, (uint64_t{1} << 32) + 3 + 654'030);
}

TEST_F(KernelFeedTest, BurstsBecomeResultsWhenTheyHaveEnded) {
    kernel_.links = {{.ifIndex = 3, .name = "eth0", .mtu = 100, .txQueueLength = 10}};  // total 1000
    kernel_.addClass(0x10010);
    kernel_.addClass(0x10011, {.backlog = 900});  // never ends
    const auto results = [this](std::initializer_list<uint32_t> backlogs) {
        for (const uint32_t backlog : backlogs) {
            kernel_.classes[0].stats.backlog = backlog;
            round(500ms);
        }
        return store_->read<row::buffer_monitor_result>();
    };
    EXPECT_THAT(results({500, 501, 1200, 700, 1200}), IsEmpty()) << "half of the total is none, and it goes on";
    // The end, the start and the peak: bytes, percent, seconds and milliseconds.
    const row::buffer_monitor_result expected = {
        3, 0, "eth0", 500, 50, 1'700'000'003, 250, 501, 50, 1'700'000'001, 250, 1200, 120, 1'700'000'001, 750, 0, 1};
    EXPECT_THAT(results({500}), ElementsAre(expected));
    EXPECT_THAT(results({0, 600, 650}), ElementsAre(expected)) << "until the next has ended";
    const auto second = results({10});
    ASSERT_THAT(second, SizeIs(1));
    EXPECT_EQ(second[0].burst_number, 2u);
    EXPECT_EQ(second[0].start_used_buf, 600u);
    EXPECT_EQ(second[0].peak_used_buf, 650u);
    EXPECT_EQ(second[0].used_buf, 10u);

    kernel_.links[0].txQueueLength = 0;
    EXPECT_EQ(results({5000, 0}).at(0).burst_number, 2u) << "without a known total there is no share of it";
}

TEST_F(KernelFeedTest, LegacyCountersAlone) {
    kernel_.addClass(0x10010, {.bytes = 300, .packets = 3, .drops = 2, .legacy = true});
    EXPECT_EQ(totals(round().at(0)), (Counts{3, 300, 2}));
}

TEST_F(KernelFeedTest, QueuesAreTheFirstEightCountedLeaves) {
    kernel_.addClass(0x10002, {.packets = 99});  // inner
    for (uint32_t minor = 0x19; minor >= 0x10; --minor) {
        kernel_.addClass(0x10000 + minor, {.packets = minor}, 0x10002);
    }
    kernel_.addClass(0x10003, {.packets = 99, .counted = false});
    kernel_.addClass(0x20001, {.packets = 99}, 0x20000);  // of a discipline below
    kernel_.classes.push_back({{4, 0x10010, TC_H_ROOT, "htb", {}}, {.packets = 99}});
    kernel_.disciplines.push_back({{4, 0x10000, TC_H_ROOT, "htb", {}}, {}});
    kernel_.links.push_back({4, "q\xff\x1b"});
    for (int time = 0; time < 2; ++time) {
        const auto rows = round(1s);
        ASSERT_THAT(rows, SizeIs(9));
        EXPECT_EQ(rows[8].ifName, "q\xff\x1b") << "the kernel's bytes";
        for (uint32_t queue = 0; queue < 8; ++queue) {
            EXPECT_EQ(rows[queue].queueId, queue);
            EXPECT_EQ(rows[queue].passPackets, 0x10 + queue);
        }
    }
    EXPECT_THAT(log_, ElementsAre(HasSubstr("eth0 has 10 leaf classes")));
}

std::string errorOf(const std::function<void()>& work) {
    try {
        work();
    } catch (const NetlinkError& error) {
        return error.what();
    }
    return "no error";
}

TEST_F(KernelFeedTest, WhatCannotBeReadIsLeftOutAndTheNextRoundGoesOn) {
    Stats& stats = kernel_.addClass(0x10010, {.packets = 0xFFFF'FFFF, .backlog = 70});
    kernel_.links.push_back({4, "eth1"});
    kernel_.disciplines.push_back({{4, 0, TC_H_ROOT, "pfifo_fast", {}}, {.packets = 2}});
    EXPECT_THAT(round(), SizeIs(2));

    int dumps = 0;
    kernel_.onDump = [&](uint16_t, uint32_t) { kernel_.interrupted = ++dumps % 3 != 0; };
    EXPECT_THAT(round(), SizeIs(2));
    EXPECT_THAT(troubles_, IsEmpty()) << "the third attempt was whole";
    const std::vector<Link> links = kernel_.links;
    kernel_.onDump = [&](uint16_t type, uint32_t) {
        kernel_.interrupted = type != RTM_GETTCLASS;
        kernel_.links = {links[static_cast<size_t>(++dumps % 2)]};  // now the one, now the other
    };
    EXPECT_THAT(round(), SizeIs(2));
    EXPECT_THAT(troubles_, ElementsAre(HasSubstr("disciplines keep changing"), HasSubstr("interfaces keep changing")));

    kernel_.links = links;

    // One interface: its counts, rates and averages go on from where they were.
    for (const bool refused : {true, false}) {
        kernel_.onDump = [&](uint16_t type, uint32_t ifIndex) {
            kernel_.interrupted = !refused && type == RTM_GETTCLASS && ifIndex == 3;
            kernel_.status = refused && type == RTM_GETTCLASS && ifIndex == 3 ? -EPERM : 0;
        };
        stats.packets = 1;
        const auto rows = round(1s);
        ASSERT_THAT(rows, SizeIs(1));
        EXPECT_EQ(rows[0].ifName, "eth1");
        EXPECT_THAT(troubles_, ElementsAre(AllOf(HasSubstr("queues of eth0"),
                                                 HasSubstr(refused ? "not permitted" : "keep changing"))));
    }
    // All of them: nothing is written.
    for (const uint16_t type : {RTM_GETLINK, RTM_GETQDISC}) {
        kernel_.onDump = [&](uint16_t asked, uint32_t) { kernel_.status = asked == type ? -EPERM : 0; };
        EXPECT_THAT(errorOf([&] { round(1s); }), HasSubstr("the kernel refuses it: Operation not permitted"));
        EXPECT_THAT(store_->read<queue_stat>(), SizeIs(1)) << "what the last good round wrote";
    }
    kernel_.onDump = [&](uint16_t, uint32_t) { kernel_.status = 0; };
    stats.packets = 49;
    const auto rows = round(1s);
    EXPECT_EQ(rows.at(0).passPackets, (uint64_t{1} << 32) + 49);
    EXPECT_EQ(rows.at(0).passPktRate, 10u) << "50 in the five seconds since it was read";
    EXPECT_EQ(store_->read<row::queue_buf_stat>().at(0).avgUsed, 70u);

    // One that goes away while it is read costs only itself, and is nothing to speak of.
    kernel_.onDump = [&](uint16_t type, uint32_t ifIndex) {
        if (type == RTM_GETTCLASS && ifIndex == 3) {
            std::erase_if(kernel_.links, [](const Link& link) { return link.ifIndex == 3; });
            throw NetlinkError("gone");
        }
    };
    EXPECT_THAT(round(1s), SizeIs(1));
    EXPECT_THAT(troubles_, IsEmpty());

    nlmsgerr refusal = {};
    refusal.error = -ENODEV;
    EXPECT_THAT(errorOf([&] { parseClasses(bytesOf(message(NLMSG_ERROR, 0, refusal))); }), HasSubstr("No such device"));
}

// A copy of its own for each answer, so that the sanitizers see a read behind its end.
TEST(NetlinkParserTest, DamagedAnswersAreErrorsAndNothingElse) {
    RecordedKernel recorded;
    const struct {
        Bytes whole;
        std::function<void(const Bytes&)> parse;
    } dumps[] = {
        {recorded.dump(RTM_GETLINK, 0), parseLinks},
        {recorded.dump(RTM_GETQDISC, 0), parseDisciplines},
        {recorded.dump(RTM_GETTCLASS, 10), parseClasses},
    };
    for (const auto& [whole, parse] : dumps) {
        const auto outcome = [&parse = parse](const Bytes& bytes) { return errorOf([&] { parse(bytes); }); };
        EXPECT_EQ(outcome(whole), "no error");
        for (size_t size = 0; size < whole.size(); ++size) {
            const Bytes part(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
            ASSERT_NE(outcome(part), "no error") << size;
        }
        for (size_t place = 0; place < whole.size(); ++place) {
            for (const unsigned flip : {0x01u, 0x80u, 0xFFu}) {
                Bytes damaged = whole;
                damaged[place] ^= std::byte(flip);
                outcome(damaged);
            }
        }
    }

    // A message says how long it is, and an attribute in it: the answers name what does not fit.
    Bytes classes = recorded.dump(RTM_GETTCLASS, 10);
    const auto put = [](Bytes bytes, size_t offset, uint16_t value) {
        std::memcpy(bytes.data() + offset, &value, sizeof value);
        return bytes;
    };
    const auto outcome = [](const Bytes& bytes) { return errorOf([&] { parseClasses(bytes); }); };
    constexpr size_t kFirstAttribute = NLMSG_HDRLEN + NLMSG_ALIGN(sizeof(tcmsg));
    EXPECT_THAT(outcome(put(classes, 0, 15)), HasSubstr("the message at byte 0 claims 15 bytes"));
    EXPECT_THAT(outcome(put(classes, 0, 0xFFFF)), HasSubstr("the message at byte 0 claims 65535 bytes"));
    EXPECT_THAT(outcome(put(classes, kFirstAttribute, 3)), HasSubstr("an attribute ends outside its message"));
    EXPECT_THAT(outcome(put(classes, kFirstAttribute, 0xFFF0)), HasSubstr("an attribute ends outside its message"));
    const Message shortStats = message(RTM_NEWTCLASS, 0, tcmsg{});
    nla_put_u32(shortStats.get(), TCA_STATS, 1);
    EXPECT_THAT(outcome(bytesOf(shortStats)), HasSubstr("TCA_STATS has 4 bytes, at least 36 are needed"));
}

TEST(NetlinkSocketTest, ReadsTheRunningKernel) {
#ifdef NIVEX_QOS_EMULATED
    GTEST_SKIP() << "the emulator passes no requests for queueing disciplines on to the kernel";
#endif
    const int descriptor = dup(STDIN_FILENO);
    close(descriptor);  // for the socket
    NetlinkSocket kernel;
    ASSERT_EQ(dup2(STDIN_FILENO, descriptor), descriptor);  // which is none any more
    EXPECT_THROW(kernel.dump(RTM_GETLINK, 0), NetlinkError);
    const KernelState state = readKernel(kernel);
    EXPECT_NE(std::ranges::find(state.links, "lo", &Link::name), state.links.end());
    EXPECT_THAT(errorOf([&] { kernel.dump(RTM_GETLINK + 1000, 0); }), "no error") << "a refusal is part of the answer";
    EXPECT_THROW(NetlinkSocket(STDIN_FILENO), std::system_error) << "no namespace";
}

}  // namespace
}  // namespace feed
