/*
 * What requests ask for, checked, as what has to be sampled.
 */
#ifndef DEVHOST_GNMI_REQUESTS_H
#define DEVHOST_GNMI_REQUESTS_H

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

#include "devhost/gnmi/paths.h"
#include "devhost/sampling/subscription.h"
#include "gnmi.pb.h"

namespace gnmi {

/* One list of a subscription, or of a path of a Get. */
struct Wanted {
    std::string path;  // as it was asked for, for people
    Addressed what;
    host::Subscription sampling;  // its `every` is 0 where passes are made on request

    /* Only rows of which a field among `compared` changed since they were sent; else every row of every pass. */
    bool changesOnly = false;
    std::vector<int> compared = {};

    /* The longest that a row may go unsent that has not changed; 0 is any time. */
    std::chrono::milliseconds heartbeat{0};

    /* How long it takes at most, while all goes well, until a row that has not changed comes again in a sample. */
    std::chrono::milliseconds seenAgain{0};
};

/* Both throw Fault; `most` is how many lists may be wanted at once. */
std::vector<Wanted> wantedBy(const SubscriptionList& list, size_t most);
std::vector<Wanted> wantedBy(const GetRequest& request, size_t most);

/* What comes before the paths of all notifications of an answer: the client's names, as it gave them. Throws Fault. */
Path prefixOfAnswers(const Path& prefix);

}  // namespace gnmi

#endif
