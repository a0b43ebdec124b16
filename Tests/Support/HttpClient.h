#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <string>
#include <string_view>
#include <system_error>

namespace Brantel::Tests {

// A plain socket to an HTTP server on 127.0.0.1, for requests byte by byte.
class HttpSocket {
  public:
    explicit HttpSocket(unsigned short port) {
        fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (fd < 0 || connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) {
            throw std::system_error(errno, std::generic_category(), "connect");
        }
    }
    HttpSocket(const HttpSocket&) = delete;
    HttpSocket& operator=(const HttpSocket&) = delete;
    ~HttpSocket() { close(fd); }

    int Get() const { return fd; }

    // False: the server has gone.
    bool Send(std::string_view bytes) const {
        return send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL) ==
               static_cast<ssize_t>(bytes.size());
    }

    // Everything until the server ends the connection.
    std::string ReadAll() const {
        std::string text;
        std::array<char, 4096> part{};
        for (;;) {
            const ssize_t size = recv(fd, part.data(), part.size(), 0);
            if (size < 0 && errno == EINTR) {
                continue;
            }
            if (size <= 0) {
                return text;
            }
            text.append(part.data(), static_cast<std::size_t>(size));
        }
    }

  private:
    int fd = -1;
};

struct HttpAnswer {
    int status = 0;  // 0: no answer
    std::string head;
    std::string body;
};

inline HttpAnswer ParseHttpAnswer(const std::string& text) {
    constexpr std::string_view version = "HTTP/1.1 ";
    HttpAnswer answer;
    const std::size_t headEnd = text.find("\r\n\r\n");
    if (!text.starts_with(version) || headEnd == std::string::npos) {
        return answer;
    }
    answer.status = std::stoi(text.substr(version.size(), 3));
    answer.head = text.substr(0, headEnd);
    answer.body = text.substr(headEnd + 4);
    return answer;
}

// One request on a connection of its own, and all of its answer.
inline HttpAnswer HttpRequest(unsigned short port, const std::string& path,
                              const std::string& method = "GET", const std::string& headers = "",
                              const std::string& body = "") {
    const HttpSocket socket(port);
    socket.Send(method + " " + path + " HTTP/1.1\r\nHost: localhost\r\n" + headers + "\r\n" + body);
    return ParseHttpAnswer(socket.ReadAll());
}

}  // namespace Brantel::Tests
