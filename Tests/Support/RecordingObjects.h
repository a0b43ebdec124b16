#pragma once

#include "Support/Text.h"

#include <libProtocolX/rpc/ITrackReader.h>
#include <libProtocolX/rpc/ITrackReaderFactory.h>
#include <libProtocolX/rpc/ITrackStorage.h>
#include <libProtocolX/rpc/ITrackWriter.h>
#include <libProtocolX/rpc/ITrackWriterFactory.h>

#include <google/protobuf/message.h>

#include <functional>
#include <string>
#include <vector>

namespace BrantelStorageApi {

// What the objects of a server were asked, in order, such as `storage.GetTrackSize(11)`; and a way
// to make the next call fail.
class Journal {
  public:
    template <class... Arguments>
    void Called(const char* operation, const Arguments&... arguments) {
        std::string text;
        ((text += (text.empty() ? "" : ", ") + Show(arguments)), ...);
        calls.push_back(std::string(operation) + "(" + text + ")");
        if (failure) {
            failure();
        }
    }

    std::vector<std::string> calls;
    std::function<void()> failure;  // run by every call, before it does anything

  private:
    static std::string Show(long number) { return std::to_string(number); }
    static std::string Show(const google::protobuf::Message& message) {
        return "{ " + Brantel::Tests::ToText(message) + " }";
    }
};

// A storage that notes its calls and gives the answers that the operation table shows.
class RecordingStorage : public ITrackStorage {
  public:
    explicit RecordingStorage(Journal& journal) : journal(journal) {}
    ~RecordingStorage() override { journal.calls.emplace_back("storage.delete()"); }
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
    ~RecordingReader() override { journal.calls.emplace_back("reader.delete()"); }
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
    ~RecordingWriter() override { journal.calls.emplace_back("writer.delete()"); }
    void Append(const Protocol::Chunk& chunk) override;
    void GetTrackId(long& result) override;

  private:
    Journal& journal;
};

// Makes RecordingReaders, or nothing when `makesNull` is set.
class RecordingReaderFactory : public ITrackReaderFactory {
  public:
    explicit RecordingReaderFactory(Journal& journal) : journal(journal) {}
    ~RecordingReaderFactory() override { journal.calls.emplace_back("readerFactory.delete()"); }

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
    ~RecordingWriterFactory() override { journal.calls.emplace_back("writerFactory.delete()"); }

    ITrackWriter* CreateTrackWriter(const long& trackId) override {
        journal.Called("writerFactory.CreateTrackWriter", trackId);
        return makesNull ? nullptr : new RecordingWriter(journal);
    }

    bool makesNull = false;

  private:
    Journal& journal;
};

}  // namespace BrantelStorageApi
