#include "devhost/feed/netlink.h"

#include <fmt/format.h>
#include <linux/gen_stats.h>
#include <linux/if_link.h>
#include <linux/pkt_sched.h>
#include <linux/rtnetlink.h>
#include <netlink/attr.h>
#include <netlink/msg.h>
#include <netlink/netlink.h>
#include <netlink/socket.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <map>
#include <string_view>
#include <thread>
#include <utility>

#include "devhost/feed/netns.h"

namespace feed {

namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

constexpr auto kRepeatFor = 200ms;  // dumps that are interrupted
constexpr auto kFirstPause = 1ms;   // between them, doubled each time
constexpr auto kLongestWait = 1s;   // for a part of an answer
constexpr int kLeastError = -4095;  // of the error numbers that a kernel can answer

// A kernel record from the wire: the bytes there are, the rest 0; smallest is what every kernel sends.
template <typename Record>
Record copyRecord(const void* data, size_t size, size_t smallest, const char* what) {
    if (size < smallest) {
        throw NetlinkError(fmt::format("{} has {} bytes, at least {} are needed", what, size, smallest));
    }
    Record record = {};
    std::memcpy(&record, data, std::min(size, sizeof record));
    return record;
}

size_t attributeSize(const nlattr* attribute) {
    return static_cast<size_t>(nla_len(attribute));
}

template <typename Record>
Record attributeRecord(const nlattr* attribute, size_t smallest, const char* what) {
    return copyRecord<Record>(nla_data(attribute), attributeSize(attribute), smallest, what);
}

std::string attributeText(const nlattr* attribute) {
    const auto* text = static_cast<const char*>(nla_data(attribute));
    return {text, strnlen(text, attributeSize(attribute))};
}

template <typename Visit>
void forEachAttribute(const nlattr* first, int size, Visit&& visit) {
    const nlattr* attribute;
    int left;
    nla_for_each_attr(attribute, first, size, left) visit(attribute);
    if (left > 0) {
        throw NetlinkError(fmt::format("an attribute ends outside its message ({} bytes are left)", left));
    }
}

template <typename Header>
struct Message {
    Header header;
    const nlattr* attributes;
    int attributesSize;
};

template <typename Header>
Message<Header> openMessage(const nlmsghdr* message, const char* what) {
    const auto size = static_cast<size_t>(nlmsg_datalen(message));
    Message<Header> result = {copyRecord<Header>(nlmsg_data(message), size, sizeof(Header), what), nullptr, 0};
    result.attributes = nlmsg_attrdata(message, sizeof(Header));
    result.attributesSize = nlmsg_attrlen(message, sizeof(Header));
    return result;
}

[[noreturn]] void throwKernelError(int error) {
    throw NetlinkError(fmt::format("the kernel refuses it: {}", std::strerror(-std::max(error, kLeastError))));
}

// Visits the messages of the wanted type; the answer has to be whole, that is to end with NLMSG_DONE. Answers whether
// the dump was interrupted.
template <typename Visit>
bool forEachMessage(std::span<const std::byte> answer, uint16_t type, Visit&& visit) {
    bool interrupted = false;
    for (size_t offset = 0; answer.size() - offset >= sizeof(nlmsghdr);) {
        const auto* message = reinterpret_cast<const nlmsghdr*>(answer.data() + offset);
        const size_t left = answer.size() - offset;
        if (message->nlmsg_len < sizeof(nlmsghdr) || message->nlmsg_len > left) {
            throw NetlinkError(
                fmt::format("the message at byte {} claims {} bytes, {} are there", offset, message->nlmsg_len, left));
        }
        interrupted = interrupted || (message->nlmsg_flags & NLM_F_DUMP_INTR) != 0;

        const auto size = static_cast<size_t>(nlmsg_datalen(message));
        if (message->nlmsg_type == NLMSG_ERROR) {
            throwKernelError(
                copyRecord<nlmsgerr>(nlmsg_data(message), size, sizeof(nlmsgerr::error), "the error message").error);
        } else if (message->nlmsg_type == NLMSG_DONE) {
            const int status = copyRecord<int>(nlmsg_data(message), size, 0, "the end message");
            if (status < 0) {
                throwKernelError(status);
            }
            return interrupted;
        } else if (message->nlmsg_type == type) {
            visit(message);
        }
        offset += std::min<size_t>(NLMSG_ALIGN(message->nlmsg_len), left);
    }
    throw NetlinkError(fmt::format("the answer ends after {} bytes without its end message", answer.size()));
}

// What is known of the options and the statistics of a kind of discipline.
struct Kind {
    std::string_view name;
    int limitAttribute;  // nested in TCA_OPTIONS; kWholeOptions: TCA_OPTIONS itself. The limit is its first word.
    bool limitInPackets;
    size_t marksOffset;  // of the count of ECN marks in TCA_STATS_APP, or kNoMarks
};
constexpr int kWholeOptions = 0;
constexpr size_t kNoMarks = SIZE_MAX;
constexpr size_t kFqCodelMarks = offsetof(tc_fq_codel_xstats, qdisc_stats) + offsetof(tc_fq_codel_qd_stats, ecn_mark);

constexpr Kind kKinds[] = {
    {"pfifo", kWholeOptions, true, kNoMarks},
    {"pfifo_head_drop", kWholeOptions, true, kNoMarks},
    {"bfifo", kWholeOptions, false, kNoMarks},
    {"red", TCA_RED_PARMS, false, offsetof(tc_red_xstats, marked)},
    {"choke", TCA_CHOKE_PARMS, true, offsetof(tc_choke_xstats, marked)},
    {"codel", TCA_CODEL_LIMIT, true, offsetof(tc_codel_xstats, ecn_mark)},
    {"fq_codel", TCA_FQ_CODEL_LIMIT, true, kFqCodelMarks},
    {"pie", TCA_PIE_LIMIT, true, offsetof(tc_pie_xstats, ecn_mark)},
    {"fq_pie", TCA_FQ_PIE_LIMIT, true, offsetof(tc_fq_pie_xstats, ecn_mark)},
};

const Kind* findKind(std::string_view name) {
    const auto* kind = std::ranges::find(kKinds, name, &Kind::name);
    return kind == std::end(kKinds) ? nullptr : kind;
}

std::optional<uint32_t> wordAt(const nlattr* attribute, size_t offset) {
    uint32_t word;
    if (attributeSize(attribute) < sizeof word || offset > attributeSize(attribute) - sizeof word) {
        return std::nullopt;
    }
    std::memcpy(&word, static_cast<const std::byte*>(nla_data(attribute)) + offset, sizeof word);
    return word;
}

std::optional<QueueLimit> parseLimit(const Kind& kind, const nlattr* options) {
    std::optional<uint32_t> amount;
    if (kind.limitAttribute == kWholeOptions) {
        amount = wordAt(options, 0);
    } else {
        forEachAttribute(static_cast<const nlattr*>(nla_data(options)), nla_len(options), [&](const nlattr* option) {
            if (nla_type(option) == kind.limitAttribute) {
                amount = wordAt(option, 0);
            }
        });
    }
    return amount ? std::optional(QueueLimit{*amount, kind.limitInPackets}) : std::nullopt;
}

struct Stats2 {
    std::optional<Counters> counters;
    const nlattr* own = nullptr;  // TCA_STATS_APP: what the kind of discipline adds
};

Stats2 parseStats2(const nlattr* stats) {
    Stats2 result;
    Counters counters;
    bool counted = false;
    bool hardware = false;
    forEachAttribute(static_cast<const nlattr*>(nla_data(stats)), nla_len(stats), [&](const nlattr* attribute) {
        switch (nla_type(attribute)) {
            case TCA_STATS_BASIC: {
                constexpr size_t kSmallest = offsetof(gnet_stats_basic, packets) + sizeof(uint32_t);
                const auto basic = attributeRecord<gnet_stats_basic>(attribute, kSmallest, "TCA_STATS_BASIC");
                counters.bytes = basic.bytes;
                counters.packets = basic.packets;
                counted = true;
                break;
            }
            case TCA_STATS_BASIC_HW:
                hardware = true;
                break;
            case TCA_STATS_PKT64:
                if (!hardware) {  // behind TCA_STATS_BASIC_HW it belongs to the hardware's count
                    counters.packets = attributeRecord<uint64_t>(attribute, sizeof(uint64_t), "TCA_STATS_PKT64");
                    counters.packets64 = true;
                }
                break;
            case TCA_STATS_QUEUE: {
                const auto queue =
                    attributeRecord<gnet_stats_queue>(attribute, sizeof(gnet_stats_queue), "TCA_STATS_QUEUE");
                counters.drops = queue.drops;
                counters.backlogBytes = queue.backlog;
                break;
            }
            case TCA_STATS_APP:
                result.own = attribute;
                break;
            default:
                break;
        }
    });
    if (counted) {
        result.counters = counters;
    }
    return result;
}

Counters parseStats(const nlattr* attribute) {
    constexpr size_t kSmallest = offsetof(tc_stats, backlog) + sizeof(uint32_t);
    const auto stats = attributeRecord<tc_stats>(attribute, kSmallest, "TCA_STATS");
    Counters counters;
    counters.bytes = stats.bytes;
    counters.packets = stats.packets;
    counters.drops = stats.drops;
    counters.backlogBytes = stats.backlog;
    return counters;
}

// A class goes by the kind of its discipline, whose options and own statistics are not the class's.
TcObject parseTcObject(const nlmsghdr* message) {
    const auto opened = openMessage<tcmsg>(message, "the traffic control message");
    TcObject object = {
        static_cast<uint32_t>(opened.header.tcm_ifindex), opened.header.tcm_handle, opened.header.tcm_parent, {}, {}};
    std::optional<Counters> legacy;
    std::optional<Stats2> stats2;
    const nlattr* options = nullptr;
    forEachAttribute(opened.attributes, opened.attributesSize, [&](const nlattr* attribute) {
        switch (nla_type(attribute)) {
            case TCA_KIND:
                object.kind = attributeText(attribute);
                break;
            case TCA_STATS:
                legacy = parseStats(attribute);
                break;
            case TCA_STATS2:
                stats2 = parseStats2(attribute);
                break;
            case TCA_OPTIONS:
                options = attribute;
                break;
            default:
                break;
        }
    });
    // Beside TCA_STATS2 the old record is there even for what the kernel does not count.
    object.counters = stats2 ? stats2->counters : legacy;
    const Kind* kind = message->nlmsg_type == RTM_NEWQDISC ? findKind(object.kind) : nullptr;
    if (kind != nullptr && options != nullptr) {
        object.limit = parseLimit(*kind, options);
    }
    if (kind != nullptr && kind->marksOffset != kNoMarks && stats2 && stats2->own != nullptr) {
        object.ecnMarks = wordAt(stats2->own, kind->marksOffset);
    }
    return object;
}

Dump<TcObject> parseTcObjects(std::span<const std::byte> answer, uint16_t type) {
    Dump<TcObject> dump;
    dump.interrupted =
        forEachMessage(answer, type, [&](const nlmsghdr* message) { dump.entries.push_back(parseTcObject(message)); });
    return dump;
}

const char* dumpName(uint16_t type) {
    switch (type) {
        case RTM_GETLINK:
            return "interfaces";
        case RTM_GETQDISC:
            return "queueing disciplines";
        default:
            return "classes";
    }
}

// The first dump that is not interrupted, or, when there is none in time, all that were, one behind the other.
template <typename Entry>
Dump<Entry> readDump(NetlinkSource& source, uint16_t type, uint32_t ifIndex, Clock::time_point until,
                     Dump<Entry> (*parse)(std::span<const std::byte>)) {
    Dump<Entry> seen = {.interrupted = true};
    for (auto pause = kFirstPause;; pause *= 2) {
        Dump<Entry> dump = parse(source.dump(type, ifIndex));
        if (!dump.interrupted) {
            return dump;
        }
        std::ranges::move(dump.entries, std::back_inserter(seen.entries));
        if (Clock::now() + pause > until) {
            return seen;
        }
        source.pause(pause);
    }
}

// There is one link of an index, and one discipline below a parent.
using EntryKey = std::pair<uint32_t, uint32_t>;
EntryKey keyOf(const Link& link) {
    return {link.ifIndex, 0};
}
EntryKey keyOf(const TcObject& discipline) {
    return {discipline.ifIndex, discipline.parent};
}

// Of what is said more than once the last counts.
template <typename Entry>
std::vector<Entry> readAll(NetlinkSource& source, uint16_t type, Clock::time_point until,
                           Dump<Entry> (*parse)(std::span<const std::byte>), std::vector<std::string>& troubles) {
    try {
        Dump<Entry> dump = readDump(source, type, 0, until, parse);
        if (dump.interrupted) {
            troubles.push_back(
                fmt::format("the kernel's {} keep changing while they are read: some may be missing", dumpName(type)));
        }
        std::map<EntryKey, Entry> last;
        for (Entry& entry : dump.entries) {
            const EntryKey key = keyOf(entry);
            last.insert_or_assign(key, std::move(entry));
        }
        std::vector<Entry> entries;
        entries.reserve(last.size());
        for (auto& [key, entry] : last) {
            entries.push_back(std::move(entry));
        }
        return entries;
    } catch (const NetlinkError& error) {
        throw NetlinkError(fmt::format("cannot read the kernel's {}: {}", dumpName(type), error.what()));
    }
}

void check(int result, const char* what) {
    if (result < 0) {
        throw NetlinkError(fmt::format("{}: {}", what, nl_geterror(result)));
    }
}

// True once the datagram ends the answer to the request.
bool endsAnswer(const nlmsghdr* message, int size) {
    for (; nlmsg_ok(message, size); message = nlmsg_next(const_cast<nlmsghdr*>(message), &size)) {
        if (message->nlmsg_type == NLMSG_DONE || message->nlmsg_type == NLMSG_ERROR) {
            return true;
        }
    }
    return false;
}

}  // namespace

