#pragma once

#include "Support/RecordingObjects.h"
#include "Support/Waiting.h"

#include <libProtocolX/rpc/Service.h>
#include <libServices/ServiceListener.h>

#include <sched.h>

#include <atomic>
#include <memory>
#include <string>

namespace Brantel::Tests {

// A server on a Unix-domain socket whose one command, 5, is as far as the test says; the rest is
// answered as RecordingStorage does.
class ScriptedServer {
  public:
    static constexpr long command = 5;

    explicit ScriptedServer(const std::string& socketPath)
        : listener([this](Services::FileDescriptorServiceConnection&,
                          const Services::PeerAddress&) { return MakeService(); }) {
        listener.ListenUnix(socketPath);
        listener.Start();
    }
    ScriptedServer(const ScriptedServer&) = delete;
    ScriptedServer& operator=(const ScriptedServer&) = delete;
    // Opens what still hangs.
    ~ScriptedServer() {
        hangs = false;
        listener.Stop();
    }

    void Set(Protocol::CommandInfo::Type newType, unsigned long newProgression) {
        progression = newProgression;
        type = newType;
    }
    // The next question for the command gets no answer.
    void Hang() { hangs = true; }
    // The answer comes.
    void Go() { hangs = false; }
    // True as soon as somebody waits for an answer that does not come.
    bool AwaitHanging() const {
        return Eventually([this] { return isHanging.load(); });
    }

  private:
    class Storage : public BrantelStorageApi::RecordingStorage {
      public:
        Storage(ScriptedServer& server, BrantelStorageApi::Journal& journal)
            : RecordingStorage(journal), server(server) {}
        void CreateTrack(const Protocol::TrackParameters& infoIn,
                         Protocol::TrackParameters& infoOut) override {
            infoOut.set_id(1);
            infoOut.set_size(infoIn.size());
            infoOut.set_commandid(command);
        }
        void GetCommandInfo(const long& commandId, Protocol::CommandInfo& info) override {
            while (server.hangs) {
                server.isHanging = true;
                sched_yield();
            }
            info.set_type(commandId == command ? server.type.load()
                                               : Protocol::CommandInfo::NOT_EXIST);
            info.set_progression(server.progression);
        }
        void GetOngoingCommands(Protocol::Ids& commandIds) override { commandIds.add_ids(command); }

      private:
        ScriptedServer& server;
    };

    std::unique_ptr<Services::IServiceHandler> MakeService() {
        return std::make_unique<BrantelStorageApi::Service>(
            std::make_unique<Storage>(*this, journal), nullptr, nullptr);
    }

    std::atomic<Protocol::CommandInfo::Type> type = Protocol::CommandInfo::QUEUED;
    std::atomic<unsigned long> progression = 0;
    std::atomic<bool> hangs = false;
    std::atomic<bool> isHanging = false;
    // Of one client at a time.
    BrantelStorageApi::Journal journal;
    Services::ServiceListener listener;
};

}  // namespace Brantel::Tests
