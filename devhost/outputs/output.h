/*
 * An output: hands on what the subscriptions of the configuration bring. Called on the loop's thread; see
 * sampling/consumer.h for what it must not do.
 */
#ifndef DEVHOST_OUTPUTS_OUTPUT_H
#define DEVHOST_OUTPUTS_OUTPUT_H

#include <chrono>
#include <functional>
#include <string>

#include "devhost/sampling/consumer.h"
#include "devhost/support/account.h"

namespace outputs {

class Output : public host::Consumer {
  public:
    /* Of this moment. */
    virtual host::Account account() const = 0;

    /*
     * Delivers what waits, as far as that goes in the time, and takes nothing more; what is left is dropped as stopped.
     * done is called on the loop's thread, before this returns or later, once.
     */
    virtual void flush(std::chrono::milliseconds within, std::function<void()> done) = 0;
};

}  // namespace outputs

#endif
