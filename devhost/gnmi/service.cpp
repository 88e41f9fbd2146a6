#include "devhost/gnmi/service.h"

#include <fmt/format.h>
#include <grpc/support/log.h>
#include <grpcpp/ext/proto_server_reflection_plugin.h>
#include <grpcpp/health_check_service_interface.h>
#include <grpcpp/resource_quota.h>
#include <grpcpp/server.h>
#include <grpcpp/server_builder.h>

#include <mutex>
#include <optional>
#include <stdexcept>
#include <thread>

#include "devhost/gnmi/calls.h"
#include "devhost/gnmi/get.h"
#include "devhost/gnmi/identity.h"
#include "devhost/gnmi/listener.h"
#include "devhost/gnmi/paths.h"
#include "devhost/gnmi/stream.h"
#include "devhost/support/trouble.h"
#include "gnmi.grpc.pb.h"

namespace gnmi {

namespace {

using grpc::CallbackServerContext;
using grpc::StatusCode;
using std::chrono::milliseconds;
using std::chrono::minutes;
using std::chrono::seconds;

constexpr const char* kInterfaceVersion = "0.10.0";

// Read, a request takes a hundred times as much memory. 64 lists with keys of the longest are a third of it.
constexpr int kLargestRequest = 128 * 1024;
constexpr size_t kMemoryOfTransports = size_t{128} << 20U;
constexpr int kThreadsOfTransports = 16;
constexpr int kStreamsOfConnection = 256;

int inMilliseconds(milliseconds time) {
    return static_cast<int>(time.count());
}

// What gRPC has to say, most of it about clients: not more than a line a second, whatever they do.
void logOfTransports(gpr_log_func_args* line) {
    static std::mutex mutex;
    static std::chrono::steady_clock::time_point next;
    static uint64_t unsaid = 0;
    const std::scoped_lock lock(mutex);
    const auto now = std::chrono::steady_clock::now();
    if (now < next) {
        ++unsaid;
        return;
    }
    host::report(fmt::format("gRPC: {}{}", line->message,
                             unsaid == 0 ? "" : fmt::format(" ({} lines before it were left out)", unsaid)));
    next = now + seconds(1);
    unsaid = 0;
}

// Of each server that is built in this process from the first call on.
void setUpLibrary() {
    static std::once_flag once;
    std::call_once(once, [] {
        gpr_set_log_function(logOfTransports);
        grpc::EnableDefaultHealthCheckService(true);
        grpc::reflection::InitProtoReflectionServerBuilderPlugin();
    });
}

class Methods : public gNMI::CallbackService {
  public:
    explicit Methods(std::shared_ptr<Calls> calls) : calls_(std::move(calls)) {}

    grpc::ServerUnaryReactor* Capabilities(CallbackServerContext* context, const CapabilityRequest*,
                                           CapabilityResponse* response) override {
        ModelData& model = *response->add_supported_models();
        model.set_name(std::string(kModule));
        model.set_organization(NIVEX_QOS_YANG_ORGANIZATION);
        model.set_version(NIVEX_QOS_YANG_REVISION);
        for (const Encoding encoding : {JSON_IETF, PROTO, JSON}) {
            response->add_supported_encodings(encoding);
        }
        response->set_gnmi_version(kInterfaceVersion);
        auto* const reactor = context->DefaultReactor();
        reactor->Finish(grpc::Status::OK);
        return reactor;
    }

    grpc::ServerUnaryReactor* Get(CallbackServerContext* context, const GetRequest* request,
                                  GetResponse* response) override {
        return gnmi::Get::serve(calls_, *context, *request, *response);
    }

    grpc::ServerUnaryReactor* Set(CallbackServerContext* context, const SetRequest*, SetResponse*) override {
        auto* const reactor = context->DefaultReactor();
        reactor->Finish({StatusCode::UNIMPLEMENTED, "nothing can be set: everything that is served is state"});
        return reactor;
    }

    grpc::ServerBidiReactor<SubscribeRequest, SubscribeResponse>* Subscribe(CallbackServerContext* context) override {
        return Stream::serve(calls_, *context);
    }

