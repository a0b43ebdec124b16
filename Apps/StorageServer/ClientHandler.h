#pragma once

#include <libProtocolX/rpc/Service.h>
#include <libServices/IServiceConnection.h>
#include <libServices/IServiceHandler.h>

#include <functional>
#include <memory>

namespace Brantel::Server {

// Serves one connection. A client whose message is over the limits is told so, and goes on. A Wait,
// which may last for ever, keeps nothing of the memory that its request took.
class ClientHandler : public Services::IServiceHandler {
  public:
    // `whenLightened` is called when the memory of a received request has been freed before the
    // request is served.
    ClientHandler(std::unique_ptr<BrantelStorageApi::ITrackStorage> storage,
                  std::unique_ptr<BrantelStorageApi::ITrackReaderFactory> readers,
                  std::unique_ptr<BrantelStorageApi::ITrackWriterFactory> writers,
                  std::function<void()> whenLightened);

    void Handle(Services::IServiceConnection& connection) override;

  private:
    const std::function<void()> whenLightened;
    BrantelStorageApi::Service service;
};

}  // namespace Brantel::Server
