/*
 * The lab: a small network of this machine's own kernel with queues that fill and overflow. Two unnamed network
 * namespaces joined by a veth pair; the sending end has HTB with eight classes, 1:10 to 1:17, each with a pfifo of few
 * packets; a thread sends UDP into every class, into most of them more than they pass on.
 *
 * The namespaces are held by descriptors of this process and nothing else: the kernel removes them, with the interfaces
 * and their queues, when the lab goes or the process ends in whatever way. Nothing outside of them is touched. Needs
 * root, the kernel's veth and HTB, and the programs ip and tc, the wait for which a stop ends (Stopped); used by one
 * thread.
 */
#ifndef DEVHOST_CLI_LAB_H
#define DEVHOST_CLI_LAB_H

#include <array>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "devhost/support/descriptor.h"

namespace host {

/* This machine cannot have a lab; the text says why. */
class LabUnavailable : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/* What tc says of a class. */
struct ClassCounters {
    std::string handle;  // "1:10"
    uint64_t packets;
    uint64_t bytes;
    uint64_t drops;
    uint64_t queued;  // packets in the class now

    bool operator==(const ClassCounters&) const = default;
};

class Lab {
  public:
    static constexpr size_t kClasses = 8;

    /* Throws LabUnavailable, or std::runtime_error for what must not fail where a lab can be had. */
    Lab();
    Lab(const Lab&) = delete;
    Lab& operator=(const Lab&) = delete;

    /* The namespace with the classes; the lab keeps the descriptor. */
    int netns() const { return sender_.get(); }

    void startTraffic();
    void stopTraffic();

    /* The classes in the order of their handles, as `tc -s class show` tells them at this moment. */
    std::vector<ClassCounters> readClasses() const;

  private:
    void joinNamespaces();
    void addClasses();
    void openSockets();

    Descriptor sender_;  // namespaces
    Descriptor receiver_;
    Descriptor sink_;  // takes what arrives, so that no answer comes back
    std::array<Descriptor, kClasses> sockets_;
    std::jthread traffic_;
};

}  // namespace host

#endif
