// The storage server through the facade: a StorageClientX for each connection, a track for each
// size of chunks.

#include "Bench/Peers/Kinds.h"
#include "Bench/Peers/ServerChild.h"

#include <BrantelStorageApiMessages.pb.h>
#include <libProtocolX/DataChunk.h>
#include <libProtocolX/IStorageReaderX.h>
#include <libProtocolX/IStorageWriterX.h>
#include <libProtocolX/StorageClientX.h>
#include <libProtocolX/rpc/Client.h>
#include <libProtocolX/rpc/ClientTrackReader.h>
#include <libServices/FileDescriptorServiceConnection.h>
#include <libServices/TcpSocketConnection.h>
#include <libServices/UnixDomainConnection.h>
#include <libTime/TimePoint.h>

#include <algorithm>
#include <chrono>
#include <map>
#include <mutex>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

namespace Brantel::Bench {
namespace {

using ProtocolX::DataChunk;
using ProtocolX::StorageClientX;
using Time::TimePoint;

constexpr unsigned int timeoutMilliseconds = 60'000;

struct Address {
    std::string path;
    unsigned short port = 0;
};

std::unique_ptr<StorageClientX> Connect(const Address& address, Transport transport) {
    auto client = std::make_unique<StorageClientX>();
    const bool isThere = transport == Transport::Unix
                             ? client->ConnectToSlave(address.path)
                             : client->ConnectToSlave("127.0.0.1", static_cast<short>(address.port),
                                                      timeoutMilliseconds);
    if (!isThere) {
        throw std::runtime_error("brantel: no connection");
    }
    return client;
}

class OwnCalls : public ICalls {
  public:
    OwnCalls(std::unique_ptr<StorageClientX> client, long track, const Task& task)
        : client(std::move(client)), track(track), task(task) {
        chunk.SetDuration(TimePoint::Nanoseconds(1));
        if (task.size > 0) {
            chunk.SetData("data", std::string(task.size, 'x'));
        }
        // Of an empty track -1; the first chunk lies behind what a wait begins with.
        time = std::max(0L, this->client->GetEndOfTrack(track).ToNanoseconds());
        if (task.work == Work::Next || task.work == Work::Previous) {
            FillForWalk();
        } else if (task.work == Work::Read) {
            Fill(KeptOf(task.size));
        } else if (task.work == Work::Append) {
            writer = this->client->GetTrackWriter(track);
        }
        if (task.work != Work::Ask && task.work != Work::Append) {
            reader = this->client->GetTrackReader(track, 1);
        }
    }

    void Call() override {
        switch (task.work) {
            case Work::Append: Append(); break;
            case Work::Read: Read(); break;
            case Work::Next: Next(); break;
            case Work::Previous: Previous(); break;
            default: Check(client->GetTrackSize(track) > 0);
        }
    }

  private:
    static void Check(bool good) {
        if (!good) {
            throw std::runtime_error("brantel: a wrong answer");
        }
    }
    void Append() {
        chunk.SetTimePoint(TimePoint::Nanoseconds(++time));
        writer->Append(chunk);
    }
    void Read() {
        const auto back = static_cast<long>(turn++ % KeptOf(task.size));
        Check(reader->GetChunk(chunk, TimePoint::Nanoseconds(time - back), allKeys) &&
              chunk.GetDataSize() == 1 && chunk.GetData("data").size() == task.size);
    }
    void Next() {
        if (!reader->GetNextChunk(chunk, place, allKeys)) {
            Check(reader->GetNextChunk(chunk, TimePoint::Nanoseconds(-1), allKeys));
        }
        place = chunk.GetTimePoint();
    }
    void Previous() {
        if (!reader->GetPreviousChunk(chunk, place, allKeys)) {
            Check(reader->GetPreviousChunk(chunk, TimePoint::Nanoseconds(time + 1), allKeys));
        }
        place = chunk.GetTimePoint();
    }
    void Fill(std::size_t count) {
        writer = client->GetTrackWriter(track);
        for (std::size_t i = 0; i < count; ++i) {
            Append();
        }
        client->CloseTrackWriter(track);
        writer = nullptr;
    }
    void FillForWalk() {
        const long there = client->GetNumberOfChunks(track, TimePoint::Nanoseconds(0),
                                                     TimePoint::Nanoseconds(time + 1));
        Fill(walkValues - std::min(walkValues, static_cast<std::size_t>(there)));
    }

