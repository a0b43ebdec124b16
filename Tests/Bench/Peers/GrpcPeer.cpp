// gRPC: a server with the callback interface, a channel of its own for each connection, blocking
// unary calls of the generated stub. The values are in memory.

#include "Bench/Peers/KeptValues.h"
#include "Bench/Peers/Kinds.h"
#include "Bench/Peers/ServerChild.h"

#include <GrpcPeer.grpc.pb.h>
#include <grpcpp/grpcpp.h>

#include <limits>
#include <stdexcept>
#include <string>

namespace Brantel::Bench {
namespace {

class Service : public Grpc::Values::CallbackService {
  public:
    grpc::ServerUnaryReactor* Count(grpc::CallbackServerContext* context, const Grpc::Place* place,
                                    Grpc::Answer* answer) override {
        answer->set_number(values.Count(Row(*place)));
        return Finish(context);
    }
    grpc::ServerUnaryReactor* LastTime(grpc::CallbackServerContext* context,
                                       const Grpc::Place* place, Grpc::Answer* answer) override {
        answer->set_number(static_cast<std::uint64_t>(values.LastTime(Row(*place))));
        return Finish(context);
    }
    grpc::ServerUnaryReactor* Append(grpc::CallbackServerContext* context, const Grpc::Value* value,
                                     Grpc::Answer* answer) override {
        // The request is nobody's any more: its bytes are taken, not copied.
        auto& mine = const_cast<Grpc::Value&>(*value);  // NOLINT: see above
        const auto row = static_cast<std::int64_t>(mine.row());
        values.Append(row, std::move(*mine.mutable_value()), LimitOf(row));
        answer->set_number(1);
        return Finish(context);
    }
    grpc::ServerUnaryReactor* Read(grpc::CallbackServerContext* context, const Grpc::Place* place,
                                   Grpc::Value* value) override {
        value->set_time(static_cast<std::uint64_t>(
            values.Read(Row(*place), static_cast<std::int64_t>(place->time()), place->backwards(),
                        *value->mutable_value())));
        return Finish(context);
    }
    grpc::ServerUnaryReactor* Wait(grpc::CallbackServerContext* context, const Grpc::Place* place,
                                   Grpc::Answer* answer) override {
        grpc::ServerUnaryReactor* const reactor = context->DefaultReactor();
        values.WhenBehind(Row(*place), static_cast<std::int64_t>(place->time()), [reactor, answer] {
            answer->set_number(1);
            reactor->Finish(grpc::Status::OK);
        });
        return reactor;
    }

  private:
    static std::int64_t Row(const Grpc::Place& place) {
        return static_cast<std::int64_t>(place.row());
    }
    static grpc::ServerUnaryReactor* Finish(grpc::CallbackServerContext* context) {
        grpc::ServerUnaryReactor* const reactor = context->DefaultReactor();
        reactor->Finish(grpc::Status::OK);
        return reactor;
    }

    KeptValues values;
};

class GrpcCalls : public ICalls {
  public:
    GrpcCalls(const std::shared_ptr<grpc::Channel>& channel, const Task& task)
        : task(task), stub(Grpc::Values::NewStub(channel)) {
        place.set_row(static_cast<std::uint64_t>(RowOf(task)));
        value.set_row(place.row());
        value.set_value(std::string(task.size, 'x'));
        const bool isWalk = task.work == Work::Next || task.work == Work::Previous;
        const std::size_t wanted = isWalk                    ? walkValues
                                   : task.work == Work::Read ? KeptOf(task.size)
                                                             : 0;
        place.set_backwards(task.work == Work::Previous);
        Do(&Grpc::Values::Stub::Count, place, answer);
        for (std::size_t there = answer.number(); there < wanted; ++there) {
            Do(&Grpc::Values::Stub::Append, value, answer);
        }
        if (task.work == Work::Wait) {
            Do(&Grpc::Values::Stub::LastTime, place, answer);
            place.set_time(answer.number());
        }
    }

    void Call() override {
        switch (task.work) {
            case Work::Ask: Do(&Grpc::Values::Stub::Count, place, answer); break;
            case Work::Append: Do(&Grpc::Values::Stub::Append, value, answer); break;
            case Work::Wait:
                Do(&Grpc::Values::Stub::Wait, place, answer);
                place.set_time(place.time() + 1);
                break;
            default: Read(); break;
        }
    }

  private:
    template <typename Request, typename Response>
    void Do(grpc::Status (Grpc::Values::Stub::*call)(grpc::ClientContext*, const Request&,
                                                     Response*),
            const Request& request, Response& response) {
        grpc::ClientContext context;
        context.set_wait_for_ready(true);
        const grpc::Status status = ((*stub).*call)(&context, request, &response);
        if (!status.ok()) {
            throw std::runtime_error("grpc: " + status.error_message());
        }
    }
    void Read() {
        Do(&Grpc::Values::Stub::Read, place, got);
        if (got.value().size() != task.size) {
            throw std::runtime_error("grpc: a wrong answer");
        }
        place.set_time(got.time());
    }

    const Task task;
    std::unique_ptr<Grpc::Values::Stub> stub;
    Grpc::Place place;
    Grpc::Value value;
    Grpc::Value got;
    Grpc::Answer answer;
};

constexpr int noLimit = -1;

class GrpcPeer : public IPeer {
  public:
    explicit GrpcPeer(const std::string& folder)
        : path("unix:" + folder + "/socket"),
          server({"/proc/self/exe", "--serve", "grpc", folder}, folder),
          port(server.ReadReady()) {}

    std::unique_ptr<ICalls> Open(const Task& task) override {
        grpc::ChannelArguments arguments;
        arguments.SetMaxReceiveMessageSize(noLimit);
        arguments.SetMaxSendMessageSize(noLimit);
        // A connection of its own, not one that equal channels share.
        arguments.SetInt(GRPC_ARG_USE_LOCAL_SUBCHANNEL_POOL, 1);
        const std::string address = task.transport == Transport::Unix ? path : "127.0.0.1:" + port;
        return std::make_unique<GrpcCalls>(
            grpc::CreateCustomChannel(address, grpc::InsecureChannelCredentials(), arguments),
            task);
    }
    pid_t Process() const override { return server.Process(); }

  private:
    const std::string path;
    ServerChild server;
    const std::string port;
};

void Serve(const std::string& folder, const std::function<void(int)>& ready) {
    Service service;
    grpc::ServerBuilder builder;
    int port = 0;
    builder.SetMaxReceiveMessageSize(noLimit);
    builder.SetMaxSendMessageSize(noLimit);
    builder.AddListeningPort("127.0.0.1:0", grpc::InsecureServerCredentials(), &port);
    builder.AddListeningPort("unix:" + folder + "/socket", grpc::InsecureServerCredentials());
    builder.RegisterService(&service);
    const std::unique_ptr<grpc::Server> server = builder.BuildAndStart();
    if (!server || port == 0) {
        throw std::runtime_error("grpc: can't listen");
    }
    ready(port);
    server->Wait();
}

}  // namespace

PeerKind GrpcKind() {
    return {"grpc",
            "gRPC: unary calls over a channel for each connection, a server with callbacks",
            "",
            [](const Task&, Keeping keeping) { return keeping == Keeping::Memory; },
            [](const std::string& folder, Keeping) { return std::make_unique<GrpcPeer>(folder); },
            Serve};
}

}  // namespace Brantel::Bench
