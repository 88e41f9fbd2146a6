#include "devhost/gnmi/calls.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace gnmi {

std::optional<grpc::Status> Calls::add(const std::shared_ptr<Call>& call) {
    const std::scoped_lock lock(mutex_);
    if (closed_) {
        return grpc::Status(grpc::StatusCode::UNAVAILABLE, "the agent is stopping");
    }
    if (open_.size() >= maxCalls) {
        return grpc::Status(grpc::StatusCode::RESOURCE_EXHAUSTED,
                            fmt::format("{} calls are being served, the most at one time", maxCalls));
    }
    open_.push_back(call);
    return std::nullopt;
}

void Calls::remove(const std::shared_ptr<Call>& call) {
    const host::Account account = call->account().account;
    const std::scoped_lock lock(mutex_);
    if (std::erase(open_, call) == 0) {
        return;
    }
    ended_.offered += account.offered;
    ended_.delivered += account.delivered;
    for (size_t reason = 0; reason < account.dropped.size(); ++reason) {
        ended_.dropped[reason] += account.dropped[reason];
    }
    // Nobody hears any more whether they arrived.
    ended_.drop(host::Drop::stopped, account.waiting);
}

void Calls::close() {
    const std::scoped_lock lock(mutex_);
    closed_ = true;
}

std::vector<std::shared_ptr<Call>> Calls::open() const {
    const std::scoped_lock lock(mutex_);
    return open_;
}

host::Account Calls::ended() const {
    const std::scoped_lock lock(mutex_);
    return ended_;
}

bool Calls::reserve(size_t bytes) {
    if (bytes > kMostReserved - reserved_) {
        return false;
    }
    reserved_ += bytes;
    return true;
}

Call::Call(std::shared_ptr<Calls> calls, grpc::CallbackServerContext& context)
    : calls_(std::move(calls)), peer_(context.peer()), context_(&context) {}

void Call::cancelWhenOutOfPatience() {
    patience_ = calls_->loop.timer([this] { cancel(); });
    patience_.start(kPatience);
}

void Call::forgetContext() {
    const std::scoped_lock lock(mutex_);
    context_ = nullptr;
}

void Call::cancel() {
    const std::scoped_lock lock(mutex_);
    if (context_ != nullptr) {
        context_->TryCancel();
    }
}

}  // namespace gnmi
