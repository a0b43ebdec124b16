#pragma once

#include "Support/TemporaryFolder.h"
#include "Support/Waiting.h"

#include <libServices/FileDescriptorServiceConnection.h>
#include <libServices/IServiceHandler.h>
#include <libServices/PeerAddress.h>
#include <libServices/ServiceListener.h>
#include <libServices/SocketDisconnected.h>
#include <libServices/UnixDomainConnection.h>

#include <google/protobuf/wrappers.pb.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace Brantel::Services {

// A handler made of a function.
class FunctionHandler : public IServiceHandler {
  public:
    using Function = std::function<void(FileDescriptorServiceConnection&, const PeerAddress&)>;

    FunctionHandler(Function function, FileDescriptorServiceConnection& connection,
                    PeerAddress peer)
        : function(std::move(function)), connection(connection), peer(std::move(peer)) {}
    void Handle(IServiceConnection&) override { function(connection, peer); }

    static ServiceListener::HandlerFactory Factory(const Function& function) {
        return [function](FileDescriptorServiceConnection& connection, const PeerAddress& peer) {
            return std::make_unique<FunctionHandler>(function, connection, peer);
        };
    }

  private:
    const Function function;
    FileDescriptorServiceConnection& connection;
    const PeerAddress peer;
};

// Answers every message with the same, until the connection is lost.
inline void Echo(IServiceConnection& connection, const PeerAddress& = {}) {
    google::protobuf::StringValue message;
    while (connection.Receive(message) && connection.Send(message)) {
    }
}

class EchoHandler : public IServiceHandler {
  public:
    void Handle(IServiceConnection& connection) override { Echo(connection); }
};

inline google::protobuf::StringValue Text(const std::string& text) {
    google::protobuf::StringValue message;
    message.set_value(text);
    return message;
}

// Waits for a message; "lost" when the connection is.
inline std::string Hear(IServiceConnection& connection) {
    google::protobuf::StringValue message;
    try {
        connection.Receive(message);
    } catch (const SocketDisconnected&) {
        return "lost";
    }
    return message.value();
}

// Sends the text and returns the answer; "lost" when the connection is.
inline std::string Ask(IServiceConnection& connection, const std::string& text) {
    connection.Send(Text(text));
    return Hear(connection);
}

// Waits for the end of the connection; false when a message comes instead.
inline bool WaitForEnd(IServiceConnection& connection) {
    return Hear(connection) == "lost";
}

// A listener on a Unix-domain socket in a folder of its own, and what it reported.
class ListenerFixture : public testing::Test {
  protected:
    using Kind = ServiceListenerEvent::Kind;

    ListenerFixture() {
        options.onEvent = [this](const ServiceListenerEvent& event) {
            const std::lock_guard guard(eventsMutex);
            events.push_back(event);
        };
    }

    void Start(const ServiceListener::HandlerFactory& factory) {
        listener = std::make_unique<ServiceListener>(factory, options);
        listener->ListenUnix(path);
        listener->Start();
    }
    void Serve(const FunctionHandler::Function& function) {
        Start(FunctionHandler::Factory(function));
    }
    void ServeEcho() { Serve(&Echo); }

    std::unique_ptr<UnixDomainConnection> Connect() const {
        return std::make_unique<UnixDomainConnection>(path);
    }

    // The texts of the events of one kind.
    std::vector<std::string> Events(Kind kind) {
        const std::lock_guard guard(eventsMutex);
        std::vector<std::string> texts;
        for (const ServiceListenerEvent& event : events) {
            if (event.kind == kind) {
                texts.push_back(event.text);
            }
        }
        return texts;
    }

    const Tests::TemporaryFolder folder;
    const std::string path = folder.File("s");
    ServiceListenerOptions options;
    std::mutex eventsMutex;
    std::vector<ServiceListenerEvent> events;
    std::unique_ptr<ServiceListener> listener;
};

}  // namespace Brantel::Services
