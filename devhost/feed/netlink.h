/*
 * What the kernel says of its queueing: links, disciplines and classes, read over rtnetlink.
 *
 * Reading has two halves. A NetlinkSource fetches the answer to a dump request as bytes; the parse functions turn such
 * bytes into values and touch nothing else, so they work on recorded answers as well. readKernel joins the two. Errors
 * of either half are NetlinkErrors; those of readKernel say which dump failed and why. After an error the next reading
 * begins anew.
 */
#ifndef DEVHOST_FEED_NETLINK_H
#define DEVHOST_FEED_NETLINK_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

struct nl_sock;

namespace feed {

class NetlinkError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

struct Link {
    uint32_t ifIndex;
    std::string name;
    uint32_t mtu = 0;
    uint32_t txQueueLength = 0;                 // packets that a discipline without a limit of its own may hold
    std::optional<uint64_t> receiveDrops = {};  // packets: rx_dropped plus rx_missed_errors, which exclude each other
};

/* What a discipline or class has counted since it was made. */
struct Counters {
    uint64_t bytes = 0;         // passed
    uint64_t packets = 0;       // passed
    bool packets64 = false;     // false: packets holds the low 32 bits only, if the kernel counts in 32 bits
    uint32_t drops = 0;         // packets; wraps
    uint32_t backlogBytes = 0;  // now in the queue
};

/* How much a discipline may hold. */
struct QueueLimit {
    uint32_t amount;
    bool inPackets;  // else in bytes
};

/* A queueing discipline or a class of one. */
struct TcObject {
    uint32_t ifIndex;
    uint32_t handle;  // major << 16 | minor; a discipline's minor is 0
    uint32_t parent;  // handle of a class or discipline, or TC_H_ROOT
    std::string kind;
    std::optional<Counters> counters;       // none when the kernel does not count what passes it
    std::optional<QueueLimit> limit = {};   // of a discipline that tells it
    std::optional<uint32_t> ecnMarks = {};  // packets, wraps; of a discipline that reports them
};

/* The entries of an answer. interrupted: the kernel's tables changed meanwhile, so that some may lack or come twice. */
template <typename Entry>
struct Dump {
    std::vector<Entry> entries = {};
    bool interrupted = false;
};

struct KernelState {
    std::vector<Link> links;
    std::vector<TcObject> disciplines;  // of these links
    std::vector<TcObject> classes;
    std::set<uint32_t> unread;          // interfaces of which no class is here, because they could not be read
    std::vector<std::string> troubles;  // what is missing or may be, with the reason
};

class NetlinkSource {
  public:
    virtual ~NetlinkSource() = default;

    /*
     * The kernel's answer to a dump request of this type (RTM_GETLINK, RTM_GETQDISC, RTM_GETTCLASS): its messages one
     * behind the other, NLMSG_DONE included. Classes are asked for by interface, the rest (ifIndex 0) for all at once.
     * Throws NetlinkError, and can be called again.
     */
    virtual std::vector<std::byte> dump(uint16_t type, uint32_t ifIndex) = 0;

    /* Waits before a dump that was interrupted is asked for again. */
    virtual void pause(std::chrono::milliseconds time);
};

/* A socket to the running kernel, opened anew after an error. Used by one thread at a time. */
class NetlinkSocket : public NetlinkSource {
  public:
    /* In the network namespace behind the descriptor, which is borrowed; -1: in the caller's own. */
    explicit NetlinkSocket(int netns = -1);

    std::vector<std::byte> dump(uint16_t type, uint32_t ifIndex) override;

  private:
    void connect();
    std::vector<std::byte> exchange(uint16_t type, uint32_t ifIndex);

    int netns_;
    std::unique_ptr<nl_sock, void (*)(nl_sock*)> socket_;
};

/* The entries of an answer to RTM_GETLINK, RTM_GETQDISC and RTM_GETTCLASS. The bytes are aligned as a vector's are. */
Dump<Link> parseLinks(std::span<const std::byte> answer);
Dump<TcObject> parseDisciplines(std::span<const std::byte> answer);
Dump<TcObject> parseClasses(std::span<const std::byte> answer);

/*
 * All interfaces at this moment, each whole or not at all: one that goes away meanwhile is left out. Interrupted dumps
 * are repeated for a fifth of a second; after that what was seen of interfaces and disciplines counts, and an interface
 * whose classes keep changing is unread. Throws NetlinkError when interfaces or disciplines cannot be read.
 */
KernelState readKernel(NetlinkSource& source);

}  // namespace feed

#endif
