// NATS JetStream with its C client: a file store where values are kept (the server flushes it by
// itself every two minutes), a memory store else. Values are published and acknowledged
// (js_Publish), read directly by their sequence (js_DirectGetMsg), and waited for with a
// subscription. One subject for each size of values. Over TCP alone: it has nothing else.

#include "Bench/Peers/Kinds.h"
#include "Bench/Peers/ServerChild.h"

#include <nats/nats.h>

#include <array>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

namespace Brantel::Bench {
namespace {

constexpr const char* program = "nats-server";
constexpr std::int64_t timeoutMilliseconds = 60'000;

void Check(natsStatus status) {
    if (status != NATS_OK) {
        throw std::runtime_error(std::string("nats: ") + natsStatus_GetText(status));
    }
}

template <auto Destroy>
struct Destroyer {
    template <typename Thing>
    void operator()(Thing* thing) const {
        Destroy(thing);
    }
};
using Options = std::unique_ptr<natsOptions, Destroyer<natsOptions_Destroy>>;
using Connection = std::unique_ptr<natsConnection, Destroyer<natsConnection_Destroy>>;
using Context = std::unique_ptr<jsCtx, Destroyer<jsCtx_Destroy>>;
using Message = std::unique_ptr<natsMsg, Destroyer<natsMsg_Destroy>>;
using Acknowledgement = std::unique_ptr<jsPubAck, Destroyer<jsPubAck_Destroy>>;
using StreamInfo = std::unique_ptr<jsStreamInfo, Destroyer<jsStreamInfo_Destroy>>;
using Subscription = std::unique_ptr<natsSubscription, Destroyer<natsSubscription_Destroy>>;

Connection Connect(const std::string& url) {
    natsOptions* made = nullptr;
    Check(natsOptions_Create(&made));
    const Options options(made);
    Check(natsOptions_SetURL(options.get(), url.c_str()));
    // For requests with one answer each: what is sent leaves at once.
    Check(natsOptions_SetSendAsap(options.get(), true));
    natsConnection* connection = nullptr;
    Check(natsConnection_Connect(&connection, options.get()));
    return Connection(connection);
}

bool IsWalk(const Task& task) {
    return task.work == Work::Next || task.work == Work::Previous;
}

std::string StreamOf(const Task& task) {
    return (IsWalk(task) ? "walk" : "last") + std::to_string(task.size);
}

class NatsCalls : public ICalls {
  public:
    NatsCalls(Connection made, const Task& task, bool inMemory)
        : connection(std::move(made)), task(task), stream(StreamOf(task)), value(task.size, 'x') {
        if (this->value.empty()) {
            value = "12345678";
        }
        jsCtx* context = nullptr;
        Check(natsConnection_JetStream(&context, connection.get(), nullptr));
        jetStream.reset(context);
        MakeStream(inMemory);
        const std::uint64_t wanted = IsWalk(task) ? walkValues : KeptOf(task.size);
        while (last < first + wanted - 1 || last == 0) {
            Append();
        }
        next = task.work == Work::Previous ? last : first;
        if (task.work == Work::Wait) {
            Subscribe();
        }
    }

    void Call() override {
        switch (task.work) {
            case Work::Append: Append(); break;
            case Work::Wait: Wait(); break;
            default: Read(); break;
        }
    }

