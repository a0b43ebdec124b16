#pragma once

#include "ListenAddress.h"

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>

namespace Brantel::Server {

struct HttpReply {
    int status = 200;
    std::string contentType = "text/plain; charset=utf-8";
    std::string body;
};

// What the clients of an HTTP server can take of the process.
struct HttpLimits {
    std::size_t threads = 4;
    // Connections that wait for a thread; one more is closed at once.
    std::size_t queue = 16;
    // Bytes of one request, head and body.
    std::size_t requestBytes = std::size_t{16} << 10U;
    // From the accepted connection to the taken answer.
    std::chrono::milliseconds exchange{5000};
};

// Answers GET and HEAD over TCP, one request for each connection, on threads of its own; other
// methods are refused. Whatever its clients do, it holds no more than its threads and
// threads + queue descriptors, and cuts everyone off when the time for an exchange is over. No
// signal handler of the program runs on its threads.
class HttpServer {
  public:
    // Gives the reply for a path without its query, on several threads at once. What it throws is
    // answered with status 500.
    using Answer = std::function<HttpReply(const std::string& path)>;

    // Listens and serves from then on. Port 0 takes a free one. Throws std::runtime_error: "Could
    // not listen on 127.0.0.1 port 9187 for HTTP: Address already in use".
    HttpServer(const ListenAddress& address, Answer answer, HttpLimits limits = {});
    // Cuts everybody off.
    ~HttpServer();
    HttpServer(const HttpServer&) = delete;
    HttpServer& operator=(const HttpServer&) = delete;

    // "127.0.0.1:9187", "[::1]:9187", with the port really taken.
    const std::string& GetAddress() const { return addressText; }

  private:
    class Threads;

    // Constant after construction.
    std::string addressText;
    std::unique_ptr<Threads> threads;
};

}  // namespace Brantel::Server
