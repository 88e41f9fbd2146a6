#include "devhost/outputs/http_server.h"

#include <fmt/format.h>
#include <microhttpd.h>
#include <sys/socket.h>

#include <exception>
#include <stdexcept>
#include <utility>

#include "devhost/support/listen_address.h"
#include "devhost/support/trouble.h"

namespace outputs {

namespace {

constexpr std::chrono::milliseconds kLookAround{1000};

HttpServer::Response say(unsigned status, std::string text) {
    return {.status = status, .body = {std::make_shared<const std::string>(std::move(text))}};
}

}  // namespace

/* What an answer holds while it is sent. */
struct HttpServer::UnderWay {
    UnderWay(HttpServer& ofServer, Body ofBody) : server(ofServer), body(std::move(ofBody)) {
        for (const auto& part : body) {
            if (server.underWay_[part.get()]++ == 0) {
                server.bytesUnderWay_ += part->size();
            }
        }
    }
    ~UnderWay() {
        for (const auto& part : body) {
            const auto counted = server.underWay_.find(part.get());
            if (--counted->second == 0) {
                server.underWay_.erase(counted);
                server.bytesUnderWay_ -= part->size();
            }
        }
    }
    UnderWay(const UnderWay&) = delete;
    UnderWay& operator=(const UnderWay&) = delete;

    HttpServer& server;
    Body body;
};

/* What the library calls; all on the loop's thread, out of work(). */
struct HttpServer::Callbacks {
    static Connection& connectionOf(MHD_Connection* connection) {
        const auto* const info = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_SOCKET_CONTEXT);
        return *static_cast<Connection*>(info->socket_context);
    }

    static void connection(void* self, MHD_Connection* connection, void** context,
                           MHD_ConnectionNotificationCode what) {
        auto& server = *static_cast<HttpServer*>(self);
        if (what == MHD_CONNECTION_NOTIFY_STARTED) {
            const auto* const info = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD);
            *context = &server.connections_.emplace_back(Connection{.socket = info->connect_fd});
            server.makeRoom();
            if (server.isFull()) {
                server.overdue_.start(kLeastIdle);
            }
        } else {
            server.connections_.remove_if([&](const Connection& each) { return &each == *context; });
            server.closed_ = true;
        }
    }

    static MHD_Result request(void* self, MHD_Connection* connection, const char* path, const char* method,
                              const char* /*version*/, const char* /*body*/, size_t* bodySize, void** seen) {
        auto& server = *static_cast<HttpServer*>(self);
        const Request request(connection);
        const std::string_view length = request.header(MHD_HTTP_HEADER_CONTENT_LENGTH);
        const bool hasBody = !request.header(MHD_HTTP_HEADER_TRANSFER_ENCODING).empty() ||
                             (!length.empty() && length.find_first_not_of('0') != std::string_view::npos);
        // An answer before the request has ended closes the connection. One without a body ends with a second call.
        if (*seen == nullptr && !hasBody) {
            *seen = self;
            return MHD_YES;
        }
        *bodySize = 0;
        Connection& state = connectionOf(connection);
        state.answering = true;
        state.since = Clock::now();
        Response response = server.respond(connection, path, method);
        if (hasBody && response.status != MHD_HTTP_METHOD_NOT_ALLOWED) {
            response = say(MHD_HTTP_CONTENT_TOO_LARGE, "Requests have no body here.\n");
        }
        return server.answer(connection, std::move(response)) ? MHD_YES : MHD_NO;
    }

    static void completed(void* /*self*/, MHD_Connection* connection, void** /*seen*/, MHD_RequestTerminationCode) {
        Connection& state = connectionOf(connection);
        state.answering = false;
        state.since = Clock::now();
    }

    static void release(void* underWay) { delete static_cast<UnderWay*>(underWay); }

    static void ignore(void*, const char*, va_list) {}
};

std::string_view HttpServer::Request::header(const char* name) const {
    const char* const value = MHD_lookup_connection_value(connection_, MHD_HEADER_KIND, name);
    return value == nullptr ? std::string_view() : value;
}