void NetlinkSource::pause(std::chrono::milliseconds time) {
    std::this_thread::sleep_for(time);
}

NetlinkSocket::NetlinkSocket(int netns) : netns_(netns), socket_(nullptr, nl_socket_free) {
    connect();
}

void NetlinkSocket::connect() {
    decltype(socket_) opened(nl_socket_alloc(), nl_socket_free);
    if (opened == nullptr) {
        throw NetlinkError("cannot make a netlink socket: out of memory");
    }
    const auto connectHere = [&opened] {
        check(nl_connect(opened.get(), NETLINK_ROUTE), "cannot connect to the kernel over netlink");
    };
    if (netns_ < 0) {
        connectHere();
    } else {
        runInNetns(netns_, connectHere);
    }
    const timeval wait = {.tv_sec = kLongestWait / 1s, .tv_usec = 0};
    setsockopt(nl_socket_get_fd(opened.get()), SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof wait);
    socket_ = std::move(opened);
}

std::vector<std::byte> NetlinkSocket::dump(uint16_t type, uint32_t ifIndex) {
    if (socket_ == nullptr) {
        connect();
    }
    try {
        return exchange(type, ifIndex);
    } catch (...) {
        socket_.reset();  // what is left of the answer would be taken for the next one
        throw;
    }
}

