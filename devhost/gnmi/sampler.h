/*
 * What the gNMI service needs of the agent: subscriptions that it can start and end. All on the loop's thread.
 */
#ifndef DEVHOST_GNMI_SAMPLER_H
#define DEVHOST_GNMI_SAMPLER_H

#include <memory>
#include <stdexcept>

#include "devhost/sampling/consumer.h"

namespace gnmi {

/* There are as many subscriptions as the configuration allows; the text says how many. */
class TooManySubscriptions : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/* A subscription with a worker of its own; ends with this object. */
class Sampling {
  public:
    virtual ~Sampling() = default;
    virtual const host::Source& source() const = 0;
    /* Makes a pass now, besides those that are due by themselves. One after the other. */
    virtual void requestPass() = 0;
};

class Sampler {
  public:
    virtual ~Sampler() = default;

    /*
     * Starts a subscription: a pass at each multiple of its `every`, or on request when that is 0. The consumer must
     * outlive the result, which may be destroyed in a call of the consumer. Throws TooManySubscriptions, and
     * host::SubscriptionError for what the path would not follow.
     */
    virtual std::unique_ptr<Sampling> start(const host::Subscription& subscription, host::Consumer& consumer) = 0;
};

}  // namespace gnmi

#endif
