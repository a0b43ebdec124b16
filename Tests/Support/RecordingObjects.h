#pragma once

#include "Support/Text.h"

#include <libProtocolX/rpc/ITrackReader.h>
#include <libProtocolX/rpc/ITrackReaderFactory.h>
#include <libProtocolX/rpc/ITrackStorage.h>
#include <libProtocolX/rpc/ITrackWriter.h>
#include <libProtocolX/rpc/ITrackWriterFactory.h>

#include <google/protobuf/message.h>

#include <functional>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace BrantelStorageApi {

// What the objects of a server were asked, in order, such as `storage.GetTrackSize(11)`; and a way
// to make the next call fail. Thread-safe: a server notes while a test reads, and only the bytes of
// a socket order the two, which ThreadSanitizer does not see.
class Journal {
  public:
    template <class... Arguments>
    void Called(const char* operation, const Arguments&... arguments) {
        std::string text;
        ((text += (text.empty() ? "" : ", ") + Show(arguments)), ...);
        Note(std::string(operation) + "(" + text + ")");
        if (const std::function<void()> failing = Failure()) {
            failing();
        }
    }
    // What cannot fail, such as the end of an object.
    void Note(std::string call) {
        const std::lock_guard guard(mutex);
        calls.push_back(std::move(call));
    }

    std::vector<std::string> Calls() const {
        const std::lock_guard guard(mutex);
        return calls;
    }
    // What was noted so far is forgotten.
    void Clear() {
        const std::lock_guard guard(mutex);
        calls.clear();
    }
    // From now on every call runs this before it does anything; nothing when it is null.
    void FailWith(std::function<void()> failing) {
        const std::lock_guard guard(mutex);
        failure.swap(failing);
    }

  private:
    static std::string Show(long number) { return std::to_string(number); }
    static std::string Show(const google::protobuf::Message& message) {
        return "{ " + Brantel::Tests::ToText(message) + " }";
    }
    std::function<void()> Failure() const {
        const std::lock_guard guard(mutex);
        return failure;
    }

    mutable std::mutex mutex;
    // Guarded by the mutex.
    std::vector<std::string> calls;
    std::function<void()> failure;
};

// A storage that notes its calls and gives the answers that the operation table shows.
class RecordingStorage : public ITrackStorage {
  public:
    explicit RecordingStorage(Journal& journal) : journal(journal) {}
    ~RecordingStorage() override { journal.Note("storage.delete()"); }
    void GetTrackProperties(const long& trackId, Protocol::PropertyList& properties) override;
    void GetNumberOfChunks(const long& trackId, const Protocol::TimePoint& in,
                           const Protocol::TimePoint& out, long& nbChunks) override;
    void DeleteTrack(const long& trackId, Protocol::TrackParameters& infoOut) override;
    void GetTrackSize(const long& trackId, long& trackSize) override;
    void GetTrackInfos(const Protocol::Ids& trackIds, Protocol::TrackInfos& trackInfos) override;
    void RemoveTrackProperties(const long& trackId,
                               const Protocol::PropertyList& properties) override;
    void GetActiveWorkers(Protocol::Ids& workerIds, Protocol::Ids& trackIds) override;
    void GrowTrack(const Protocol::TrackParameters& infoIn,
                   Protocol::TrackParameters& infoOut) override;
    void GetCommandInfo(const long& commandId, Protocol::CommandInfo& commandInfo) override;
    void GetRemainingSpace(long& remainingSpace) override;
    void GetBeginningOfTrack(const long& trackId, Protocol::TimePoint& timecode) override;
    void ClearTrack(const long& trackId) override;
    void GetAccumulatedDuration(const long& trackId, const Protocol::TimePoint& in,
                                const Protocol::TimePoint& out,
                                Protocol::TimePoint& duration) override;
    void Protect(const long& trackId, const Protocol::TimePoint& timecode,
                 const Protocol::TimePoint& duration, long& protectionId) override;
    void GetWorkerInfos(const Protocol::Ids& workerIds,
                        Protocol::WorkerInfos& workerInfos) override;
    void Unprotect(const long& protectionId) override;
    void GetEndOfTrack(const long& trackId, Protocol::TimePoint& timecode) override;
    void ListProtections(Protocol::ProtectionInfos& protectionInfos) override;
    void CreateTrack(const Protocol::TrackParameters& infoIn,
                     Protocol::TrackParameters& infoOut) override;
    void GetOngoingCommands(Protocol::Ids& commandIds) override;
    void SetTrackProperties(const long& trackId, const Protocol::PropertyList& properties) override;
    void ListTracks(Protocol::TrackList& list) override;

  private:
    Journal& journal;
};

// As RecordingStorage, for a reader.
class RecordingReader : public ITrackReader {
  public:
    explicit RecordingReader(Journal& journal) : journal(journal) {}
    ~RecordingReader() override { journal.Note("reader.delete()"); }
    void NextTimePoint(const Protocol::TimePoint& timecode, Protocol::TimePoint& nextTimePoint,
                       bool& result) override;
    void GetChunk(const Protocol::TimePoint& timecode, const Protocol::KeyList& keys,
                  Protocol::Chunk& chunk, bool& result) override;
    void GetTrackId(long& result) override;
    void PreviousTimePoint(const Protocol::TimePoint& timecode,
                           Protocol::TimePoint& previousTimePoint, bool& result) override;
    void GetPreviousChunk(const Protocol::TimePoint& timecode, const Protocol::KeyList& keys,
                          Protocol::Chunk& chunk, bool& result) override;
    void GetNextChunk(const Protocol::TimePoint& timecode, const Protocol::KeyList& keys,
                      Protocol::Chunk& chunk, bool& result) override;
    void Wait(const Protocol::TimePoint& timecode, const int& timeout, bool& result) override;

  private:
    Journal& journal;
};

// As RecordingStorage, for a writer.
class RecordingWriter : public ITrackWriter {
  public:
    explicit RecordingWriter(Journal& journal) : journal(journal) {}
    ~RecordingWriter() override { journal.Note("writer.delete()"); }
    void Append(const Protocol::Chunk& chunk) override;
    void GetTrackId(long& result) override;

  private:
    Journal& journal;
};

// Makes RecordingReaders, or nothing when `makesNull` is set.
class RecordingReaderFactory : public ITrackReaderFactory {
  public:
    explicit RecordingReaderFactory(Journal& journal) : journal(journal) {}
    ~RecordingReaderFactory() override { journal.Note("readerFactory.delete()"); }

    ITrackReader* CreateTrackReader(const long& trackId) override {
        journal.Called("readerFactory.CreateTrackReader", trackId);
        return makesNull ? nullptr : new RecordingReader(journal);
    }

    bool makesNull = false;

  private:
    Journal& journal;
};

// Makes RecordingWriters, or nothing when `makesNull` is set.
class RecordingWriterFactory : public ITrackWriterFactory {
  public:
    explicit RecordingWriterFactory(Journal& journal) : journal(journal) {}
    ~RecordingWriterFactory() override { journal.Note("writerFactory.delete()"); }

    ITrackWriter* CreateTrackWriter(const long& trackId) override {
        journal.Called("writerFactory.CreateTrackWriter", trackId);
        return makesNull ? nullptr : new RecordingWriter(journal);
    }

    bool makesNull = false;

  private:
    Journal& journal;
};

}  // namespace BrantelStorageApi