std::vector<std::byte> NetlinkSocket::exchange(uint16_t type, uint32_t ifIndex) {
    ifinfomsg linkRequest = {};
    tcmsg tcRequest = {};
    tcRequest.tcm_ifindex = static_cast<int>(ifIndex);
    const int sent = type == RTM_GETLINK
                         ? nl_send_simple(socket_.get(), type, NLM_F_DUMP, &linkRequest, sizeof linkRequest)
                         : nl_send_simple(socket_.get(), type, NLM_F_DUMP, &tcRequest, sizeof tcRequest);
    check(sent, "cannot send the request");

    std::vector<std::byte> answer;
    for (bool whole = false; !whole;) {
        sockaddr_nl sender = {};
        unsigned char* data = nullptr;
        const int size = nl_recv(socket_.get(), &sender, &data, nullptr);
        check(size, "cannot receive the answer");
        const std::unique_ptr<unsigned char, void (*)(void*)> owner(data, std::free);
        if (size == 0) {
            throw NetlinkError("the kernel closed the netlink socket");
        }
        const auto* bytes = reinterpret_cast<const std::byte*>(data);
        answer.insert(answer.end(), bytes, bytes + size);
        whole = endsAnswer(reinterpret_cast<const nlmsghdr*>(data), size);
    }
    return answer;
}

