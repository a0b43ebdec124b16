#include "rpc/Client.h"

#include <BrantelStorageApiMessages.pb.h>
#include <libServices/IServiceConnection.h>

namespace BrantelStorageApi {

Client::Client(Brantel::Services::IServiceConnection& connection)
    : connection(connection), trackStorage(connection, mutex) {}

Client::~Client() {
    Request request;
    request.set_operation(CLOSE_CONNECTION);
    connection.Send(request);
}

}  // namespace BrantelStorageApi
