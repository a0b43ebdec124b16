#pragma once

#include <libProtocolX/rpc/Service.h>
#include <libServices/IServiceConnection.h>
#include <libServices/IServiceHandler.h>

#include <memory>

namespace Brantel::Server {

// Serves one connection. A client whose message is over the limits is told so, and goes on.
class ClientHandler : public Services::IServiceHandler {
  public:
    ClientHandler(std::unique_ptr<BrantelStorageApi::ITrackStorage> storage,
                  std::unique_ptr<BrantelStorageApi::ITrackReaderFactory> readers,
                  std::unique_ptr<BrantelStorageApi::ITrackWriterFactory> writers);

    void Handle(Services::IServiceConnection& connection) override;

  private:
    BrantelStorageApi::Service service;
};

}  // namespace Brantel::Server
