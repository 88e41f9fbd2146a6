/*
 * A Subscribe call.
 */
#ifndef DEVHOST_GNMI_STREAM_H
#define DEVHOST_GNMI_STREAM_H

#include <grpcpp/support/server_callback.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "devhost/gnmi/calls.h"
#include "devhost/gnmi/reading.h"
#include "devhost/gnmi/waiting.h"
#include "gnmi.pb.h"

namespace gnmi {

class Stream : public Call,
               public Reader,
               public grpc::ServerBidiReactor<SubscribeRequest, SubscribeResponse>,
               public std::enable_shared_from_this<Stream> {
  public:
    /* What answers a new call. */
    static grpc::ServerBidiReactor<SubscribeRequest, SubscribeResponse>* serve(const std::shared_ptr<Calls>& calls,
                                                                               grpc::CallbackServerContext& context);

    Stream(std::shared_ptr<Calls> calls, grpc::CallbackServerContext& context);

    void drain(const grpc::Status& status) override;
    void finish(const grpc::Status& status) override;
    CallAccount account() const override;

    void value(const Reading& from, const host::RowKey& row, bool isNew, const host::RecordPointer& record,
               int64_t time) override;
    void gone(const Reading& from, const host::RowKey& row, int64_t time) override;
    void paused() override { send(); }
    void passed(Reading& from) override;
    void failed(Reading& from, const std::string& why) override;
    void ended(Reading& from, const std::string& why) override;

    // gRPC's threads
    void OnReadDone(bool ok) override;
    void OnWriteDone(bool ok) override;
    void OnCancel() override;
    void OnDone() override;

  private:
    void post(void (Stream::*work)());
    void begin();
    void readDone();
    void readEnded();
    void writeDone();
    void writeFailed();
    void read();
    void subscribe(const SubscriptionList& list);
    void startReadings(bool values);
    void requestPasses();
    void send();

    std::shared_ptr<Stream> self_;  // until gRPC is done with the call

    std::string what_ = "not subscribed yet";
    SubscriptionList::Mode mode_ = SubscriptionList::STREAM;
    std::vector<std::unique_ptr<Reading>> readings_;
    size_t unsynced_ = 0;  // readings of which a pass is due before the next sync_response
    Waiting waiting_;
    std::optional<grpc::Status> atEnd_;  // once nothing waits
    bool readingRequest_ = false;
    bool noMoreRequests_ = false;
    bool writing_ = false;
    bool finished_ = false;
    std::string lastError_;
    SubscribeRequest request_;
    SubscribeResponse response_;
};

}  // namespace gnmi

#endif