    std::unique_ptr<StorageClientX> client;
    const long track;
    const Task task;
    DataChunk chunk;
    long time = 0;  // of the last chunk
    TimePoint place = TimePoint::Nanoseconds(-1);
    std::size_t turn = 0;
    const std::set<std::string> allKeys;
    ProtocolX::IStorageWriterX* writer = nullptr;
    ProtocolX::IStorageReaderX* reader = nullptr;
};

// The facade has no call that waits; the stub below it has.
class WaitCalls : public ICalls {
  public:
    WaitCalls(std::unique_ptr<Services::IServiceConnection> connection, long track, long last)
        : connection(std::move(connection)),
          client(*this->connection),
          reader(*this->connection, client.GetMutex(), track) {
        time.set_nanoseconds(static_cast<std::uint64_t>(last));
    }
    ~WaitCalls() override {
        try {
            reader.DestroyOnServer();
        } catch (const std::exception&) {
            // The connection is gone, and the reader with it.
        }
    }
    WaitCalls(const WaitCalls&) = delete;
    WaitCalls& operator=(const WaitCalls&) = delete;

    void Call() override {
        bool isThere = false;
        reader.Wait(time, timeoutMilliseconds, isThere);
        if (!isThere) {
            throw std::runtime_error("brantel: no chunk came");
        }
        time.set_nanoseconds(time.nanoseconds() + 1);
    }

  private:
    std::unique_ptr<Services::IServiceConnection> connection;
    BrantelStorageApi::Client client;
    BrantelStorageApi::ClientTrackReader reader;
    Protocol::TimePoint time;
};

// Messages without the facade and the stubs, which have no calls in halves. The client's waits and
// polls play no part here.
template <typename Connection>
class MessageCalls : public ICalls {
  public:
    template <typename... Arguments>
    explicit MessageCalls(long track, const Arguments&... where) : connection(where...) {
        request.set_operation(BrantelStorageApi::OPERATION_TrackStorage_GetTrackSize);
        request.mutable_trackstorage_gettracksize()->set_trackid(track);
    }

    void Call() override {
        Ask();
        Hear();
    }
    void Ask() override { connection.Send(request); }
    void Hear() override {
        if (!connection.Receive(response) || !response.is_success() ||
            response.trackstorage_gettracksize().tracksize() <= 0) {
            throw std::runtime_error("brantel: a wrong answer");
        }
    }
    int Descriptor() const override { return connection.Descriptor(); }

  private:
    struct Shown : Connection {
        using Connection::Connection;
        using Connection::Descriptor;
    };

    Shown connection;
    BrantelStorageApi::Request request;
    BrantelStorageApi::Response response;
};

class OwnPeer : public IPeer {
  public:
    OwnPeer(const std::string& folder, Keeping keeping)
        : isInMemory(keeping == Keeping::Memory),
          address{folder + "/socket", 0},
          server(Command(folder, keeping), folder) {
        const std::string addresses = server.ReadReady();
        address.port =
            static_cast<unsigned short>(std::stoul(addresses.substr(addresses.rfind(':') + 1)));
    }

