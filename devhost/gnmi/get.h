/*
 * A Get call.
 */
#ifndef DEVHOST_GNMI_GET_H
#define DEVHOST_GNMI_GET_H

#include <grpcpp/support/server_callback.h>

#include <memory>
#include <string>
#include <vector>

#include "devhost/gnmi/calls.h"
#include "devhost/gnmi/reading.h"
#include "gnmi.pb.h"

namespace gnmi {

class Get : public Call, public Reader, public grpc::ServerUnaryReactor, public std::enable_shared_from_this<Get> {
  public:
    /* What answers a new call. */
    static grpc::ServerUnaryReactor* serve(const std::shared_ptr<Calls>& calls, grpc::CallbackServerContext& context,
                                           const GetRequest& request, GetResponse& response);

    Get(std::shared_ptr<Calls> calls, grpc::CallbackServerContext& context, const GetRequest& request,
        GetResponse& response);

    void drain(const grpc::Status& status) override { finish(status); }
    void finish(const grpc::Status& status) override;
    CallAccount account() const override { return {peer_, what_, account_}; }

    void value(const Reading& from, const host::RowKey& row, bool isNew, const host::RecordPointer& record,
               int64_t time) override;
    void gone(const Reading&, const host::RowKey&, int64_t) override {}
    void paused() override {}
    void passed(Reading& from) override;
    void failed(Reading& from, const std::string& why) override;
    void ended(Reading& from, const std::string& why) override;

    // gRPC's threads
    void OnCancel() override;
    void OnDone() override;

  private:
    void begin();
    void start();
    Notification& addNotification(int64_t time);

    const std::shared_ptr<Calls> calls_;
    std::shared_ptr<Get> self_;  // until gRPC is done with the call
    const std::string peer_;
    const GetRequest& request_;  // both until finish()
    GetResponse& response_;

    std::string what_ = "Get";
    Path prefix_;
    std::vector<std::unique_ptr<Reading>> readings_;
    size_t missing_ = 0;  // readings that have not passed
    const Reading* last_ = nullptr;
    size_t size_ = 0;              // of the response, about
    size_t notificationSize_ = 0;  // of its last one
    host::Account account_;
    bool finished_ = false;
};

}  // namespace gnmi

#endif
