#pragma once

#include "Conformance/StorageOperation.h"
#include "Support/EngineHarness.h"

#include <libProtocolX/rpc/ITrackReader.h>
#include <libProtocolX/rpc/ITrackStorage.h>
#include <libProtocolX/rpc/ITrackWriter.h>
#include <libTracks/Storage.h>

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace Brantel::Tracks {

// What came of an operation: the answer as text, an error as its text.
struct Answer {
    std::string text;
    std::int64_t id = 0;      // the new command, protection or worker; 0: none
    std::int64_t space = 0;   // GetRemainingSpace before the operation, of those it matters to
    bool isCanceled = false;  // of CutOff: the command was undone
    bool areSegmentsShort = false;  // of Append: the track may have had to recycle early
};

// A storage over one engine, and its clients: carries operations out and says what they answer.
class StorageDriver {
  public:
    StorageDriver(std::unique_ptr<Engine::IEngineHarness> harness, const StorageOptions& options);
    ~StorageDriver();
    StorageDriver(const StorageDriver&) = delete;
    StorageDriver& operator=(const StorageDriver&) = delete;

    // An operation whose numbers name what there is: identifiers in place of "which of those".
    Answer CarryOut(const StorageOperation& operation);
    // The time points of a track's chunks.
    std::vector<std::int64_t> TimesOf(std::int64_t track);
    // What ListTracks, Infos and so on say of everything: for after a start.
    std::string InspectAll();

  private:
    using Numbers = std::array<std::int64_t, 5>;

    void Open();
    void CloseAll();
    Answer Run(const StorageOperation& operation);
    Answer RunCommand(Verb verb, const Numbers& numbers);
    Answer RunCutOff(const Numbers& numbers);
    Answer RunWorker(Verb verb, const Numbers& numbers);
    Answer RunRead(Verb verb, const Numbers& numbers);
    Answer RunAppend(const StorageOperation& operation);
    std::string RunLook(Verb verb, const Numbers& numbers);
    std::string RunProperties(Verb verb, const Numbers& numbers);
    std::string RunList(Verb verb, const Numbers& numbers);
    std::int64_t Ask(Verb verb, std::int64_t track, std::int64_t size, std::string& text);
    std::string Await(std::int64_t command);
    std::string StateOf(std::int64_t command);
    std::int64_t GetSpace();
    std::int64_t LastWorker();
    std::string SizeOf(std::int64_t track);
    std::string InfosOf(const std::vector<std::int64_t>& tracks);
    std::string Inspect(std::int64_t track);
    std::uint64_t CountFreeSegments(std::int64_t track);

    const std::unique_ptr<Engine::IEngineHarness> harness;
    const StorageOptions options;
    std::unique_ptr<Storage> tracks;
    std::unique_ptr<BrantelStorageApi::ITrackStorage> storage;
    std::array<std::unique_ptr<BrantelStorageApi::ITrackReader>, slotCount> readers;
    std::array<std::unique_ptr<BrantelStorageApi::ITrackWriter>, slotCount> writers;
};

}  // namespace Brantel::Tracks
