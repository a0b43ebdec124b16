#pragma once

#include "Support/ServerProcess.h"

#include <libProtocolX/DataChunk.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace Brantel::Tests {

// What a server is used for, all at once and for as long as it is wanted: recorders on several
// tracks that go round, readers forwards (who wait) and backwards, protections, tracks that come
// and go, clients that connect again and again, and some who talk nonsense. Every answer is
// compared with what it must be: a chunk follows from its track and its time point.
class SoakLoad {
  public:
    enum Count : std::uint8_t { Appended, Read, Waited, Protected, TracksMade, Connected, Counts };

    // The server is borrowed; it has these tracks, and they are empty.
    SoakLoad(const ServerProcess& server, std::vector<long> tracks);
    // Ends.
    ~SoakLoad();
    SoakLoad(const SoakLoad&) = delete;
    SoakLoad& operator=(const SoakLoad&) = delete;

    // Returns when all clients have gone.
    void End();

    std::uint64_t GetCount(Count count) const { return counts.at(count); }
    static const char* NameOf(Count count);
    // What was wrong; the first few. Empty: nothing.
    std::vector<std::string> Errors() const;

  private:
    void Begin(const std::string& name, std::function<void()> work);
    void Fail(const std::string& text);
    void Check(bool isRight, const std::string& text);
    void CheckChunk(const ProtocolX::DataChunk& chunk, long track);
    void Done(Count count) { ++counts.at(count); }

    void Record(long track);
    void ReadForwards(long track);
    void ReadBackwards(long track);
    void ProtectStretches(long track);
    void MakeTracks();
    void Reconnect();
    void TalkNonsense();

    const ServerProcess& server;
    const std::vector<long> tracks;
    std::array<std::atomic<std::uint64_t>, Counts> counts{};
    std::atomic<bool> isEnding = false;
    mutable std::mutex mutex;
    std::vector<std::string> errors;  // guarded by mutex
    std::vector<std::thread> threads;
};

}  // namespace Brantel::Tests
