#include "ClientHandler.h"

#include <libServices/MessageRefused.h>

#include <utility>

namespace Brantel::Server {

namespace {

// The service takes a message that is not valid for the end of its connection. One that was dropped
// whole is not: it is answered here, and the service gets the next one.
class AnsweringConnection : public Services::IServiceConnection {
  public:
    explicit AnsweringConnection(Services::IServiceConnection& connection)
        : connection(connection) {}

    void Close() override { connection.Close(); }
    bool Send(const google::protobuf::Message& message) override {
        return connection.Send(message);
    }
    bool Receive(google::protobuf::Message& message) override {
        for (;;) {
            try {
                return connection.Receive(message);
            } catch (const Services::MessageRefused& refusal) {
                BrantelStorageApi::Response response;
                response.set_is_success(false);
                response.set_exception(refusal.what());
                connection.Send(response);
            }
        }
    }

  private:
    Services::IServiceConnection& connection;
};

}  // namespace

ClientHandler::ClientHandler(std::unique_ptr<BrantelStorageApi::ITrackStorage> storage,
                             std::unique_ptr<BrantelStorageApi::ITrackReaderFactory> readers,
                             std::unique_ptr<BrantelStorageApi::ITrackWriterFactory> writers)
    : service(std::move(storage), std::move(readers), std::move(writers)) {}

void ClientHandler::Handle(Services::IServiceConnection& connection) {
    AnsweringConnection answering(connection);
    service.Handle(answering);
}

}  // namespace Brantel::Server
