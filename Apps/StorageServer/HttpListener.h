#pragma once

#include "ListenAddress.h"

#include <string>

namespace Brantel::Server {

// A TCP socket that listens, for HTTP: close-on-exec, non-blocking.
class HttpListener {
  public:
    // On the first address of the host that takes it. Throws std::runtime_error: "Could not listen
    // on 127.0.0.1 port 9187 for HTTP: Address already in use".
    explicit HttpListener(const ListenAddress& address);
    ~HttpListener();
    HttpListener(const HttpListener&) = delete;
    HttpListener& operator=(const HttpListener&) = delete;

    int Get() const { return socket; }
    // "127.0.0.1:9187", "[::1]:9187", with the port really taken.
    std::string GetText() const;

  private:
    int socket = -1;
};

}  // namespace Brantel::Server
