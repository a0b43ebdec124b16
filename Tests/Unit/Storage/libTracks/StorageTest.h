#pragma once

#include "Support/EngineHarness.h"

#include <CommonMessages.pb.h>
#include <libProtocolX/rpc/ITrackReader.h>
#include <libProtocolX/rpc/ITrackReaderFactory.h>
#include <libProtocolX/rpc/ITrackStorage.h>
#include <libProtocolX/rpc/ITrackWriter.h>
#include <libProtocolX/rpc/ITrackWriterFactory.h>
#include <libTracks/Storage.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Brantel::Tracks {

using Blocks = std::vector<std::pair<std::string, std::string>>;

Protocol::TimePoint At(std::int64_t nanoseconds);
Protocol::Chunk MakeChunk(std::int64_t timePoint, std::int64_t duration, const Blocks& data = {},
                          const Blocks& properties = {});
Protocol::KeyList Keys(const std::vector<std::string>& keys);
Protocol::PropertyList Properties(const Blocks& items);
std::string Bytes(std::size_t size, unsigned seed = 1);
// The text of what `work` throws; "no error" when it does not.
std::string ErrorOf(const std::function<void()>& work);

// A storage over one engine, with the words of the tests: what a client can do, on one connection.
// Every engine runs the same tests.
class StorageTest : public testing::TestWithParam<Engine::EngineHarnessFactory> {
  protected:
    using Reader = std::unique_ptr<BrantelStorageApi::ITrackReader>;
    using Writer = std::unique_ptr<BrantelStorageApi::ITrackWriter>;

    static constexpr std::uint64_t limit = 64U << 20U;

    void SetUp() override;
    virtual StorageOptions MakeOptions() { return {}; }

    void Open();
    void Close();
    // Ends the server in good order, or kills it, and starts it again on what is left.
    void Restart();
    void Crash();

    Engine::IEngine& GetEngine() { return harness->GetEngine(); }
    // On a connection of its own.
    Reader OpenReader(std::int64_t track, const ClientConnection& connection = {});
    Writer OpenWriter(std::int64_t track, const ClientConnection& connection = {});

    // Asks for a track and waits until it is there.
    void Create(std::int64_t track, std::int64_t size = 1 << 20);
    void Grow(std::int64_t track, std::int64_t size);
    void Delete(std::int64_t track);
    Protocol::CommandInfo::Type Await(std::uint64_t commandId);
    Protocol::CommandInfo::Type StateOf(std::uint64_t commandId);

    // On a writer of its own, which is closed again.
    void Append(std::int64_t track, const Protocol::Chunk& chunk);
    void Append(std::int64_t track, std::int64_t timePoint, std::int64_t duration,
                const Blocks& data = {}) {
        Append(track, MakeChunk(timePoint, duration, data));
    }
    void AppendTaking(std::int64_t track, Protocol::Chunk& chunk);
    // Chunks of duration 10 at these time points, each with `size` bytes of data.
    void Fill(std::int64_t track, const std::vector<std::int64_t>& timePoints,
              std::size_t size = 0);

    // Not set: not found.
    std::optional<Protocol::Chunk> Get(std::int64_t track, std::int64_t timePoint,
                                       const std::vector<std::string>& keys = {});
    std::optional<Protocol::Chunk> Next(std::int64_t track, std::int64_t timePoint);
    std::optional<Protocol::Chunk> Previous(std::int64_t track, std::int64_t timePoint);
    // The time points of all chunks, walked forwards.
    std::vector<std::int64_t> TimesOf(std::int64_t track);
    std::int64_t BeginningOf(std::int64_t track);
    std::int64_t EndOf(std::int64_t track);
    long CountOf(std::int64_t track, std::int64_t in, std::int64_t out);
    std::int64_t DurationOf(std::int64_t track, std::int64_t in, std::int64_t out);
    Protocol::TrackInfo InfoOf(std::int64_t track);
    std::vector<std::int64_t> ListTracks();
    long Protect(std::int64_t track, std::int64_t timePoint, std::int64_t duration);
    void Unprotect(long id) { storage->Unprotect(id); }
    void SetProperty(std::int64_t track, const std::string& key, const std::string& value);
    Blocks PropertiesOf(std::int64_t track);
    // What a chunk of one data block `data` of this size takes of the capacity.
    static std::uint64_t CostOf(std::size_t size);

    std::unique_ptr<Engine::IEngineHarness> harness;
    std::mutex loggedMutex;
    std::vector<std::string> logged;  // guarded by loggedMutex while several threads work
    std::unique_ptr<Storage> tracks;
    std::unique_ptr<BrantelStorageApi::ITrackStorage> storage;
};

}  // namespace Brantel::Tracks
