#include "HttpServer.h"

#include "HttpExchange.h"
#include "HttpListener.h"
#include "StopEvent.h"

#include <httplib.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <condition_variable>
#include <deque>
#include <exception>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <utility>
#include <vector>

namespace Brantel::Server {

namespace {

// The library's reading of requests and writing of answers, without its threads and sockets.
class Protocol : public httplib::Server {
  public:
    explicit Protocol(HttpServer::Answer givenAnswer) : answer(std::move(givenAnswer)) {
        set_pre_routing_handler([this](const httplib::Request& request, httplib::Response& reply) {
            Reply(request, reply);
            return HandlerResponse::Handled;
        });
        set_exception_handler(
            [](const httplib::Request&, httplib::Response& reply, const std::exception_ptr&) {
                reply.status = 500;
                reply.set_content("The answer could not be made\n", "text/plain; charset=utf-8");
            });
    }

    void Serve(HttpExchange& exchange) {
        bool isClosed = false;
        process_request(exchange, true, isClosed, [](httplib::Request& request) {
            // A client does not choose how much work its answer is.
            request.ranges.clear();
            request.headers.erase("Accept-Encoding");
        });
    }

  private:
    void Reply(const httplib::Request& request, httplib::Response& reply) const {
        if (request.method != "GET" && request.method != "HEAD") {
            reply.status = 405;
            reply.set_header("Allow", "GET, HEAD");
            reply.set_content("Only GET and HEAD are answered\n", "text/plain; charset=utf-8");
            return;
        }
        const HttpReply given = answer(request.path);
        reply.status = given.status;
        reply.set_header("Cache-Control", "no-store");
        reply.set_content(given.body, given.contentType);
    }

    const HttpServer::Answer answer;
};

}  // namespace

// One thread accepts, the others serve.
class HttpServer::Threads {
  public:
    Threads(const ListenAddress& address, Answer answer, HttpLimits limits)
        : limits(limits), protocol(std::move(answer)), listener(address) {
        try {
            threads.emplace_back([this] { Accept(); });
            for (std::size_t count = 0; count < limits.threads; ++count) {
                threads.emplace_back([this] { Serve(); });
            }
        } catch (...) {
            Stop();
            throw;
        }
    }
    ~Threads() { Stop(); }
    Threads(const Threads&) = delete;
    Threads& operator=(const Threads&) = delete;

    std::string GetText() const { return listener.GetText(); }

  private:
    using Clock = HttpExchange::Clock;

    struct Connection {
        int socket = -1;
        Clock::time_point deadline;
    };

    void Stop() {
        {
            const std::lock_guard lock(mutex);
            isStopping = true;
        }
        stop.Raise();
        arrived.notify_all();
        for (std::thread& thread : threads) {
            thread.join();
        }
        for (const Connection& waiting : queue) {
            close(waiting.socket);
        }
    }

    // False: it is time to end. Returns for any connection, and after the time.
    bool WaitForConnection(int milliseconds, bool isListening) const {
        std::array<pollfd, 2> events{{{stop.Get(), POLLIN, 0}, {listener.Get(), POLLIN, 0}}};
        poll(events.data(), isListening ? 2 : 1, milliseconds);
        return events[0].revents == 0;
    }

    void Accept() {
        constexpr int pauseMilliseconds = 100;
        bool isListening = true;
        while (WaitForConnection(isListening ? -1 : pauseMilliseconds, isListening)) {
            const int socket =
                accept4(listener.Get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
            // Without descriptors or memory the connection stays where it is: look again later.
            isListening = socket >= 0 || (errno != EMFILE && errno != ENFILE && errno != ENOBUFS &&
                                          errno != ENOMEM);
            if (socket >= 0 && !Queue({socket, Clock::now() + limits.exchange})) {
                close(socket);
            }
        }
    }

    bool Queue(const Connection& connection) noexcept {
        try {
            const std::lock_guard lock(mutex);
            if (queue.size() >= limits.queue) {
                return false;
            }
            queue.push_back(connection);
        } catch (const std::exception&) {
            return false;
        }
        arrived.notify_one();
        return true;
    }

    void Serve() {
        for (;;) {
            Connection connection;
            {
                std::unique_lock lock(mutex);
                arrived.wait(lock, [this] { return isStopping || !queue.empty(); });
                if (isStopping) {
                    return;
                }
                connection = queue.front();
                queue.pop_front();
            }
            ServeOne(connection);
            close(connection.socket);
        }
    }

    void ServeOne(const Connection& connection) noexcept {
        try {
            HttpExchange exchange(connection.socket, stop.Get(), connection.deadline,
                                  limits.requestBytes);
            protocol.Serve(exchange);
            exchange.Finish();
        } catch (const std::exception&) {
            // Short of memory: this one client is cut off.
            return;
        }
    }

    const HttpLimits limits;
    Protocol protocol;  // constant after construction
    const HttpListener listener;
    const StopEvent stop;
    std::mutex mutex;
    std::condition_variable arrived;
    // guarded by mutex
    bool isStopping = false;
    std::deque<Connection> queue;
    std::vector<std::thread> threads;
};

HttpServer::HttpServer(const ListenAddress& address, Answer answer, HttpLimits limits)
    : threads(std::make_unique<Threads>(address, std::move(answer), limits)) {
    addressText = threads->GetText();
}

HttpServer::~HttpServer() = default;

}  // namespace Brantel::Server