HttpServer::HttpServer(host::Loop& loop, std::string_view listen, Limits limits) : limits_(limits) {
    host::Descriptor listener = host::ListenAddress(listen).listen();
    address_ = host::listeningAt(listener.get());
    // clang-format off
    daemon_ = MHD_start_daemon(
        MHD_USE_EPOLL, 0, nullptr, nullptr, Callbacks::request, this,
        MHD_OPTION_EXTERNAL_LOGGER, Callbacks::ignore, nullptr,
        MHD_OPTION_LISTEN_SOCKET, listener.get(),
        MHD_OPTION_STRICT_FOR_CLIENT, 1,
        MHD_OPTION_CONNECTION_LIMIT, limits.connections,
        MHD_OPTION_CONNECTION_MEMORY_LIMIT, limits.requestBytes,
        MHD_OPTION_CONNECTION_TIMEOUT, static_cast<unsigned>(limits.idleTime.count()),
        MHD_OPTION_NOTIFY_CONNECTION, Callbacks::connection, this,
        MHD_OPTION_NOTIFY_COMPLETED, Callbacks::completed, this,
        MHD_OPTION_END);
    // clang-format on
    if (daemon_ == nullptr) {
        throw std::runtime_error(fmt::format("cannot serve HTTP at {}", address_));
    }
    listener.release();
    const auto* const info = MHD_get_daemon_info(daemon_, MHD_DAEMON_INFO_EPOLL_FD);
    ready_ = loop.onReadable(info->epoll_fd, [this] { work(); });
    due_ = loop.timer([this] { work(); });
    overdue_ = loop.timer([this] {
        makeRoom();
        overdue_.start(isFull() ? kLeastIdle : kLookAround);
    });
    overdue_.start(kLookAround);
}

HttpServer::~HttpServer() {
    MHD_stop_daemon(daemon_);
}

void HttpServer::route(const std::string& path, Handler handler) {
    routes_[path] = std::move(handler);
}

void HttpServer::work() {
    closed_ = false;
    MHD_run(daemon_);
    MHD_UNSIGNED_LONG_LONG milliseconds = 0;
    // After one at its limit has closed a connection, it listens again only when it is called once more.
    if (closed_ || MHD_get_timeout(daemon_, &milliseconds) == MHD_YES) {
        due_.start(std::chrono::milliseconds(milliseconds));
    } else {
        due_.cancel();
    }
}

// A connection is closed by its socket: the library then finds it at its end.
void HttpServer::makeRoom() {
    const auto answerTime = isFull() || bytesUnderWay_ > limits_.answerBytes / 2 ? kSlow : limits_.answerTime;
    const auto now = Clock::now();
    const Connection* idlest = nullptr;
    for (const Connection& each : connections_) {
        if (each.answering && now - each.since > answerTime) {
            shutdown(each.socket, SHUT_RDWR);
        } else if (!each.answering && now - each.since >= kLeastIdle &&
                   (idlest == nullptr || each.since < idlest->since)) {
            idlest = &each;
        }
    }
    if (isFull() && idlest != nullptr) {
        shutdown(idlest->socket, SHUT_RDWR);
    }
}

HttpServer::Response HttpServer::respond(MHD_Connection* connection, const std::string& path, std::string_view method) {
    if (method != MHD_HTTP_METHOD_GET && method != MHD_HTTP_METHOD_HEAD) {
        return say(MHD_HTTP_METHOD_NOT_ALLOWED, "GET and HEAD are answered here.\n");
    }
    const auto found = routes_.find(path);
    if (found == routes_.end()) {
        return say(MHD_HTTP_NOT_FOUND, "There is nothing at this path.\n");
    }
    try {
        return found->second(Request(connection));
    } catch (const std::exception& error) {
        host::report(fmt::format("cannot answer a request of {}: {}", path, error.what()));
        return say(MHD_HTTP_INTERNAL_SERVER_ERROR, "This request could not be answered.\n");
    }
}

bool HttpServer::answer(MHD_Connection* connection, Response response) {
    size_t more = 0;
    for (const auto& part : response.body) {
        more += underWay_.contains(part.get()) ? 0 : part->size();
    }
    // A single answer is sent however large it is.
    if (bytesUnderWay_ > 0 && bytesUnderWay_ + more > limits_.answerBytes) {
        response = say(MHD_HTTP_SERVICE_UNAVAILABLE, "Too many answers are under way.\n");
    }
    std::erase_if(response.body, [](const auto& part) { return part->empty(); });
    auto underWay = std::make_unique<UnderWay>(*this, std::move(response.body));
    std::vector<MHD_IoVec> parts;
    for (const auto& part : underWay->body) {
        parts.push_back({part->data(), part->size()});
    }
    MHD_Response* const made = MHD_create_response_from_iovec(parts.data(), static_cast<unsigned>(parts.size()),
                                                              Callbacks::release, underWay.get());
    if (made == nullptr) {
        return false;
    }
    (void)underWay.release();  // Callbacks::release() has it
    MHD_add_response_header(made, MHD_HTTP_HEADER_CONTENT_TYPE, response.contentType.c_str());
    if (response.status == MHD_HTTP_METHOD_NOT_ALLOWED) {
        MHD_add_response_header(made, MHD_HTTP_HEADER_ALLOW, "GET, HEAD");
    }
    const MHD_Result queued = MHD_queue_response(connection, response.status, made);
    MHD_destroy_response(made);
    return queued == MHD_YES;
}

}  // namespace outputs
