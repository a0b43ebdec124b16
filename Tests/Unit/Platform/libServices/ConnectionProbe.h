#pragma once

#include <libServices/FileDescriptorServiceConnection.h>

namespace Brantel::Services {

// Shows the descriptor of a connection, to look at its socket.
struct ConnectionProbe : public FileDescriptorServiceConnection {
    using FileDescriptorServiceConnection::FileDescriptorServiceConnection;

    static int DescriptorOf(const FileDescriptorServiceConnection& connection) {
        return (connection.*(&ConnectionProbe::Descriptor))();
    }
};

}  // namespace Brantel::Services