Dump<Link> parseLinks(std::span<const std::byte> answer) {
    Dump<Link> dump;
    dump.interrupted = forEachMessage(answer, RTM_NEWLINK, [&](const nlmsghdr* message) {
        const auto opened = openMessage<ifinfomsg>(message, "the interface message");
        Link link = {.ifIndex = static_cast<uint32_t>(opened.header.ifi_index), .name = {}};
        forEachAttribute(opened.attributes, opened.attributesSize, [&](const nlattr* attribute) {
            switch (nla_type(attribute)) {
                case IFLA_IFNAME:
                    link.name = attributeText(attribute);
                    break;
                case IFLA_MTU:
                    link.mtu = attributeRecord<uint32_t>(attribute, sizeof(uint32_t), "IFLA_MTU");
                    break;
                case IFLA_TXQLEN:
                    link.txQueueLength = attributeRecord<uint32_t>(attribute, sizeof(uint32_t), "IFLA_TXQLEN");
                    break;
                case IFLA_STATS64: {
                    constexpr size_t kSmallest = offsetof(rtnl_link_stats64, rx_missed_errors) + sizeof(uint64_t);
                    const auto stats = attributeRecord<rtnl_link_stats64>(attribute, kSmallest, "IFLA_STATS64");
                    link.receiveDrops = stats.rx_dropped + stats.rx_missed_errors;
                    break;
                }
                default:
                    break;
            }
        });
        if (link.name.empty()) {
            throw NetlinkError(fmt::format("interface {} has no name", link.ifIndex));
        }
        dump.entries.push_back(std::move(link));
    });
    return dump;
}

