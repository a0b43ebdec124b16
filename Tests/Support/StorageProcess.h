#pragma once

#include "Support/ChildProcess.h"
#include "Support/RecordingObjects.h"
#include "Support/TemporaryFolder.h"

#include <libProtocolX/rpc/Service.h>
#include <libServices/ServiceListener.h>

#include <signal.h>
#include <sys/socket.h>

#include <memory>
#include <stdexcept>
#include <string>

namespace Brantel::Tests {

// What a storage server gives to its listener: recording objects behind one service.
class RecordingServer {
  public:
    RecordingServer()
        : service(std::make_unique<BrantelStorageApi::RecordingStorage>(journal),
                  std::make_unique<BrantelStorageApi::RecordingReaderFactory>(journal),
                  std::make_unique<BrantelStorageApi::RecordingWriterFactory>(journal)),
          listener(service) {}

    // For one connection at a time: the service takes no lock.
    BrantelStorageApi::Journal journal;
    BrantelStorageApi::Service service;
    Services::ServiceListener listener;
};

// A storage server in a process of its own, on a Unix-domain socket and on a free TCP port of this
// machine. Made before the test starts threads of its own; killed at the end.
class StorageProcess {
  public:
    StorageProcess() : process([this](int channel) { return Serve(channel); }) {
        // Blocks until the server listens.
        if (recv(Channel(), &port, sizeof(port), MSG_WAITALL) != sizeof(port)) {
            throw std::runtime_error("The storage process did not start");
        }
    }

    std::string Path() const { return folder.File("storage.sock"); }
    short Port() const { return static_cast<short>(port); }

    // Ends it without a chance to say goodbye, and waits until it is gone.
    void Kill() {
        kill(process.Id(), SIGKILL);
        process.Wait();
    }

  private:
    int Serve(int channel) const {
        RecordingServer server;
        server.listener.ListenUnix(Path());
        const unsigned short taken = server.listener.ListenTcp("127.0.0.1", 0);
        server.listener.Start();
        send(channel, &taken, sizeof(taken), MSG_NOSIGNAL);
        ChildProcess::Hear(channel);
        return 0;
    }

    int Channel() const { return process.Channel(); }

    TemporaryFolder folder;
    ChildProcess process;
    unsigned short port = 0;
};

}  // namespace Brantel::Tests
