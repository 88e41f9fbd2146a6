/*
 * An HTTP server on the loop (libmicrohttpd, whose epoll set the loop watches), for what people and monitoring fetch:
 * GET and HEAD, requests without a body. No client can hold it up or make it grow: connections, the size of a request,
 * the bytes of answers under way and the time that one may take have bounds.
 *
 * When all connections are in use, the one that has waited longest for a request, but kLeastIdle, is closed for the
 * next client. Then, and while more than half of the bytes are under way, an answer may take kSlow.
 */
#ifndef DEVHOST_OUTPUTS_HTTP_SERVER_H
#define DEVHOST_OUTPUTS_HTTP_SERVER_H

#include <chrono>
#include <cstddef>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "devhost/support/descriptor.h"
#include "devhost/support/loop.h"

struct MHD_Connection;
struct MHD_Daemon;

namespace outputs {

class HttpServer {
  public:
    struct Limits {
        unsigned connections = 64;
        size_t requestBytes = 16384;            // of its first line and its header fields
        size_t answerBytes = size_t{64} << 20;  // of all bodies under way, each counted once; beyond: status 503
        std::chrono::seconds answerTime{30};    // for a client to take its answer
        std::chrono::seconds idleTime{120};     // without any byte
    };

    /* Shared: many connections send one text, and its maker keeps it. Sent one behind the other. */
    using Body = std::vector<std::shared_ptr<const std::string>>;

    class Request {
      public:
        explicit Request(MHD_Connection* connection) : connection_(connection) {}

        /* The value of a header field, whatever its case; empty without one. */
        std::string_view header(const char* name) const;

      private:
        MHD_Connection* connection_;
    };

    struct Response {
        unsigned status = 200;
        std::string contentType = "text/plain; charset=utf-8";
        Body body;
    };

    /* Called on the loop's thread. An exception that it lets out becomes status 500 and a message. */
    using Handler = std::function<Response(const Request&)>;

    /*
     * Listens from now on; see support/listen_address.h for the address. The loop must outlive the server. Throws
     * host::UsageError and std::runtime_error, which name the address.
     */
    HttpServer(host::Loop& loop, std::string_view listen, Limits limits);
    HttpServer(host::Loop& loop, std::string_view listen) : HttpServer(loop, listen, Limits{}) {}
    ~HttpServer();
    HttpServer(const HttpServer&) = delete;
    HttpServer& operator=(const HttpServer&) = delete;

    /* Answers requests of the path, as in "/metrics"; what has no handler is status 404. */
    void route(const std::string& path, Handler handler);

    /* Where it listens, with the port that it was given when it asked for any: "127.0.0.1:43210". */
    const std::string& address() const { return address_; }

  private:
    static constexpr std::chrono::seconds kSlow{2};
    static constexpr std::chrono::milliseconds kLeastIdle{200};

    using Clock = std::chrono::steady_clock;
    struct Connection {
        int socket;
        bool answering = false;
        Clock::time_point since = Clock::now();
    };
    struct Callbacks;
    struct UnderWay;

    void work();
    bool isFull() const { return connections_.size() >= limits_.connections; }
    void makeRoom();
    Response respond(MHD_Connection* connection, const std::string& path, std::string_view method);
    bool answer(MHD_Connection* connection, Response response);

    Limits limits_;
    std::map<std::string, Handler> routes_;
    std::list<Connection> connections_;
    bool closed_ = false;                                      // a connection, since work() began
    std::unordered_map<const std::string*, size_t> underWay_;  // bodies, and the answers that have them
    size_t bytesUnderWay_ = 0;
    std::string address_;
    MHD_Daemon* daemon_ = nullptr;
    host::Loop::Watch ready_;
    host::Loop::Watch due_;
    host::Loop::Watch overdue_;
};

}  // namespace outputs

#endif
