#include "devhost/gnmi/get.h"

#include <fmt/format.h>

#include <chrono>
#include <exception>
#include <utility>

#include "devhost/gnmi/fault.h"
#include "devhost/gnmi/requests.h"
#include "devhost/gnmi/values.h"

namespace gnmi {

namespace {

using grpc::StatusCode;

// The largest message that clients take by default is 4 MiB.
constexpr size_t kLargest = 4'000'000;

int64_t nanosecondsNow() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::system_clock::now().time_since_epoch())
        .count();
}

}  // namespace

grpc::ServerUnaryReactor* Get::serve(const std::shared_ptr<Calls>& calls, grpc::CallbackServerContext& context,
                                     const GetRequest& request, GetResponse& response) {
    const auto get = std::make_shared<Get>(calls, context, request, response);
    if (const auto refusal = calls->add(get)) {
        auto* const refused = context.DefaultReactor();
        refused->Finish(*refusal);
        return refused;
    }
    get->self_ = get;
    calls->loop.post([get] { get->begin(); });
    return get.get();
}

Get::Get(std::shared_ptr<Calls> calls, grpc::CallbackServerContext& context, const GetRequest& request,
         GetResponse& response)
    : calls_(std::move(calls)), peer_(context.peer()), request_(request), response_(response) {}

void Get::OnCancel() {
    calls_->loop.post([self = shared_from_this()] {
        self->finish({StatusCode::CANCELLED, "the client ended the call"});
    });
}

void Get::OnDone() {
    calls_->loop.post([self = std::move(self_)] { self->calls_->remove(self); });
}

void Get::begin() {
    if (finished_) {
        return;
    }
    try {
        start();
    } catch (const Fault& fault) {
        finish(fault.status());
    } catch (const std::exception& error) {
        finish({StatusCode::UNAVAILABLE, fmt::format("cannot sample: {}", error.what())});
    }
}

void Get::start() {
    std::vector<Wanted> all = wantedBy(request_, calls_->maxSubscriptions);
    prefix_ = prefixOfAnswers(request_.prefix());
    what_ = fmt::format("Get of {} list{}: {}{}", all.size(), all.size() == 1 ? "" : "s", all.front().path,
                        request_.path_size() > 1 ? " ..." : "");
    if (request_.type() == GetRequest::CONFIG) {
        // Everything is state: there is no configuration at any path.
        addNotification(nanosecondsNow());
        finish(grpc::Status::OK);
        return;
    }
    for (Wanted& wanted : all) {
        readings_.push_back(std::make_unique<Reading>(std::move(wanted), calls_->sampler, *this));
    }
    missing_ = readings_.size();
    for (const auto& reading : readings_) {
        if (!finished_) {
            reading->start(true);
            reading->requestPass();
        }
    }
}

Notification& Get::addNotification(int64_t time) {
    Notification& notification = *response_.add_notification();
    notification.set_timestamp(time);
    if (!prefix_.target().empty() || !prefix_.origin().empty()) {
        *notification.mutable_prefix() = prefix_;
    }
    notificationSize_ = 0;
    return notification;
}

void Get::value(const Reading& from, const host::RowKey& row, bool, const host::RecordPointer& record, int64_t time) {
    ++account_.offered;
    if (finished_ || size_ > kLargest) {
        account_.drop(host::Drop::tooLarge, 1);
        return;
    }
    ++account_.waiting;
    const bool isAnother = &from != last_ || notificationSize_ >= kNotificationSize ||
                           response_.notification().rbegin()->timestamp() != time;
    Notification& notification = isAnother ? addNotification(time) : *response_.mutable_notification()->rbegin();
    last_ = &from;
    const size_t size = addUpdates(notification, from.wanted().what, row, *record, request_.encoding(), 0);
    notificationSize_ += size;
    size_ += size;
    account_.bytesWaiting = size_;
}

void Get::passed(Reading& from) {
    from.end();
    const Wanted& wanted = from.wanted();
    if (size_ > kLargest) {
        finish({StatusCode::RESOURCE_EXHAUSTED,
                fmt::format("path {}: the answer has more than {} bytes, which clients would not take: ask for fewer "
                            "rows, or subscribe in mode ONCE",
                            wanted.path, kLargest)});
    } else if (from.rows() == 0 && !wanted.what.keys.empty()) {
        finish({StatusCode::NOT_FOUND, fmt::format("path {}: there is no such row", wanted.path)});
    } else {
        if (from.rows() == 0) {
            addNotification(nanosecondsNow());
            last_ = nullptr;
        }
        if (--missing_ == 0) {
            finish(grpc::Status::OK);
        }
    }
}

void Get::failed(Reading&, const std::string& why) {
    finish({StatusCode::UNAVAILABLE, why});
}

void Get::ended(Reading&, const std::string& why) {
    finish({StatusCode::UNAVAILABLE, why});
}

void Get::finish(const grpc::Status& status) {
    if (finished_) {
        return;
    }
    finished_ = true;
    for (const auto& reading : readings_) {
        reading->end();
    }
    const uint64_t waiting = std::exchange(account_.waiting, 0);
    account_.bytesWaiting = 0;
    if (status.ok()) {
        account_.delivered += waiting;
    } else {
        account_.lastError = status.error_message();
        account_.drop(
            status.error_code() == StatusCode::RESOURCE_EXHAUSTED ? host::Drop::tooLarge : host::Drop::stopped,
            waiting);
    }
    Finish(status);
}

}  // namespace gnmi
