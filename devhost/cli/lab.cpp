#include "devhost/cli/lab.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <netinet/in.h>
#include <signal.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <sstream>
#include <system_error>

#include "devhost/feed/netns.h"
#include "devhost/support/stop.h"

namespace host {

namespace {

// Addresses of the documentation network; the names are seen in the lab's namespaces only.
constexpr const char* kSenderDevice = "qos0";
constexpr const char* kReceiverDevice = "qos1";
constexpr const char* kSenderAddress = "192.0.2.1";
constexpr const char* kReceiverAddress = "192.0.2.2";
constexpr uint16_t kDiscardPort = 9;
constexpr uint32_t kFirstClass = 0x10;
constexpr uint32_t kQueueLimit = 20;  // packets

// What a class may pass on and what is sent into it (70 to 210 percent of that), in bytes per second, and the size of
// its packets.
constexpr uint32_t classRate(size_t index) {
    return 50'000 + 25'000 * static_cast<uint32_t>(index);
}
constexpr double sendRate(size_t index) {
    return classRate(index) * (0.7 + 0.2 * static_cast<double>(index));
}
constexpr size_t payloadSize(size_t index) {
    return 200 + 150 * index;
}
constexpr size_t kHeaders = 14 + 20 + 8;  // Ethernet, IPv4, UDP

using Clock = std::chrono::steady_clock;
using Command = std::vector<std::string>;

[[noreturn]] void throwErrno(const std::string& what) {
    throw std::system_error(errno, std::generic_category(), what);
}

class CommandFailed : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

std::string readAll(int file) {
    std::string text;
    char part[4096];
    for (ssize_t size; (size = pread(file, part, sizeof part, static_cast<off_t>(text.size()))) > 0;) {
        text.append(part, static_cast<size_t>(size));
    }
    return text;
}

// Starts the program from the calling thread, so in its namespace, and waits; answers what it printed.
std::string runHere(const Command& command) {
    // A file in memory instead of pipes: whatever the program prints has room and nobody waits for anybody.
    const Descriptor output(memfd_create("output", MFD_CLOEXEC));
    if (output.get() < 0) {
        throwErrno("cannot make a file in memory");
    }
    std::vector<char*> arguments;
    for (const std::string& word : command) {
        arguments.push_back(const_cast<char*>(word.c_str()));
    }
    arguments.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, output.get(), STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, output.get(), STDERR_FILENO);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP);  // Ctrl-C is for this program, not for that one
    pid_t process = 0;
    const int error = posix_spawnp(&process, arguments[0], &actions, &attributes, arguments.data(), environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    if (error == ENOENT) {
        throw LabUnavailable(fmt::format("the program '{}' is missing (package iproute2)", command[0]));
    }
    if (error != 0) {
        throw std::system_error(error, std::generic_category(), fmt::format("cannot start '{}'", command[0]));
    }

    const Descriptor ended(static_cast<int>(syscall(SYS_pidfd_open, process, 0)));
    const bool stopped = ended.get() >= 0 && waitForInput(ended.get());
    if (stopped) {
        kill(process, SIGKILL);
    }
    int status = 0;
    while (waitpid(process, &status, 0) < 0) {
        if (errno != EINTR) {
            throwErrno(fmt::format("cannot wait for '{}'", command[0]));
        }
    }
    if (stopped) {
        throw Stopped();
    }
    std::string text = readAll(output.get());
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        text.erase(text.find_last_not_of('\n') + 1);
        throw CommandFailed(fmt::format("'{}' failed: {}", fmt::join(command, " "),
                                        WIFEXITED(status) ? text : strsignal(WTERMSIG(status))));
    }
    return text;
}

std::string runIn(int netns, const Command& command) {
    std::string text;
    feed::runInNetns(netns, [&] { text = runHere(command); });
    return text;
}

// The kernel may lack what the command asks for.
void tryIn(int netns, const Command& command) {
    try {
        runIn(netns, command);
    } catch (const CommandFailed& error) {
        throw LabUnavailable(error.what());
    }
}

Descriptor makeNamespace() {
    try {
        return Descriptor(feed::makeNetns([] {
            // Neighbour discovery would send packets of its own. There may be no IPv6 at all.
            const Descriptor setting(open("/proc/sys/net/ipv6/conf/all/disable_ipv6", O_WRONLY | O_CLOEXEC));
            [[maybe_unused]] const ssize_t written = write(setting.get(), "1", 1);
        }));
    } catch (const std::system_error& error) {
        throw LabUnavailable(error.what());
    }
}

sockaddr_in addressOf(const char* text) {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(kDiscardPort);
    inet_pton(AF_INET, text, &address.sin_addr);
    return address;
}

