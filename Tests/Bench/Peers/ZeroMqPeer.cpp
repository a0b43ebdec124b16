// ZeroMQ: REQ on the client's side, ROUTER with one thread on the server's, one context with one
// thread for a process. No coding: a head of fixed fields and the value are two parts of a
// message. The values are in memory.

#include "Bench/Peers/KeptValues.h"
#include "Bench/Peers/Kinds.h"
#include "Bench/Peers/ServerChild.h"

#include <zmq.h>

#include <array>
#include <cstring>
#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace Brantel::Bench {
namespace {

enum class Operation : std::int64_t { Count, Append, Read };

struct Head {
    Operation operation = Operation::Count;
    std::int64_t row = 0;
    std::int64_t time = 0;  // an answer: of the value, or the number that was asked for
    std::int64_t backwards = 0;
};

void Check(bool good, const char* what) {
    if (!good) {
        throw std::runtime_error(std::string("zeromq: ") + what + ": " + zmq_strerror(zmq_errno()));
    }
}

struct EndContext {
    void operator()(void* context) const { zmq_ctx_term(context); }
};
struct CloseSocket {
    void operator()(void* socket) const { zmq_close(socket); }
};
using Context = std::unique_ptr<void, EndContext>;
using Socket = std::unique_ptr<void, CloseSocket>;

Context MakeContext() {
    constexpr int mostSockets = 10000;
    Context context(zmq_ctx_new());
    zmq_ctx_set(context.get(), ZMQ_MAX_SOCKETS, mostSockets);
    return context;
}

Socket MakeSocket(const Context& context, int type) {
    Socket socket(zmq_socket(context.get(), type));
    Check(socket != nullptr, "socket");
    const int noWait = 0;
    zmq_setsockopt(socket.get(), ZMQ_LINGER, &noWait, sizeof(noWait));
    return socket;
}

// One part of a message, with the library's memory.
class Part {
  public:
    Part() { zmq_msg_init(&message); }
    ~Part() { zmq_msg_close(&message); }
    Part(const Part&) = delete;
    Part& operator=(const Part&) = delete;

    void Receive(const Socket& socket) {
        Check(zmq_msg_recv(&message, socket.get(), 0) >= 0, "receive");
    }
    bool HasMore() const { return zmq_msg_more(&message) != 0; }
    std::string_view Bytes() {
        return {static_cast<const char*>(zmq_msg_data(&message)), zmq_msg_size(&message)};
    }
    Head AsHead() {
        Head head;
        Check(zmq_msg_size(&message) == sizeof(head), "a head of another size");
        std::memcpy(&head, zmq_msg_data(&message), sizeof(head));
        return head;
    }

  private:
    zmq_msg_t message{};
};

void Send(const Socket& socket, const void* bytes, std::size_t size, bool isLast) {
    Check(zmq_send(socket.get(), bytes, size, isLast ? 0 : ZMQ_SNDMORE) >= 0, "send");
}

class ZeroMqCalls : public ICalls {
  public:
    ZeroMqCalls(const Context& context, const std::string& address, const Task& task)
        : task(task), value(task.size, 'x'), socket(MakeSocket(context, ZMQ_REQ)) {
        Check(zmq_connect(socket.get(), address.c_str()) == 0, "connect");
        head.row = RowOf(task);
        head.backwards = task.work == Work::Previous ? 1 : 0;
        const bool isWalk = task.work == Work::Next || task.work == Work::Previous;
        const std::size_t wanted = isWalk                    ? walkValues
                                   : task.work == Work::Read ? KeptOf(task.size)
                                                             : 0;
        Exchange(Operation::Count, {});
        for (auto there = static_cast<std::size_t>(answer.time); there < wanted; ++there) {
            Exchange(Operation::Append, value);
        }
        head.time = 0;
    }

    void Call() override {
        switch (task.work) {
            case Work::Ask: Exchange(Operation::Count, {}); break;
            case Work::Append: Exchange(Operation::Append, value); break;
            default: Read(); break;
        }
    }

