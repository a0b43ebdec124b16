// Thrift: the server with a thread for each connection, framed transport, binary protocol with the
// transports' types known at compile time, on both sides. The values are in memory.

#include "Bench/Peers/KeptValues.h"
#include "Bench/Peers/Kinds.h"
#include "Bench/Peers/ServerChild.h"

#include <ThriftPeer.h>
#include <thrift/protocol/TBinaryProtocol.h>
#include <thrift/server/TThreadedServer.h>
#include <thrift/transport/TBufferTransports.h>
#include <thrift/transport/TServerSocket.h>
#include <thrift/transport/TSocket.h>

#include <future>
#include <limits>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

namespace Brantel::Bench {
namespace {

using apache::thrift::TConfiguration;
using apache::thrift::protocol::TBinaryProtocolFactoryT;
using apache::thrift::protocol::TBinaryProtocolT;
using apache::thrift::server::TThreadedServer;
using apache::thrift::transport::TFramedTransport;
using apache::thrift::transport::TFramedTransportFactory;
using apache::thrift::transport::TServerSocket;
using apache::thrift::transport::TSocket;
using apache::thrift::transport::TTransport;

using Protocol = TBinaryProtocolT<TFramedTransport>;
using Client = ThriftCalls::ThriftPeerClientT<Protocol>;

// Its limit counts all bytes of a connection.
std::shared_ptr<TConfiguration> WithoutLimits() {
    constexpr int most = std::numeric_limits<int>::max();
    return std::make_shared<TConfiguration>(most, most);
}

class Handler : public ThriftCalls::ThriftPeerIf {
  public:
    std::int64_t Count(std::int64_t row) override {
        return static_cast<std::int64_t>(values.Count(row));
    }
    std::int64_t LastTime(std::int64_t row) override { return values.LastTime(row); }
    std::int64_t Append(std::int64_t row, const std::string& value) override {
        // The arguments are nobody's any more: the bytes are taken, not copied.
        values.Append(row, std::move(const_cast<std::string&>(value)),  // NOLINT: see above
                      LimitOf(row));
        return 1;
    }
    void Read(ThriftCalls::Got& got, std::int64_t row, std::int64_t time, bool backwards) override {
        got.time = values.Read(row, time, backwards, got.value);
    }
    std::int64_t Wait(std::int64_t row, std::int64_t time) override {
        std::promise<void> there;
        values.WhenBehind(row, time, [&there] { there.set_value(); });
        there.get_future().wait();
        return 1;
    }

  private:
    KeptValues values;
};

class ThriftConnection : public ICalls {
  public:
    ThriftConnection(const std::shared_ptr<TSocket>& socket, const Task& task)
        : task(task),
          row(RowOf(task)),
          value(task.size, 'x'),
          socket(socket),
          transport(std::make_shared<TFramedTransport>(socket, WithoutLimits())),
          client(std::make_shared<Protocol>(transport)) {
        socket->setNoDelay(true);
        transport->open();
        const bool isWalk = task.work == Work::Next || task.work == Work::Previous;
        const std::size_t wanted = isWalk                    ? walkValues
                                   : task.work == Work::Read ? KeptOf(task.size)
                                                             : 0;
        for (auto there = static_cast<std::size_t>(client.Count(row)); there < wanted; ++there) {
            client.Append(row, value);
        }
        if (task.work == Work::Wait) {
            time = client.LastTime(row);
        }
    }

    void Call() override {
        switch (task.work) {
            case Work::Ask: client.Count(row); break;
            case Work::Append: client.Append(row, value); break;
            case Work::Wait:
                client.Wait(row, time);
                ++time;
                break;
            default: Read(); break;
        }
    }
    void Ask() override { client.send_Count(row); }
    void Hear() override { client.recv_Count(); }
    int Descriptor() const override { return socket->getSocketFD(); }

  private:
    void Read() {
        client.Read(got, row, time, task.work == Work::Previous);
        if (got.value.size() != task.size) {
            throw std::runtime_error("thrift: a wrong answer");
        }
        time = got.time;
    }

    const Task task;
    const std::int64_t row;
    const std::string value;
    std::shared_ptr<TSocket> socket;
    std::shared_ptr<TFramedTransport> transport;
    Client client;
    ThriftCalls::Got got;
    std::int64_t time = 0;
};

class ThriftServer : public IPeer {
  public:
    explicit ThriftServer(const std::string& folder)
        : path(folder + "/socket"),
          server({"/proc/self/exe", "--serve", "thrift", folder}, folder),
          port(std::stoi(server.ReadReady())) {
        // It tells its port a moment before the Unix socket is there.
        server.Until([this] {
            try {
                TSocket(path).open();
                return true;
            } catch (const apache::thrift::transport::TTransportException&) {
                return false;
            }
        });
    }

    std::unique_ptr<ICalls> Open(const Task& task) override {
        auto socket = task.transport == Transport::Unix
                          ? std::make_shared<TSocket>(path, WithoutLimits())
                          : std::make_shared<TSocket>("127.0.0.1", port, WithoutLimits());
        return std::make_unique<ThriftConnection>(socket, task);
    }
    pid_t Process() const override { return server.Process(); }

  private:
    const std::string path;
    ServerChild server;
    const int port;
};

// Server sockets whose connections have no limits.
class Listening : public TServerSocket {
  public:
    using TServerSocket::TServerSocket;

  protected:
    std::shared_ptr<TSocket> createSocket(THRIFT_SOCKET client) override {
        return std::make_shared<TSocket>(client, WithoutLimits());
    }
};

class FramedFactory : public TFramedTransportFactory {
  public:
    std::shared_ptr<TTransport> getTransport(std::shared_ptr<TTransport> transport) override {
        return std::make_shared<TFramedTransport>(std::move(transport), WithoutLimits());
    }
};

// Calls back once it listens.
class Watch : public apache::thrift::server::TServerEventHandler {
  public:
    explicit Watch(std::function<void()> ready) : ready(std::move(ready)) {}
    void preServe() override { ready(); }

  private:
    const std::function<void()> ready;
};

void Serve(const std::string& folder, const std::function<void(int)>& ready) {
    const auto processor =
        std::make_shared<ThriftCalls::ThriftPeerProcessorT<Protocol>>(std::make_shared<Handler>());
    const auto make = [&](const std::shared_ptr<TServerSocket>& socket) {
        return std::make_shared<TThreadedServer>(
            processor, socket, std::make_shared<FramedFactory>(),
            std::make_shared<TBinaryProtocolFactoryT<TFramedTransport>>());
    };
    const auto tcp = std::make_shared<Listening>("127.0.0.1", 0);
    const auto overTcp = make(tcp);
    overTcp->setServerEventHandler(
        std::make_shared<Watch>([&ready, tcp] { ready(tcp->getPort()); }));
    const auto overUnix = make(std::make_shared<Listening>(folder + "/socket"));
    std::thread([overUnix] { overUnix->serve(); }).detach();
    overTcp->serve();
}

}  // namespace

PeerKind ThriftKind() {
    return {
        "thrift",
        "Thrift: framed binary protocol, a server with a thread for each connection",
        "",
        [](const Task&, Keeping keeping) { return keeping == Keeping::Memory; },
        [](const std::string& folder, Keeping) { return std::make_unique<ThriftServer>(folder); },
        Serve,
        std::numeric_limits<std::size_t>::max(),
        true};
}

}  // namespace Brantel::Bench
