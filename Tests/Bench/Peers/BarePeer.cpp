// What the machine gives: both ends move as many bytes as a call of ours over the same kind of
// socket, with buffers made once, no messages and no storage. Where ours writes to a file, the
// other end writes what it got to one whose blocks are all there, and flushes it where ours does.

#include "Bench/BareExchange.h"
#include "Bench/BareFile.h"
#include "Bench/BenchServer.h"
#include "Bench/Peers/Kinds.h"
#include "Bench/Peers/ServerChild.h"

#include <BrantelStorageApiMessages.pb.h>

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <stdexcept>
#include <thread>
#include <utility>

namespace Brantel::Bench {
namespace {

constexpr std::size_t frameLength = 4;  // at most, for these sizes

std::size_t ChunkRequest(std::size_t size) {
    BrantelStorageApi::Request request;
    request.set_operation(BrantelStorageApi::OPERATION_TrackWriter_Append);
    auto& append = *request.mutable_trackwriter_append();
    append.set_object_handle(1);
    append.mutable_chunk()->mutable_timecode()->set_nanoseconds(1);
    append.mutable_chunk()->mutable_duration()->set_nanoseconds(1);
    auto& item = *append.mutable_chunk()->mutable_data()->add_items();
    item.set_key("data");
    item.mutable_value()->assign(size, 'x');
    return request.ByteSizeLong() + frameLength;
}

BareShape ShapeOf(const Task& task, Keeping keeping, Bareness bareness) {
    constexpr std::uint64_t smallRequest = 24;
    constexpr std::uint64_t smallAnswer = 16;
    constexpr std::uint64_t emptyAnswer = 5;
    BareShape shape;
    shape.requestSize = smallRequest;
    shape.answerSize = smallAnswer;
    shape.polls = bareness == Bareness::Blocking ? 0 : 1;
    shape.places = bareness == Bareness::Keeping ? KeptOf(task.size) : 0;
    if (task.work == Work::Append) {
        shape.requestSize = ChunkRequest(task.size);
        shape.answerSize = emptyAnswer;
        shape.wakes = task.isAwaited ? 1 : 0;
        if (keeping == Keeping::Always) {
            shape.file = BareShape::writesAndFlushes;
        } else if (keeping != Keeping::Memory) {
            shape.file = BareShape::writes;
        }
    } else if (task.work == Work::Wait) {
        shape.file = BareShape::waits;
    } else if (task.work != Work::Ask) {
        shape.answerSize = ChunkRequest(task.size);
        shape.file = keeping == Keeping::Memory ? BareShape::inMemory : BareShape::reads;
    }
    return shape;
}

class BareCalls : public ICalls {
  public:
    BareCalls(int fd, const BareShape& shape) : exchange(fd, shape) {
        if (shape.file == BareShape::waits) {
            // From now on it waits.
            exchange.Call();
        }
    }
    void Call() override { exchange.Call(); }
    void Ask() override { exchange.Ask(); }
    void Hear() override { exchange.Hear(); }
    int Descriptor() const override { return exchange.Descriptor(); }

  private:
    BareExchange exchange;
};

class BarePeer : public IPeer {
  public:
    BarePeer(const std::string& folder, Keeping keeping, Bareness bareness)
        : path(folder + "/socket"),
          keeping(keeping),
          bareness(bareness),
          server({"/proc/self/exe", "--serve", "bare", folder}, folder),
          port(std::stoi(server.ReadReady())) {}

    std::unique_ptr<ICalls> Open(const Task& task) override {
        const int fd =
            task.transport == Transport::Unix ? ConnectSocket(path) : ConnectSocket(port);
        return std::make_unique<BareCalls>(fd, ShapeOf(task, keeping, bareness));
    }
    pid_t Process() const override { return server.Process(); }

  private:
    const std::string path;
    const Keeping keeping;
    const Bareness bareness;
    ServerChild server;
    const int port;
};

[[noreturn]] void AcceptForEver(int listening, const std::string& folder, BareBell& bell) {
    for (;;) {
        const int fd = ::accept4(listening, nullptr, nullptr, SOCK_CLOEXEC);
        if (fd >= 0) {
            SetSocketOptions(fd);
            std::thread([fd, folder, &bell] { ServeBareExchange(fd, folder, bell); }).detach();
        }
    }
}

void Serve(const std::string& folder, const std::function<void(int)>& ready) {
    int port = 0;
    const int overTcp = ListenTcp(port);
    const int overUnix = ListenUnix(folder + "/socket");
    ready(port);
    BareBell bell;
    std::thread([overTcp, folder, &bell] { AcceptForEver(overTcp, folder, bell); }).detach();
    AcceptForEver(overUnix, folder, bell);
}

}  // namespace

PeerKind BareKind(Bareness bareness) {
    PeerKind kind;
    kind.does = [](const Task&, Keeping) { return true; };
    kind.start = [bareness](const std::string& folder, Keeping keeping) {
        return std::make_unique<BarePeer>(folder, keeping, bareness);
    };
    kind.serve = Serve;
    kind.hasHalves = true;
    switch (bareness) {
        case Bareness::Polling:
            kind.name = "bare";
            kind.about = "the same bytes and nothing else, polling as ours does before it blocks";
            break;
        case Bareness::Blocking:
            kind.name = "bare-blocking";
            kind.about = "the same bytes and nothing else, blocking";
            break;
        case Bareness::Keeping:
            kind.name = "bare-keeping";
            kind.about =
                "the same bytes, polling, copied to or from memory for as many values as others "
                "keep";
            kind.does = [](const Task& task, Keeping keeping) {
                const bool isKept = task.work == Work::Append || task.work == Work::Read;
                return isKept && keeping == Keeping::Memory && !task.isAwaited;
            };
            break;
    }
    return kind;
}

}  // namespace Brantel::Bench