  private:
    void MakeStream(bool inMemory) {
        const char* const subject = stream.c_str();
        jsStreamConfig wanted;
        Check(jsStreamConfig_Init(&wanted));
        wanted.Name = subject;
        std::array<const char*, 1> subjects{subject};
        wanted.Subjects = subjects.data();
        wanted.SubjectsLen = 1;
        wanted.Storage = inMemory ? js_MemoryStorage : js_FileStorage;
        wanted.MaxMsgs = static_cast<std::int64_t>(IsWalk(task) ? walkValues : KeptOf(task.size));
        wanted.AllowDirect = true;
        jsStreamInfo* info = nullptr;
        // Returns the stream as it is when it is there already.
        Check(js_AddStream(&info, jetStream.get(), &wanted, nullptr, nullptr));
        const StreamInfo owned(info);
        first = info->State.FirstSeq;
        last = info->State.LastSeq;
        if (info->State.Msgs == 0) {
            first = last + 1;
        }
    }
    void Append() {
        jsPubAck* acknowledgement = nullptr;
        Check(js_Publish(&acknowledgement, jetStream.get(), stream.c_str(), value.data(),
                         static_cast<int>(value.size()), nullptr, nullptr));
        const Acknowledgement owned(acknowledgement);
        last = acknowledgement->Sequence;
    }
    void Read() {
        jsDirectGetMsgOptions wanted;
        Check(jsDirectGetMsgOptions_Init(&wanted));
        wanted.Sequence = next;
        natsMsg* message = nullptr;
        Check(js_DirectGetMsg(&message, jetStream.get(), stream.c_str(), nullptr, &wanted));
        const Message owned(message);
        CheckMessage(message);
        if (task.work == Work::Previous) {
            next = next == first ? last : next - 1;
        } else {
            next = next == last ? first : next + 1;
        }
    }
    void CheckMessage(natsMsg* message) const {
        if (static_cast<std::size_t>(natsMsg_GetDataLength(message)) != value.size()) {
            throw std::runtime_error("nats: a wrong answer");
        }
    }
    void Subscribe() {
        jsSubOptions options;
        Check(jsSubOptions_Init(&options));
        options.Stream = stream.c_str();
        options.Ordered = true;
        options.Config.DeliverPolicy = js_DeliverNew;
        natsSubscription* made = nullptr;
        Check(js_SubscribeSync(&made, jetStream.get(), stream.c_str(), nullptr, &options, nullptr));
        subscription.reset(made);
    }
    void Wait() {
        natsMsg* message = nullptr;
        Check(natsSubscription_NextMsg(&message, subscription.get(), timeoutMilliseconds));
        const Message owned(message);
        CheckMessage(message);
    }

    Connection connection;
    const Task task;
    const std::string stream;
    std::string value;
    Context jetStream;
    Subscription subscription;
    std::uint64_t first = 0;
    std::uint64_t last = 0;
    std::uint64_t next = 0;
};

class NatsPeer : public IPeer {
  public:
    NatsPeer(const std::string& folder, Keeping keeping)
        : keeping(keeping),
          url("nats://127.0.0.1:" + std::to_string(FreePort())),
          server({FindProgram(program), "-c", WriteSettings(folder)}, folder) {
        server.Until([this] {
            try {
                Connect(url);
                return true;
            } catch (const std::runtime_error&) {
                return false;
            }
        });
    }

    std::unique_ptr<ICalls> Open(const Task& task) override {
        return std::make_unique<NatsCalls>(Connect(url), task, keeping == Keeping::Memory);
    }
    pid_t Process() const override { return server.Process(); }

  private:
    std::string WriteSettings(const std::string& folder) const {
        const std::string path = folder + "/settings";
        std::ofstream file(path);
        file << "listen: \"" << url.substr(url.rfind('/') + 1) << "\"\n"
             << "max_payload: 9MB\nmax_connections: 10000\n"
             << "jetstream { store_dir: \"" << folder << "/store\" }\n";
        if (!file.flush()) {
            throw std::runtime_error("can't write " + path);
        }
        return path;
    }

    const Keeping keeping;
    const std::string url;
    ServerChild server;
};

}  // namespace

PeerKind NatsKind() {
    return {"nats",
            "NATS JetStream: acknowledged publish, direct get, subscription",
            FindProgram(program).empty() ? "there is no nats-server here" : "",
            [](const Task& task, Keeping keeping) {
                return task.transport == Transport::Tcp && keeping != Keeping::Always &&
                       keeping != Keeping::Interval;
            },
            [](const std::string& folder, Keeping keeping) {
                return std::make_unique<NatsPeer>(folder, keeping);
            },
            nullptr};
}

}  // namespace Brantel::Bench
