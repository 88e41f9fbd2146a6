#include "devhost/gnmi/stream.h"

#include <fmt/format.h>

#include <exception>
#include <string_view>
#include <utility>

#include "devhost/gnmi/fault.h"
#include "devhost/gnmi/requests.h"

namespace gnmi {

namespace {

using grpc::StatusCode;
using Reactor = grpc::ServerBidiReactor<SubscribeRequest, SubscribeResponse>;

class Refused : public Reactor {
  public:
    explicit Refused(const grpc::Status& status) { Finish(status); }
    void OnDone() override { delete this; }
};

grpc::Status invalid(const std::string& why) {
    return {StatusCode::INVALID_ARGUMENT, why};
}

std::string describe(SubscriptionList::Mode mode, const std::vector<std::unique_ptr<Reading>>& readings) {
    std::string what = fmt::format("{} of {} list{}:", SubscriptionList::Mode_Name(mode), readings.size(),
                                   readings.size() == 1 ? "" : "s");
    std::string_view last;
    for (const auto& reading : readings) {
        // A path above the lists has several.
        if (const std::string& path = reading->wanted().path; path != last) {
            constexpr size_t kLongest = 1000;
            if (what.size() + path.size() > kLongest) {
                return what + " ...";
            }
            what += ' ' + path;
            last = path;
        }
    }
    return what;
}

}  // namespace

Reactor* Stream::serve(const std::shared_ptr<Calls>& calls, grpc::CallbackServerContext& context) {
    const auto stream = std::make_shared<Stream>(calls, context);
    if (const auto refusal = calls->add(stream)) {
        return new Refused(*refusal);
    }
    stream->self_ = stream;
    stream->post(&Stream::begin);
    return stream.get();
}

Stream::Stream(std::shared_ptr<Calls> calls, grpc::CallbackServerContext& context)
    : Call(std::move(calls), context), waiting_(calls_->waitingBytes) {}

void Stream::post(void (Stream::*work)()) {
    calls_->loop.post([self = shared_from_this(), work] { ((*self).*work)(); });
}

void Stream::OnReadDone(bool ok) {
    post(ok ? &Stream::readDone : &Stream::readEnded);
}

void Stream::OnWriteDone(bool ok) {
    post(ok ? &Stream::writeDone : &Stream::writeFailed);
}

void Stream::OnCancel() {
    calls_->loop.post([self = shared_from_this()] {
        self->finish({StatusCode::CANCELLED, "the client ended the call"});
    });
}

void Stream::OnDone() {
    forgetContext();
    calls_->loop.post([self = std::move(self_)] {
        self->patience_ = {};
        self->calls_->remove(self);
    });
}

void Stream::begin() {
    if (finished_) {
        return;
    }
    patience_ = calls_->loop.timer(
        [this] { finish(invalid(fmt::format("no subscribe came within {} s", kPatience.count()))); });
    patience_.start(kPatience);
    read();
}

void Stream::read() {
    if (!finished_ && !noMoreRequests_ && !readingRequest_) {
        readingRequest_ = true;
        StartRead(&request_);
    }
}

void Stream::readEnded() {
    readingRequest_ = false;
    noMoreRequests_ = true;
    if (readings_.empty() && !atEnd_) {
        finish(invalid("the stream has no subscribe: its first message must be one"));
    } else if (mode_ == SubscriptionList::POLL) {
        drain(grpc::Status::OK);
    }
    // A client that has said all may still listen.
}

void Stream::readDone() {
    readingRequest_ = false;
    // Nothing of it is kept, for as long as there is no other.
    SubscribeRequest request;
    request.Swap(&request_);
    if (finished_) {
        return;
    }
    const bool isFirst = readings_.empty() && !atEnd_;
    if (isFirst && request.has_subscribe()) {
        patience_.cancel();
        try {
            subscribe(request.subscribe());
        } catch (const Fault& fault) {
            finish(fault.status());
        } catch (const host::SubscriptionError& fault) {
            finish(invalid(fault.what()));
        } catch (const std::exception& error) {
            finish({StatusCode::UNAVAILABLE, fmt::format("cannot sample: {}", error.what())});
        }
        read();
    } else if (isFirst) {
        finish(invalid("the first message of a stream must be a subscribe"));
    } else if (request.has_poll() && mode_ == SubscriptionList::POLL) {
        unsynced_ = readings_.size();
        requestPasses();
    } else if (request.has_poll()) {
        finish(invalid(
            fmt::format("a poll belongs to the mode POLL, this stream has {}", SubscriptionList::Mode_Name(mode_))));
    } else {
        finish(invalid("a stream has one subscribe, its first message: open another stream for more"));
    }
}

void Stream::subscribe(const SubscriptionList& list) {
    std::vector<Wanted> all = wantedBy(list, calls_->maxSubscriptions);
    waiting_.setForm(list.encoding(), prefixOfAnswers(list.prefix()));
    mode_ = list.mode();
    for (Wanted& wanted : all) {
        readings_.push_back(std::make_unique<Reading>(std::move(wanted), calls_->sampler, *this));
    }
    what_ = describe(mode_, readings_);
    if (mode_ == SubscriptionList::ONCE && list.updates_only()) {
        waiting_.addSync();
        drain(grpc::Status::OK);
        return;
    }
    if (mode_ == SubscriptionList::STREAM && list.updates_only()) {
        waiting_.addSync();
    } else if (mode_ != SubscriptionList::POLL) {
        unsynced_ = readings_.size();
    }
    startReadings(!list.updates_only());
    if (mode_ != SubscriptionList::POLL) {
        requestPasses();
    }
    send();
}

void Stream::startReadings(bool values) {
    for (const auto& reading : readings_) {
        if (!finished_) {
            reading->start(values);
        }
    }
}

void Stream::requestPasses() {
    for (const auto& reading : readings_) {
        reading->requestPass();
    }
}

void Stream::value(const Reading& from, const host::RowKey& row, bool isNew, const host::RecordPointer& record,
                   int64_t time) {
    waiting_.addValue(from.wanted().what, row, isNew, record, time);
}

void Stream::gone(const Reading& from, const host::RowKey& row, int64_t time) {
    waiting_.addGone(from.wanted().what, row, time);
}

void Stream::passed(Reading& from) {
    if (mode_ == SubscriptionList::ONCE) {
        from.end();
    }
    const bool isAwaited = unsynced_ > 0 && (mode_ != SubscriptionList::STREAM || from.passes() == 1);
    if (isAwaited && --unsynced_ == 0) {
        waiting_.addSync();
        if (mode_ == SubscriptionList::ONCE) {
            drain(grpc::Status::OK);
        }
    }
    send();
}

void Stream::failed(Reading&, const std::string& why) {
    lastError_ = why;
    if (mode_ != SubscriptionList::STREAM) {
        finish({StatusCode::UNAVAILABLE, why});
    }
}

void Stream::ended(Reading&, const std::string& why) {
    finish({StatusCode::UNAVAILABLE, why});
}

CallAccount Stream::account() const {
    CallAccount account{peer_, what_, waiting_.account()};
    account.account.lastError = lastError_;
    return account;
}

void Stream::send() {
    if (finished_ || writing_) {
        return;
    }
    if (!waiting_.empty()) {
        waiting_.take(response_);
        writing_ = true;
        StartWrite(&response_);
    } else if (atEnd_) {
        finish(*atEnd_);
    } else if (mode_ == SubscriptionList::POLL && unsynced_ == 0) {
        read();
    }
}

void Stream::writeDone() {
    writing_ = false;
    waiting_.written(true);
    if (atEnd_ && !finished_) {
        patience_.start(kPatience);
    }
    send();
}

void Stream::writeFailed() {
    writing_ = false;
    waiting_.written(false);
    finish({StatusCode::CANCELLED, "the client takes no more"});
}

void Stream::drain(const grpc::Status& status) {
    if (!finished_ && !atEnd_) {
        atEnd_ = status;
        for (const auto& reading : readings_) {
            reading->end();
        }
        // For each message, from the last one that the client took.
        patience_ = calls_->loop.timer([this] {
            finish({StatusCode::CANCELLED, fmt::format("the client took nothing for {} s", kPatience.count())});
        });
        patience_.start(kPatience);
        send();
    }
}

void Stream::finish(const grpc::Status& status) {
    if (finished_) {
        return;
    }
    finished_ = true;
    for (const auto& reading : readings_) {
        reading->end();
    }
    waiting_.stop();
    cancelWhenOutOfPatience();
    Finish(status);
}

}  // namespace gnmi
