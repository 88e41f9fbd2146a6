/*
 * A Get call.
 */
#ifndef DEVHOST_GNMI_GET_H
#define DEVHOST_GNMI_GET_H

#include <grpcpp/support/server_callback.h>

#include <memory>
#include <optional>
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
    void addNotification(int64_t time);
    void append(const Notification& part);
    void refuse(host::Drop reason, const std::string& why);
    void discard();
    void drop();
    void cancelled();
    void done();

    std::shared_ptr<Get> self_;  // until gRPC is done with the call
    const GetRequest& request_;  // both until finish()
    GetResponse& response_;

    std::string what_ = "Get";
    Path prefix_;
    std::vector<std::unique_ptr<Reading>> readings_;
    size_t missing_ = 0;  // readings that have not passed
    const Reading* last_ = nullptr;
    int64_t time_ = 0;                     // of the last notification of the response
    std::string* notification_ = nullptr;  // that one
    size_t reserved_ = 0;                  // of the response's bytes
    host::Account account_;
    std::optional<grpc::Status> refusal_;      // for when the pass has ended
    host::Drop reason_ = host::Drop::stopped;  // why what is not delivered is not
    bool cancelled_ = false;
    bool finished_ = false;
};

}  // namespace gnmi

#endif
