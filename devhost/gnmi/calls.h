/*
 * The calls of clients that are being served.
 *
 * gRPC calls back on threads of its own. A call's object does nothing there but post to the loop, on whose thread all
 * else happens; the posted work keeps the object alive until its last.
 */
#ifndef DEVHOST_GNMI_CALLS_H
#define DEVHOST_GNMI_CALLS_H

#include <grpcpp/server_context.h>
#include <grpcpp/support/status.h>

#include <chrono>
#include <cstddef>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "devhost/gnmi/sampler.h"
#include "devhost/gnmi/service.h"
#include "devhost/support/account.h"
#include "devhost/support/loop.h"

namespace gnmi {

class Call;

/* What all calls share; outlives the service while calls are left. */
struct Calls {
    Calls(host::Loop& loopOfAll, Sampler& samplerOfAll, const Settings& settings)
        : loop(loopOfAll),
          sampler(samplerOfAll),
          maxSubscriptions(settings.maxSubscriptions),
          maxCalls(settings.maxCalls),
          waitingBytes(settings.waitingBytes) {}

    /* From any thread. Why the call cannot be served; else it is one of the open ones until remove(). */
    std::optional<grpc::Status> add(const std::shared_ptr<Call>& call);
    /* Of a finished call; a second time is ignored. */
    void remove(const std::shared_ptr<Call>& call);
    /* No call is served from now on. */
    void close();

    std::vector<std::shared_ptr<Call>> open() const;
    host::Account ended() const;

    /* On the loop's thread: bytes of answers to Get that wait, which are bounded for all of them together. */
    bool reserve(size_t bytes);
    void release(size_t bytes) { reserved_ -= bytes; }

    host::Loop& loop;
    Sampler& sampler;
    const size_t maxSubscriptions;
    const size_t maxCalls;
    const size_t waitingBytes;

    // Until they are sent gRPC has them as well.
    static constexpr size_t kMostReserved = size_t{32} << 20U;

  private:
    mutable std::mutex mutex_;
    std::vector<std::shared_ptr<Call>> open_;
    host::Account ended_;
    bool closed_ = false;
    size_t reserved_ = 0;
};

/* One call that takes time. Everything but add() and what gRPC calls happens on the loop's thread. */
class Call {
  public:
    virtual ~Call() = default;

    /* Answers with the status as soon as what waits has been sent. No more is sampled for it. */
    virtual void drain(const grpc::Status& status) = 0;
    /* Answers with the status now. Nothing more happens after that; a second time is ignored. */
    virtual void finish(const grpc::Status& status) = 0;
    virtual CallAccount account() const = 0;

  protected:
    /* For a client to say what it wants, and to take what it has been sent. */
    static constexpr std::chrono::seconds kPatience{30};

    /* The context is gRPC's, until forgetContext(). */
    Call(std::shared_ptr<Calls> calls, grpc::CallbackServerContext& context);

    /* When patience_ runs out a client that takes neither its answer nor its status has the call cancelled. */
    void cancelWhenOutOfPatience();

    /* When gRPC is done with the call, on any thread. */
    void forgetContext();

    const std::shared_ptr<Calls> calls_;
    const std::string peer_;
    host::Loop::Watch patience_;

  private:
    void cancel();

    std::mutex mutex_;
    grpc::CallbackServerContext* context_;  // null when gRPC is done with the call
};

}  // namespace gnmi

#endif