Descriptor openUdp() {
    Descriptor udp(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (udp.get() < 0) {
        throwErrno("cannot open a UDP socket");
    }
    return udp;
}

void sendTraffic(const std::stop_token& stop, const std::array<Descriptor, Lab::kClasses>& sockets) {
    constexpr auto kPace = std::chrono::milliseconds(5);
    std::array<double, Lab::kClasses> due = {};  // bytes
    const std::vector<char> payload(payloadSize(Lab::kClasses - 1));
    for (auto last = Clock::now(); !stop.stop_requested();) {
        std::this_thread::sleep_for(kPace);
        const auto now = Clock::now();
        // After a pause of the whole machine the rest of the load is left out rather than sent at once.
        const std::chrono::duration<double> span = std::min<Clock::duration>(now - last, 20 * kPace);
        last = now;
        for (size_t index = 0; index < sockets.size(); ++index) {
            const auto size = static_cast<double>(kHeaders + payloadSize(index));
            due[index] += sendRate(index) * span.count();
            while (due[index] >= size) {
                due[index] -= size;
                // A refused packet is one that the class has dropped.
                (void)!send(sockets[index].get(), payload.data(), payloadSize(index), MSG_DONTWAIT | MSG_NOSIGNAL);
            }
        }
    }
}

}  // namespace

Lab::Lab() : sender_(makeNamespace()), receiver_(makeNamespace()) {
    joinNamespaces();
    addClasses();
    openSockets();
}

void Lab::joinNamespaces() {
    const std::string receiver = fmt::format("/proc/{}/fd/{}", getpid(), receiver_.get());
    tryIn(sender_.get(), {"ip", "link", "add", "name", kSenderDevice, "type", "veth", "peer", "name", kReceiverDevice,
                          "netns", receiver});
    const auto bringUp = [](int netns, const char* device, const char* address) {
        runIn(netns, {"ip", "address", "add", fmt::format("{}/24", address), "dev", device});
        runIn(netns, {"ip", "link", "set", "dev", device, "up"});
    };
    bringUp(sender_.get(), kSenderDevice, kSenderAddress);
    bringUp(receiver_.get(), kReceiverDevice, kReceiverAddress);
}

void Lab::addClasses() {
    tryIn(sender_.get(), {"tc", "qdisc", "add", "dev", kSenderDevice, "root", "handle", "1:", "htb"});
    for (size_t index = 0; index < kClasses; ++index) {
        const std::string handle = fmt::format("1:{:x}", kFirstClass + index);
        const std::string rate = fmt::format("{}bps", classRate(index));  // tc's bps is bytes per second
        runIn(sender_.get(), {"tc", "class", "add", "dev", kSenderDevice, "parent", "1:", "classid", handle, "htb",
                              "rate", rate, "ceil", rate});
        runIn(sender_.get(), {"tc", "qdisc", "add", "dev", kSenderDevice, "parent", handle, "pfifo", "limit",
                              std::to_string(kQueueLimit)});
    }
}

void Lab::openSockets() {
    feed::runInNetns(receiver_.get(), [this] {
        sink_ = openUdp();
        const sockaddr_in address = addressOf(kReceiverAddress);
        if (bind(sink_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
            throwErrno("cannot bind the sink");
        }
    });
    feed::runInNetns(sender_.get(), [this] {
        const sockaddr_in address = addressOf(kReceiverAddress);
        for (size_t index = 0; index < kClasses; ++index) {
            sockets_[index] = openUdp();
            const int socket = sockets_[index].get();
            // HTB takes a priority that is the handle of one of its classes for that class.
            const int handle = static_cast<int>(1u << 16 | (kFirstClass + index));
            if (setsockopt(socket, SOL_SOCKET, SO_PRIORITY, &handle, sizeof handle) != 0) {
                throwErrno("cannot set a socket's priority to the handle of a class");
            }
            if (connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
                throwErrno("cannot connect a sending socket");
            }
        }
    });
}

void Lab::startTraffic() {
    traffic_ = std::jthread([this](const std::stop_token& stop) { sendTraffic(stop, sockets_); });
}

void Lab::stopTraffic() {
    traffic_.request_stop();
    if (traffic_.joinable()) {
        traffic_.join();
    }
}

std::vector<ClassCounters> Lab::readClasses() const {
    // As text: not every tc in use can show classes as JSON; those that cannot ignore -j.
    const std::string text = runIn(sender_.get(), {"tc", "-s", "class", "show", "dev", kSenderDevice});
    std::vector<ClassCounters> classes;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        char handle[16];
        ClassCounters counters = {};
        if (std::sscanf(line.c_str(), "class htb %15s", handle) == 1) {
            counters.handle = handle;
            classes.push_back(counters);
        } else if (!classes.empty() &&
                   std::sscanf(line.c_str(), " Sent %" SCNu64 " bytes %" SCNu64 " pkt (dropped %" SCNu64,
                               &counters.bytes, &counters.packets, &counters.drops) == 3) {
            counters.handle = classes.back().handle;
            classes.back() = counters;
        } else if (!classes.empty()) {
            std::sscanf(line.c_str(), " backlog %*s %" SCNu64 "p", &classes.back().queued);
        }
    }
    if (classes.size() != kClasses) {
        throw std::runtime_error(fmt::format("tc shows {} of {} classes:\n{}", classes.size(), kClasses, text));
    }
    std::ranges::sort(classes, {}, &ClassCounters::handle);
    return classes;
}

}  // namespace host
