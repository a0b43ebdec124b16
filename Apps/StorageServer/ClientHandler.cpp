#include "ClientHandler.h"

#include <libServices/MessageRefused.h>

#include <cstddef>
#include <utility>

namespace Brantel::Server {

namespace {

using BrantelStorageApi::Request;

// A Wait says no more than a reader, a time point and a time, whatever else its request holds.
// False: there is nothing to be freed.
bool Lighten(Request& request) {
    constexpr std::size_t most = 64;
    if (request.operation() != BrantelStorageApi::OPERATION_TrackReader_Wait ||
        request.ByteSizeLong() <= most) {
        return false;
    }
    Request light;
    light.set_operation(request.operation());
    const auto& wait = request.trackreader_wait();
    auto& lightWait = *light.mutable_trackreader_wait();
    lightWait.set_object_handle(wait.object_handle());
    lightWait.mutable_timecode()->set_nanoseconds(wait.timecode().nanoseconds());
    lightWait.set_timeout(wait.timeout());
    request.Swap(&light);
    return true;
}

// The service takes a message that is not valid for the end of its connection. One that was dropped
// whole is not: it is answered here, and the service gets the next one.
class AnsweringConnection : public Services::IServiceConnection {
  public:
    AnsweringConnection(Services::IServiceConnection& connection,
                        const std::function<void()>& whenLightened)
        : connection(connection), whenLightened(whenLightened) {}

    void Close() override { connection.Close(); }
    bool Send(const google::protobuf::Message& message) override {
        return connection.Send(message);
    }
    bool Receive(google::protobuf::Message& message) override {
        for (;;) {
            try {
                const bool isReceived = connection.Receive(message);
                // The service receives nothing else.
                if (isReceived && Lighten(static_cast<Request&>(message))) {
                    whenLightened();
                }
                return isReceived;
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
    const std::function<void()>& whenLightened;
};

}  // namespace

ClientHandler::ClientHandler(std::unique_ptr<BrantelStorageApi::ITrackStorage> storage,
                             std::unique_ptr<BrantelStorageApi::ITrackReaderFactory> readers,
                             std::unique_ptr<BrantelStorageApi::ITrackWriterFactory> writers,
                             std::function<void()> whenLightened)
    : whenLightened(std::move(whenLightened)),
      service(std::move(storage), std::move(readers), std::move(writers)) {}

void ClientHandler::Handle(Services::IServiceConnection& connection) {
    AnsweringConnection answering(connection, whenLightened);
    service.Handle(answering);
}

}  // namespace Brantel::Server
