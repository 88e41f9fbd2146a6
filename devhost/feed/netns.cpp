#include "devhost/feed/netns.h"

#include <fcntl.h>
#include <sched.h>

#include <cerrno>
#include <future>
#include <system_error>
#include <thread>

namespace feed {

namespace {

void runInThread(std::function<void()> work) {
    std::packaged_task<void()> task(std::move(work));
    std::future<void> result = task.get_future();
    std::thread(std::move(task)).join();
    result.get();
}

}  // namespace

void runInNetns(int netns, const std::function<void()>& work) {
    runInThread([&] {
        if (setns(netns, CLONE_NEWNET) != 0) {
            throw std::system_error(errno, std::generic_category(), "cannot enter the network namespace");
        }
        work();
    });
}

int makeNetns(const std::function<void()>& work) {
    int netns = -1;
    runInThread([&] {
        if (unshare(CLONE_NEWNET) != 0) {
            throw std::system_error(errno, std::generic_category(), "cannot make a network namespace");
        }
        work();
        netns = open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC);
        if (netns < 0) {
            throw std::system_error(errno, std::generic_category(), "cannot open the new network namespace");
        }
    });
    return netns;
}

}  // namespace feed