Dump<TcObject> parseDisciplines(std::span<const std::byte> answer) {
    return parseTcObjects(answer, RTM_NEWQDISC);
}

Dump<TcObject> parseClasses(std::span<const std::byte> answer) {
    return parseTcObjects(answer, RTM_NEWTCLASS);
}

// Interfaces come last: one that is gone by then is left out, with its disciplines and classes, as one that comes
// later.
KernelState readKernel(NetlinkSource& source) {
    const auto until = Clock::now() + kRepeatFor;
    KernelState state;
    state.disciplines = readAll(source, RTM_GETQDISC, until, parseDisciplines, state.troubles);
    std::map<uint32_t, std::string> refused;  // interfaces, and why their classes cannot be read
    for (const TcObject& discipline : state.disciplines) {
        if (discipline.parent == TC_H_ROOT) {
            try {
                Dump<TcObject> dump = readDump(source, RTM_GETTCLASS, discipline.ifIndex, until, parseClasses);
                if (!dump.interrupted) {
                    std::ranges::move(dump.entries, std::back_inserter(state.classes));
                    continue;
                }
                refused[discipline.ifIndex] = "they keep changing";
            } catch (const NetlinkError& error) {
                if (Clock::now() > until + kLongestWait) {  // not of each interface again
                    throw;
                }
                refused[discipline.ifIndex] = error.what();
            }
        }
    }
    state.links = readAll(source, RTM_GETLINK, until, parseLinks, state.troubles);
    for (const Link& link : state.links) {
        if (const auto found = refused.find(link.ifIndex); found != refused.end()) {
            state.unread.insert(link.ifIndex);
            state.troubles.push_back(fmt::format("the queues of {} are left out: cannot read the kernel's {}: {}",
                                                 link.name, dumpName(RTM_GETTCLASS), found->second));
        }
    }
    return state;
}

}  // namespace feed
