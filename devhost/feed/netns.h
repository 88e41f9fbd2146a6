/*
 * Work in another network namespace. The calling thread never leaves its own: a thread of its own enters the namespace
 * and ends with the work. Sockets opened there and programs started there stay in that namespace.
 */
#ifndef DEVHOST_FEED_NETNS_H
#define DEVHOST_FEED_NETNS_H

#include <functional>

namespace feed {

/* Runs work inside the namespace behind the descriptor and waits for it; what work throws comes through. */
void runInNetns(int netns, const std::function<void()>& work);

/* As runInNetns, inside a namespace made for it; answers a descriptor (the caller's to close) that keeps it alive. */
int makeNetns(const std::function<void()>& work);

}  // namespace feed

#endif
