#pragma once

#include <CommonMessages.pb.h>
#include <libEngine/Local/LocalEngine.h>
#include <libProtocolX/rpc/ITrackReader.h>
#include <libProtocolX/rpc/ITrackStorage.h>
#include <libProtocolX/rpc/ITrackWriter.h>
#include <libTracks/Storage.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace Brantel::Bench {

Protocol::TimePoint At(std::int64_t nanoseconds);

// A store of the local engine with the tracks above it, as a server holds them, in a folder that
// need not exist.
class BenchStore {
  public:
    using Preparation = Engine::LocalOptions::Preparation;

    BenchStore(const std::string& directory, Preparation preparation,
               const Tracks::StorageOptions& options = {}, Engine::IFileCalls* calls = nullptr);

    // Makes a track with this `storage.durability` and waits until it is there.
    void Create(long track, std::uint64_t capacity, const std::string& durability);
    void SetDurability(long track, const std::string& durability);

    BrantelStorageApi::ITrackStorage& GetStorage() { return *storage; }
    std::unique_ptr<BrantelStorageApi::ITrackWriter> OpenWriter(long track);
    std::unique_ptr<BrantelStorageApi::ITrackReader> OpenReader(long track);

  private:
    Engine::LocalEngine engine;
    Tracks::Storage tracks;
    std::unique_ptr<BrantelStorageApi::ITrackStorage> storage;
};

// Appends chunks of one data block, each right behind the one before.
class ChunkWriter {
  public:
    static constexpr std::int64_t duration = 40000000;  // 25 chunks a second

    // Each chunk has `size` bytes, or up to `spread` more; the first one begins at `next`.
    ChunkWriter(BenchStore& store, long track, std::size_t size, std::size_t spread = 0,
                std::int64_t next = 0);

    void Append();
    void Append(std::uint64_t count);
    // Where the next one begins, nanoseconds.
    std::int64_t GetNext() const { return next; }

  private:
    std::unique_ptr<BrantelStorageApi::ITrackWriter> writer;
    const std::size_t size;
    const std::size_t spread;
    Protocol::Chunk chunk;
    std::int64_t next;
};

// Does the work in a process of its own, which is killed when it is done, and passes on the number
// that it returns. Must be called while the process has one thread.
double InKilledProcess(const std::function<double()>& work);

// Memory of this process that lies in no file, in bytes.
double PrivateMemory();

}  // namespace Brantel::Bench