  private:
    void Exchange(Operation operation, std::string_view bytes) {
        head.operation = operation;
        Send(socket, &head, sizeof(head), bytes.empty());
        if (!bytes.empty()) {
            Send(socket, bytes.data(), bytes.size(), true);
        }
        Part first;
        first.Receive(socket);
        answer = first.AsHead();
        if (first.HasMore()) {
            Part second;
            second.Receive(socket);
            got.assign(second.Bytes());
        }
    }
    void Read() {
        Exchange(Operation::Read, {});
        if (got.size() != task.size) {
            throw std::runtime_error("zeromq: a wrong answer");
        }
        head.time = answer.time;
    }

    const Task task;
    const std::string value;
    const Socket socket;
    Head head;
    Head answer;
    std::string got;
};

class ZeroMqPeer : public IPeer {
  public:
    explicit ZeroMqPeer(const std::string& folder)
        : path("ipc://" + folder + "/socket"),
          server({"/proc/self/exe", "--serve", "zeromq", folder}, folder),
          port(server.ReadReady()),
          context(MakeContext()) {}

    std::unique_ptr<ICalls> Open(const Task& task) override {
        return std::make_unique<ZeroMqCalls>(
            context, task.transport == Transport::Unix ? path : "tcp://127.0.0.1:" + port, task);
    }
    pid_t Process() const override { return server.Process(); }

  private:
    const std::string path;
    ServerChild server;
    const std::string port;
    const Context context;
};

int PortOf(const Socket& socket) {
    std::array<char, 256> text{};
    std::size_t size = text.size();
    Check(zmq_getsockopt(socket.get(), ZMQ_LAST_ENDPOINT, text.data(), &size) == 0, "endpoint");
    const std::string address(text.data());
    return std::stoi(address.substr(address.rfind(':') + 1));
}

// Identity, an empty part, head, perhaps a value.
void ServeOne(const Socket& socket, KeptValues& values, std::string& value) {
    Part identity;
    Part empty;
    Part first;
    identity.Receive(socket);
    empty.Receive(socket);
    first.Receive(socket);
    Head head = first.AsHead();
    bool hasValue = false;
    if (head.operation == Operation::Append) {
        Part second;
        second.Receive(socket);
        values.Append(head.row, std::string(second.Bytes()), LimitOf(head.row));
    } else if (head.operation == Operation::Read) {
        head.time = values.Read(head.row, head.time, head.backwards != 0, value);
        hasValue = true;
    } else {
        head.time = static_cast<std::int64_t>(values.Count(head.row));
    }
    Send(socket, identity.Bytes().data(), identity.Bytes().size(), false);
    Send(socket, nullptr, 0, false);
    Send(socket, &head, sizeof(head), !hasValue);
    if (hasValue) {
        Send(socket, value.data(), value.size(), true);
    }
}

void Serve(const std::string& folder, const std::function<void(int)>& ready) {
    const Context context = MakeContext();
    const Socket socket = MakeSocket(context, ZMQ_ROUTER);
    Check(zmq_bind(socket.get(), "tcp://127.0.0.1:*") == 0, "bind");
    const int port = PortOf(socket);
    Check(zmq_bind(socket.get(), ("ipc://" + folder + "/socket").c_str()) == 0, "bind");
    ready(port);
    KeptValues values;
    std::string value;
    for (;;) {
        ServeOne(socket, values, value);
    }
}

}  // namespace

PeerKind ZeroMqKind() {
    return {"zeromq",
            "ZeroMQ: REQ to ROUTER, fields as they are in memory",
            "",
            [](const Task& task, Keeping keeping) {
                return keeping == Keeping::Memory && task.work != Work::Wait;
            },
            [](const std::string& folder, Keeping) { return std::make_unique<ZeroMqPeer>(folder); },
            Serve};
}

}  // namespace Brantel::Bench
