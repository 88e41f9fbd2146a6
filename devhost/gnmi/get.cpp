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
    : Call(std::move(calls), context), request_(request), response_(response) {}

void Get::OnCancel() {
    calls_->loop.post([self = shared_from_this()] { self->cancelled(); });
}

void Get::OnDone() {
    forgetContext();
    calls_->loop.post([self = std::move(self_)] { self->done(); });
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

// The response has its notifications as they go out: as objects they would take ten times the memory. For protobuf they
// are so a field that it does not know, which it sends as it is.
void Get::addNotification(int64_t time) {
    time_ = time;
    notification_ = response_.GetReflection()
                        ->MutableUnknownFields(&response_)
                        ->AddLengthDelimited(GetResponse::kNotificationFieldNumber);
    Notification head;
    head.set_timestamp(time);
    if (!prefix_.target().empty() || !prefix_.origin().empty()) {
        *head.mutable_prefix() = prefix_;
    }
    append(head);
}

void Get::append(const Notification& part) {
    account_.bytesWaiting += part.ByteSizeLong();
    part.AppendToString(notification_);
}

void Get::value(const Reading& from, const host::RowKey& row, bool, const host::RecordPointer& record, int64_t time) {
    ++account_.offered;
    if (finished_ || refusal_) {
        account_.drop(reason_, 1);
        return;
    }
    ++account_.waiting;
    if (&from != last_ || time != time_ || notification_->size() >= kNotificationSize) {
        addNotification(time);
        last_ = &from;
    }
    Notification updates;
    addUpdates(updates, from.wanted().what, row, *record, request_.encoding(), 0);
    append(updates);
    if (account_.bytesWaiting > kLargest) {
        refuse(host::Drop::tooLarge,
               fmt::format("path {}: the answer has more than {} bytes, which clients would not take: ask for fewer "
                           "rows, or subscribe in mode ONCE",
                           from.wanted().path, kLargest));
    } else if (calls_->reserve(account_.bytesWaiting - reserved_)) {
        reserved_ = account_.bytesWaiting;
    } else {
        refuse(host::Drop::full,
               fmt::format("path {}: answers to Get that clients have not taken have {} bytes, the most at one time: "
                           "ask again when they have, or subscribe in mode ONCE",
                           from.wanted().path, Calls::kMostReserved));
    }
}

void Get::passed(Reading& from) {
    from.end();
    const Wanted& wanted = from.wanted();
    if (refusal_) {
        finish(*refusal_);
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

// More values come until the pass ends, and with it the call.
void Get::refuse(host::Drop reason, const std::string& why) {
    refusal_ = grpc::Status(StatusCode::RESOURCE_EXHAUSTED, why);
    reason_ = reason;
    discard();
}

void Get::discard() {
    GetResponse().Swap(&response_);
    drop();
}

void Get::drop() {
    account_.drop(reason_, std::exchange(account_.waiting, 0));
    account_.bytesWaiting = 0;
    calls_->release(std::exchange(reserved_, 0));
}

void Get::finish(const grpc::Status& status) {
    if (finished_) {
        return;
    }
    finished_ = true;
    for (const auto& reading : readings_) {
        reading->end();
    }
    if (!status.ok()) {
        account_.lastError = status.error_message();
        discard();
    }
    cancelWhenOutOfPatience();
    Finish(status);
}

void Get::cancelled() {
    cancelled_ = true;
    finish({StatusCode::CANCELLED, "the client ended the call"});
}

void Get::done() {
    patience_ = {};
    if (!cancelled_) {
        account_.delivered += std::exchange(account_.waiting, 0);
    }
    drop();
    calls_->remove(shared_from_this());
}

}  // namespace gnmi
