#pragma once

#include <httplib.h>
#include <sys/types.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <string>

namespace Brantel::Server {

// One accepted connection as the HTTP library reads and writes it: until a deadline, for all of it
// together, and no more than so many bytes of request. Used by one thread.
class HttpExchange : public httplib::Stream {
  public:
    using Clock = std::chrono::steady_clock;

    // Both descriptors are borrowed. The socket does not block; when `stop` becomes readable, the
    // exchange is over.
    HttpExchange(int connection, int stop, Clock::time_point deadline, std::size_t requestBytes)
        : connection(connection), stop(stop), deadline(deadline), allowed(requestBytes) {}

    bool is_readable() const override;
    bool is_writable() const override;
    ssize_t read(char* target, std::size_t size) override;
    ssize_t write(const char* source, std::size_t size) override;
    // Of no use here: empty.
    void get_remote_ip_and_port(std::string& ip, int& port) const override;
    void get_local_ip_and_port(std::string& ip, int& port) const override;
    socket_t socket() const override { return connection; }

    // Says that no more comes, and waits a moment for the client to close: closed with something
    // unread, a socket would take the answer back.
    void Finish();

  private:
    bool WaitFor(short event, Clock::time_point until) const;
    ssize_t Receive();

    const int connection;
    const int stop;
    const Clock::time_point deadline;
    std::size_t allowed;
    std::array<char, 4096> buffer{};
    std::size_t begin = 0;
    std::size_t end = 0;
};

}  // namespace Brantel::Server
