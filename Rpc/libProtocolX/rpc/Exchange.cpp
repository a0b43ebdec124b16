#include "rpc/Exchange.h"

#include <libServices/IServiceConnection.h>
#include <libServices/NativeMutex.h>

#include <stdexcept>

namespace BrantelStorageApi {
namespace {

// Holds the lock of a connection. Unlocking can't fail short of a broken mutex; should it, the
// exception meets the destructor's noexcept and ends the process.
class Hold {
  public:
    explicit Hold(Brantel::Services::NativeMutex& mutex) : mutex(mutex) { mutex.Enter(); }
    ~Hold() { mutex.Leave(); }
    Hold(const Hold&) = delete;
    Hold& operator=(const Hold&) = delete;

  private:
    Brantel::Services::NativeMutex& mutex;
};

}  // namespace

Exchange::Exchange(Brantel::Services::IServiceConnection& connection,
                   Brantel::Services::NativeMutex& mutex, Operation operation)
    : connection(connection), mutex(mutex) {
    request.set_operation(operation);
}

bool Exchange::Perform() {
    {
        const Hold hold(mutex);
        if (!connection.Send(request) || !connection.Receive(response)) {
            return false;
        }
    }
    if (!response.is_success()) {
        throw std::runtime_error("Exception from server: " + response.exception());
    }
    return true;
}

}  // namespace BrantelStorageApi