  private:
    const std::shared_ptr<Calls> calls_;
};

void bound(grpc::ServerBuilder& builder) {
    grpc::ResourceQuota quota("gnmi");
    quota.Resize(kMemoryOfTransports);
    quota.SetMaxThreads(kThreadsOfTransports);
    builder.SetResourceQuota(quota);
    builder.SetMaxReceiveMessageSize(kLargestRequest);
    // Reflection is served by threads of gRPC.
    builder.SetSyncServerOption(grpc::ServerBuilder::NUM_CQS, 1);
    builder.SetSyncServerOption(grpc::ServerBuilder::MAX_POLLERS, 1);
    const auto set = [&builder](const char* argument, int value) { builder.AddChannelArgument(argument, value); };
    set(GRPC_ARG_MAX_CONCURRENT_STREAMS, kStreamsOfConnection);
    set(GRPC_ARG_SERVER_HANDSHAKE_TIMEOUT_MS, inMilliseconds(seconds(10)));
    // A client that has vanished without a word is gone after half a minute.
    set(GRPC_ARG_KEEPALIVE_TIME_MS, inMilliseconds(seconds(20)));
    set(GRPC_ARG_KEEPALIVE_TIMEOUT_MS, inMilliseconds(seconds(10)));
    set(GRPC_ARG_KEEPALIVE_PERMIT_WITHOUT_CALLS, 1);
    set(GRPC_ARG_HTTP2_MAX_PINGS_WITHOUT_DATA, 0);
    set(GRPC_ARG_MAX_CONNECTION_IDLE_MS, inMilliseconds(minutes(10)));
    // Clients may do the same.
    set(GRPC_ARG_HTTP2_MIN_RECV_PING_INTERVAL_WITHOUT_DATA_MS, inMilliseconds(seconds(5)));
}

void checkAddress(const Settings& settings) {
    if (settings.insecure && !settings.allowRemote && !settings.listen.isLoopback()) {
        throw SettingError("listen", fmt::format(" '{}': without TLS only loopback addresses are served: take "
                                                 "127.0.0.1, give a certificate, or say allow-remote: true",
                                                 settings.listen.text()));
    }
}

}  // namespace

struct Service::State {
    State(host::Loop& loop, Sampler& sampler, const Settings& settings)
        : calls(std::make_shared<Calls>(loop, sampler, settings)),
          methods(std::make_unique<Methods>(calls)),
          identity(identityOf(settings)) {}

    void endAll(const char* why) const {
        calls->close();
        for (const auto& call : calls->open()) {
            call->finish({StatusCode::UNAVAILABLE, why});
        }
    }

    const std::shared_ptr<Calls> calls;
    const std::unique_ptr<grpc::Service> methods;
    const Identity identity;
    std::unique_ptr<grpc::experimental::ExternalConnectionAcceptor> connections;
    std::unique_ptr<grpc::Server> server;
    std::optional<Listener> listener;
    std::string address;
    host::Loop::Watch patience;
    std::thread shutdown;
};

void check(const Settings& settings) {
    checkAddress(settings);
    identityOf(settings);
}

Service::Service(host::Loop& loop, Sampler& sampler, const Settings& settings)
    : state_(std::make_unique<State>(loop, sampler, settings)) {
    checkAddress(settings);
    state_->listener.emplace(loop, settings.listen, [&state = *state_](host::Descriptor connection) {
        grpc::experimental::ExternalConnectionAcceptor::NewConnectionParameters parameters;
        parameters.fd = connection.release();
        state.connections->HandleNewConnection(&parameters);
    });
    state_->address = state_->listener->address();
    setUpLibrary();
    grpc::ServerBuilder builder;
    bound(builder);
    builder.RegisterService(state_->methods.get());
    state_->connections = builder.experimental().AddExternalConnectionAcceptor(
        grpc::ServerBuilder::experimental_type::ExternalConnectionType::FROM_FD, credentialsOf(state_->identity));
    state_->server = builder.BuildAndStart();
    if (!state_->server) {
        throw std::runtime_error(fmt::format("cannot serve at {}: gRPC refuses it", state_->address));
    }
    state_->server->GetHealthCheckService()->SetServingStatus(gNMI::service_full_name(), true);
}

Service::~Service() {
    end("the agent has stopped");
}

void Service::end(const char* why) {
    // What came later would be nobody's.
    state_->listener.reset();
    state_->endAll(why);
    for (const auto& call : state_->calls->open()) {
        state_->calls->remove(call);
    }
    if (state_->server) {
        state_->server->Shutdown(std::chrono::system_clock::now());
    }
    if (state_->shutdown.joinable()) {
        state_->shutdown.join();
    }
    state_->patience = {};
}

const std::string& Service::address() const {
    return state_->address;
}

bool Service::hasFilesOf(const Settings& settings) const {
    return identityOf(settings) == state_->identity;
}

std::vector<CallAccount> Service::calls() const {
    std::vector<CallAccount> accounts;
    for (const auto& call : state_->calls->open()) {
        accounts.push_back(call->account());
    }
    return accounts;
}

host::Account Service::ended() const {
    return state_->calls->ended();
}

void Service::stop(milliseconds within, std::function<void()> done) {
    State& state = *state_;
    state.listener.reset();
    state.calls->close();
    state.server->GetHealthCheckService()->Shutdown();
    for (const auto& call : state.calls->open()) {
        call->drain({StatusCode::UNAVAILABLE, "the agent is stopping"});
    }
    state.patience = state.calls->loop.timer([&state] { state.endAll("the agent is stopping"); });
    state.patience.start(within);
    // It waits for the calls, and they need the loop.
    constexpr milliseconds kToTell(500);
    const auto deadline = std::chrono::system_clock::now() + within + kToTell;
    state.shutdown = std::thread([&state, deadline, done = std::move(done)] {
        state.server->Shutdown(deadline);
        state.calls->loop.post(done);
    });
}

}  // namespace gnmi