    std::unique_ptr<ICalls> Open(const Task& task) override {
        std::unique_ptr<StorageClientX> client = Connect(address, task.transport);
        const long track = TrackFor(*client, task);
        using Tcp = Services::TcpSocketConnection<Services::FileDescriptorServiceConnection>;
        if (task.inHalves && task.transport == Transport::Unix) {
            return std::make_unique<MessageCalls<Services::UnixDomainConnection>>(track,
                                                                                  address.path);
        }
        if (task.inHalves) {
            return std::make_unique<MessageCalls<Tcp>>(track, "127.0.0.1", address.port,
                                                       timeoutMilliseconds);
        }
        if (task.work != Work::Wait) {
            return std::make_unique<OwnCalls>(std::move(client), track, task);
        }
        const long last = std::max(0L, client->GetEndOfTrack(track).ToNanoseconds());
        std::unique_ptr<Services::IServiceConnection> connection;
        if (task.transport == Transport::Unix) {
            connection = std::make_unique<Services::UnixDomainConnection>(address.path);
        } else {
            connection = std::make_unique<Tcp>("127.0.0.1", address.port, timeoutMilliseconds);
        }
        return std::make_unique<WaitCalls>(std::move(connection), track, last);
    }

    pid_t Process() const override { return server.Process(); }

  private:
    static std::vector<std::string> Command(const std::string& folder, Keeping keeping) {
        std::vector<std::string> command{BRANTEL_STORAGED,
                                         "--config",
                                         "",
                                         "--listen",
                                         "unix:" + folder + "/socket",
                                         "--listen",
                                         "tcp:127.0.0.1:0",
                                         "--ready-fd",
                                         "3",
                                         "--tcp-role",
                                         "admin",
                                         "--http",
                                         "off",
                                         "--log-level",
                                         "warning"};
        const std::map<Keeping, std::string> durabilities{{Keeping::System, "os"},
                                                          {Keeping::Interval, "interval:1000ms"},
                                                          {Keeping::Always, "always"}};
        if (keeping == Keeping::Memory) {
            command.insert(command.end(), {"--engine", "memory"});
        } else {
            command.insert(command.end(), {"--data", folder + "/data", "--keep-free", "0",
                                           "--durability", durabilities.at(keeping)});
        }
        return command;
    }
    // Tracks that recycle their oldest chunks. Those that are walked through hold all; the others
    // hold about as many as the other servers keep, and no fewer in files than make a film of some
    // seconds: a smaller ring would flush each chunk before it can write the next but few.
    long CapacityFor(const Task& task, bool isWalk) const {
        constexpr long walkCapacity = 8L << 20U;
        const long leastCapacity = (isInMemory ? 1L : 64L) << 20U;
        const auto size = static_cast<long>(task.size);
        if (isWalk) {
            return walkCapacity;
        }
        // One more, for what is stored beside the values.
        const auto kept = static_cast<long>(KeptOf(task.size));
        return std::max(leastCapacity, size * (kept + 1));
    }
    long TrackFor(StorageClientX& client, const Task& task) {
        const bool isWalk = task.work == Work::Next || task.work == Work::Previous;
        const std::lock_guard lock(mutex);
        long& track = tracks[{isWalk, task.size}];
        if (track == 0) {
            StorageClientX::TrackParameters wanted;
            wanted.size = CapacityFor(task, isWalk);
            wanted = client.CreateTrack(wanted);
            server.Until([&] {
                return client.GetCommandInfo(wanted.commandId).type == StorageClientX::FINISHED;
            });
            track = wanted.id;
        }
        return track;
    }

    const bool isInMemory;
    Address address;
    ServerChild server;
    std::mutex mutex;
    std::map<std::pair<bool, std::size_t>, long> tracks;
};

}  // namespace

PeerKind OwnKind() {
    return {"brantel",
            "brantel-storaged, through StorageClientX; Wait through the stub below it",
            "",
            [](const Task&, Keeping) { return true; },
            [](const std::string& folder, Keeping keeping) {
                return std::make_unique<OwnPeer>(folder, keeping);
            },
            nullptr,
            std::numeric_limits<std::size_t>::max(),
            true};
}

}  // namespace Brantel::Bench
