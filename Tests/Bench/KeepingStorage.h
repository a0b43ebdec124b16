#pragma once

#include <CommonMessages.pb.h>
#include <libProtocolX/rpc/ITrackReader.h>
#include <libProtocolX/rpc/ITrackReaderFactory.h>
#include <libProtocolX/rpc/ITrackStorage.h>
#include <libProtocolX/rpc/ITrackWriter.h>
#include <libProtocolX/rpc/ITrackWriterFactory.h>

#include <array>
#include <cstddef>
#include <memory>

namespace Brantel::Bench {

// What the transport benchmarks serve: a writer that keeps a copy of the last chunks or, on track
// discardingTrack, drops them; and a reader whose chunks have one data block of as many bytes as
// the time point that is asked for. One object serves one connection.
constexpr long keepingTrack = 1;
constexpr long discardingTrack = 2;

class KeepingWriter : public BrantelStorageApi::ITrackWriter {
  public:
    explicit KeepingWriter(long trackId) : trackId(trackId) {}
    void Append(const Protocol::Chunk& chunk) override {
        if (trackId == keepingTrack) {
            kept[next++ % kept.size()].CopyFrom(chunk);
        }
    }
    void GetTrackId(long& result) override { result = trackId; }

  private:
    const long trackId;
    std::array<Protocol::Chunk, 4> kept;
    std::size_t next = 0;
};

class FixedReader : public BrantelStorageApi::ITrackReader {
  public:
    void NextTimePoint(const Protocol::TimePoint& timecode, Protocol::TimePoint& nextTimePoint,
                       bool& result) override {
        nextTimePoint.set_nanoseconds(timecode.nanoseconds() + 1);
        result = true;
    }
    void GetChunk(const Protocol::TimePoint& timecode, const Protocol::KeyList& /*keys*/,
                  Protocol::Chunk& chunk, bool& result) override {
        const std::size_t size = timecode.nanoseconds();
        if (!stored.has_data() || stored.data().items(0).value().size() != size) {
            stored.Clear();
            stored.mutable_timecode()->set_nanoseconds(1);
            stored.mutable_duration()->set_nanoseconds(1);
            auto* item = stored.mutable_data()->add_items();
            item->set_key("data");
            item->mutable_value()->assign(size, 'x');
        }
        chunk.CopyFrom(stored);
        result = true;
    }
    void GetTrackId(long& result) override { result = keepingTrack; }
    void PreviousTimePoint(const Protocol::TimePoint& timecode, Protocol::TimePoint& found,
                           bool& result) override {
        NextTimePoint(timecode, found, result);
    }
    void GetPreviousChunk(const Protocol::TimePoint& timecode, const Protocol::KeyList& keys,
                          Protocol::Chunk& chunk, bool& result) override {
        GetChunk(timecode, keys, chunk, result);
    }
    void GetNextChunk(const Protocol::TimePoint& timecode, const Protocol::KeyList& keys,
                      Protocol::Chunk& chunk, bool& result) override {
        GetChunk(timecode, keys, chunk, result);
    }
    void Wait(const Protocol::TimePoint& /*timecode*/, const int& /*timeout*/,
              bool& result) override {
        result = true;
    }

  private:
    Protocol::Chunk stored;
};

class WriterFactory : public BrantelStorageApi::ITrackWriterFactory {
  public:
    BrantelStorageApi::ITrackWriter* CreateTrackWriter(const long& trackId) override {
        return std::make_unique<KeepingWriter>(trackId).release();
    }
};

class ReaderFactory : public BrantelStorageApi::ITrackReaderFactory {
  public:
    BrantelStorageApi::ITrackReader* CreateTrackReader(const long& /*trackId*/) override {
        return std::make_unique<FixedReader>().release();
    }
};

// Answers GetTrackSize; the transport benchmarks call nothing else.
class SizeStorage : public BrantelStorageApi::ITrackStorage {
  public:
    void GetTrackSize(const long& trackId, long& trackSize) override { trackSize = trackId + 1; }

    void GetTrackProperties(const long&, Protocol::PropertyList&) override {}
    void GetNumberOfChunks(const long&, const Protocol::TimePoint&, const Protocol::TimePoint&,
                           long&) override {}
    void DeleteTrack(const long&, Protocol::TrackParameters&) override {}
    void GetTrackInfos(const Protocol::Ids&, Protocol::TrackInfos&) override {}
    void RemoveTrackProperties(const long&, const Protocol::PropertyList&) override {}
    void GetActiveWorkers(Protocol::Ids&, Protocol::Ids&) override {}
    void GrowTrack(const Protocol::TrackParameters&, Protocol::TrackParameters&) override {}
    void GetCommandInfo(const long&, Protocol::CommandInfo&) override {}
    void GetRemainingSpace(long&) override {}
    void GetBeginningOfTrack(const long&, Protocol::TimePoint&) override {}
    void ClearTrack(const long&) override {}
    void GetAccumulatedDuration(const long&, const Protocol::TimePoint&, const Protocol::TimePoint&,
                                Protocol::TimePoint&) override {}
    void Protect(const long&, const Protocol::TimePoint&, const Protocol::TimePoint&,
                 long&) override {}
    void GetWorkerInfos(const Protocol::Ids&, Protocol::WorkerInfos&) override {}
    void Unprotect(const long&) override {}
    void GetEndOfTrack(const long&, Protocol::TimePoint&) override {}
    void ListProtections(Protocol::ProtectionInfos&) override {}
    void CreateTrack(const Protocol::TrackParameters&, Protocol::TrackParameters&) override {}
    void GetOngoingCommands(Protocol::Ids&) override {}
    void SetTrackProperties(const long&, const Protocol::PropertyList&) override {}
    void ListTracks(Protocol::TrackList&) override {}
};

}  // namespace Brantel::Bench
