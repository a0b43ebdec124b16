#pragma once

#include <libServices/SocketDisconnected.h>

#include <iostream>
#include <memory>
#include <stdexcept>

namespace Brantel::ProtocolX {

// The end of a reader's or writer's stub: asks the storage to drop the remote object, reports what
// fails on the standard output, and destroys the stub. Lets nothing out: any exception that isn't a
// std::runtime_error ends the process.
template <typename Stub>
void ReleaseRemote(std::unique_ptr<Stub>& stub) noexcept {
    if (stub == nullptr) {
        return;
    }
    try {
        stub->DestroyOnServer();
    } catch (const SocketDisconnected& error) {
        std::cout << "Storage seems disconnected: " << error.what() << std::endl;
    } catch (const std::runtime_error& error) {
        std::cout << "Exception from storage: " << error.what() << std::endl;
    }
    stub.reset();
}

}  // namespace Brantel::ProtocolX
