#pragma once

#include "StorageStatus.h"
#include "TrackChanges.h"
#include "TrackContext.h"
#include "TrackError.h"
#include "TrackState.h"

#include <CommonMessages.pb.h>
#include <libEngine/IEngine.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace Brantel::Tracks {

class EncodedChunk;

// One track: what its readers, writers and the storage ask of it. Shared by everyone who uses it.
// Thread-safe. Failures are std::runtime_error "Track 7: ..." and change nothing.
class Track {
  public:
    using Properties = std::map<std::string, std::string>;

    explicit Track(const TrackContext& context);

    std::int64_t GetId() const { return context.track; }
    std::uint32_t GetSegmentSize() const { return context.segmentSize; }

    // ---- beginning and end ----

    // A new track, whose record was written; it becomes usable with BecomeReady.
    void StartNew(const TrackRecord& record);
    // A track that exists, at the start of a server. When it can't be loaded, every operation on it
    // fails and says why.
    void Load(const TrackRecord& record, const std::map<std::int64_t, Protections::Stretch>& held);
    TrackChanges& GetChanges() { return changes; }

    // Throws unless the track can be used.
    void CheckUsable();
    bool IsReady();
    bool IsInCreation();

    // A reader or a writer, until it is closed. Throws "Track 7 already has a writer".
    void OpenWorker(bool isWriter);
    void CloseWorker(bool isWriter) noexcept;

    // ---- what it holds ----

    // Each fills the chunk and returns whether there is one. `payload` gets the bytes of its
    // values.
    bool GetChunk(std::int64_t timePoint, const Protocol::KeyList& keys, Protocol::Chunk& chunk,
                  std::uint64_t& payload);
    bool GetNextChunk(std::int64_t timePoint, const Protocol::KeyList& keys, Protocol::Chunk& chunk,
                      std::uint64_t& payload);
    bool GetPreviousChunk(std::int64_t timePoint, const Protocol::KeyList& keys,
                          Protocol::Chunk& chunk, std::uint64_t& payload);
    // -1: none.
    std::int64_t GetNextTimePoint(std::int64_t timePoint);
    std::int64_t GetPreviousTimePoint(std::int64_t timePoint);

    std::int64_t GetBeginning();
    std::int64_t GetEnd();
    std::int64_t GetNumberOfChunks(std::int64_t in, std::int64_t out);
    // Saturates at the largest count.
    std::int64_t GetAccumulatedDuration(std::int64_t in, std::int64_t out);
    std::uint64_t GetCapacity();
    // Whether this very chunk is what a reader gets at its time point: not one that was recycled or
    // copied elsewhere.
    bool Serves(const FoundChunk& chunk);
    void Describe(Protocol::TrackInfo& info);
    TrackStatus GetStatus();
    std::uint64_t CountDamagedChunks() const { return state.damaged.Count(); }

    // Waits for a chunk after `timePoint`. Throws when `isGone` says so or the server stops.
    bool Wait(std::int64_t timePoint, int timeoutMilliseconds, const std::function<bool()>& isGone,
              const std::atomic<bool>& isStopping);
    void WakeWaiting();

    // ---- changes ----

    // May change how the chunk is laid out, not what it says.
    void Append(EncodedChunk& chunk);
    void Clear();
    void Protect(std::int64_t id, std::int64_t timePoint, std::int64_t duration);
    bool HasProtection(std::int64_t id);
    // False: there is no such protection here.
    bool Unprotect(std::int64_t id);
    void ListProtections(Protocol::ProtectionInfos& infos);

    // ---- properties ----

    void GetProperties(Protocol::PropertyList& properties);
    void SetProperties(const Protocol::PropertyList& properties);
    void RemoveProperties(const Protocol::PropertyList& properties);

    static constexpr const char* propertiesPrefix = "properties/";
    static std::string PropertiesKey(std::int64_t track) {
        return propertiesPrefix + std::to_string(track);
    }

    // The value of the record with that key.
    static std::string EncodeProperties(const Properties& properties);

  private:
    template <typename Find>
    bool Read(Find find, const Protocol::KeyList& keys, Protocol::Chunk& chunk,
              std::uint64_t& payload);
    // Gives an engine's failure the track's name.
    template <typename Work>
    auto Named(Work work) const {
        try {
            return work();
        } catch (const Engine::EngineError& error) {
            throw TrackError(context.track, error.what());
        }
    }
    template <typename Look>
    auto Ask(Look look);
    [[noreturn]] void ThrowDamaged(const FoundChunk& found, const std::string& text);
    void LoadProperties();
    Properties CopyProperties();
    TrackSettings MakeSettings(const Properties& properties) const;
    // For each item, on a copy; then the copy takes the properties' place.
    template <typename Change>
    void ChangeProperties(const Protocol::PropertyList& properties, Change change);
    void Replace(Properties properties);

    const TrackContext context;
    TrackState state;
    TrackChanges changes;
    // From the first wait on: to end a watch is to wait for whoever signals just now, and that
    // would be the one who has woken a reader.
    std::once_flag isAppendWatched;
    std::unique_ptr<Engine::IWatch> watch;
    std::mutex propertiesGate;  // held while properties are changed; taken before the state's lock
};

}  // namespace Brantel::Tracks
