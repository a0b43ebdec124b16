#include "Local/LocalStore.h"

#include "EngineError.h"
#include "Local/CatalogueFile.h"
#include "Local/File.h"
#include "Local/Report.h"
#include "Local/SegmentFormat.h"

#include <algorithm>
#include <atomic>
#include <charconv>
#include <cstdio>
#include <exception>
#include <mutex>
#include <optional>
#include <string_view>
#include <thread>
#include <utility>

namespace Brantel::Engine {

namespace {

void PrintReport(const std::string& text) {
    std::fprintf(stderr, "%s\n", text.c_str());
}

std::optional<TrackId> TrackOf(std::string_view name) {
    TrackId track = 0;
    const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), track);
    const bool whole = error == std::errc() && end == name.data() + name.size();
    return whole && std::to_string(track) == name ? std::optional(track) : std::nullopt;
}

}  // namespace

LocalOptions LocalStore::Complete(LocalOptions options) {
    while (options.directory.size() > 1 && options.directory.back() == '/') {
        options.directory.pop_back();
    }
    if (!options.report) {
        options.report = PrintReport;
    }
    return options;
}

LocalStore::LocalStore(const LocalOptions& wanted, IFileCalls* givenCalls)
    : options(Complete(wanted)),
      folders(givenCalls != nullptr ? *givenCalls : static_cast<IFileCalls&>(ownCalls)),
      folder(folders, options),
      scratch(options.readOnly ? std::make_unique<CatalogueScratch>(options) : nullptr),
      keeper(folders, scratch ? scratch->GetOptions() : options),
      budget(folders, options.directory, options.limit, options.keepFree),
      cache(folders.GetCalls(), options.openFiles, options.readOnly),
      timer(std::make_unique<FlushTimer>(options.flushThreads)),
      sealer(std::make_unique<FlushTimer>(options.sealThreads)) {
    CatalogueKeeper::Opened opened = keeper.Open(folder.IsFresh());
    catalogue =
        std::make_unique<Catalogue>(keeper, std::move(opened.file), std::move(opened.content));
    folder.SetComplete();
    context = std::make_unique<LocalContext>(LocalContext{
        options, folders, folder.GetTracksFolder(), *catalogue, cache, budget, flushMeter});
    if (options.readOnly) {
        keeper.CheckCopy();
    }
    AdoptTracks(opened.restored);
    LoadTracks();
}

LocalStore::~LocalStore() {
    timer.reset();
    sealer.reset();
    for (const auto& [id, track] : tracks) {
        track->Close();
    }
    try {
        catalogue->Close();
    } catch (const std::exception& error) {
        Tell(options.report, error.what());
    }
}

void LocalStore::AdoptTracks(bool restored) {
    std::map<TrackId, StoredReservation> known;
    for (const StoredReservation& stored : catalogue->ListReservations()) {
        known.emplace(stored.reservation.track, stored);
    }
    for (const std::string& name : folders.List(folder.GetTracksFolder())) {
        const std::optional<TrackId> track = TrackOf(name);
        if (track && (restored || !known.contains(*track))) {
            Adopt(*track, known);
        }
    }
    for (const auto& [track, stored] : known) {
        budget.Adopt(stored.reservation.Bytes(), 0);
        tracks.emplace(track, std::make_shared<TrackSpace>(*context, track, stored.reservation,
                                                           stored.settledCount));
    }
}

void LocalStore::Adopt(TrackId track, std::map<TrackId, StoredReservation>& known) {
    // The catalogue knows less than the folder: the files themselves tell what was reserved.
    std::map<std::uint64_t, std::uint64_t> sizes;  // how many files have which size
    for (const auto& slot : SlotFolder(*context, track).List()) {
        ++sizes[slot->Open()->GetSize()];
    }
    const auto most =
        std::max_element(sizes.begin(), sizes.end(),
                         [](const auto& a, const auto& b) { return a.second < b.second; });
    if (most == sizes.end() || most->first < SegmentFormat::minSegmentSize ||
        most->first > ChunkLayout::maxSegmentSize || most->first % ChunkLayout::unit != 0) {
        return;
    }
    std::uint64_t count = 0;
    for (const auto& [size, files] : sizes) {
        count += files;
    }
    StoredReservation& stored = known[track];
    if (stored.reservation.segmentCount >= count) {
        return;
    }
    stored = {{track, static_cast<std::uint32_t>(most->first), count}, count};
    catalogue->WriteReservation(stored);
    options.report(PathOf(track) + ": the catalogue did not know of its " + std::to_string(count) +
                   " segments");
}

void LocalStore::LoadTracks() {
    std::vector<std::shared_ptr<TrackSpace>> list = ListTracks();
    std::atomic<std::size_t> next = 0;
    const auto load = [&] {
        for (std::size_t index = next++; index < list.size(); index = next++) {
            try {
                list[index]->Load();
            } catch (const std::exception& error) {
                // Whoever uses this track tries again, and is told.
                Tell(options.report, error.what());
            }
        }
    };
    std::vector<std::thread> threads;
    const std::size_t wanted = std::min(options.startThreads, list.size());
    threads.reserve(wanted);
    try {
        while (threads.size() + 1 < wanted) {
            threads.emplace_back(load);
        }
    } catch (const std::exception&) {
        // Those that did start, and this one, do it.
        Tell(options.report, "the tracks are read by fewer threads than wanted");
    }
    load();
    for (std::thread& thread : threads) {
        thread.join();
    }
}

std::string LocalStore::PathOf(TrackId track) const {
    return folder.GetTracksFolder() + "/" + std::to_string(track);
}

std::shared_ptr<TrackSpace> LocalStore::FindTrack(TrackId track) {
    std::shared_ptr<TrackSpace> found;
    {
        const std::shared_lock lock(mutex);
        const auto position = tracks.find(track);
        if (position == tracks.end()) {
            return nullptr;
        }
        found = position->second;
    }
    found->Load();
    return found;
}

std::shared_ptr<TrackSpace> LocalStore::FindOrMakeTrack(TrackId track) {
    if (std::shared_ptr<TrackSpace> found = FindTrack(track)) {
        return found;
    }
    auto made = std::make_shared<TrackSpace>(*context, track, Reservation{track, 0, 0}, 0);
    const std::unique_lock lock(mutex);
    return tracks.emplace(track, std::move(made)).first->second;
}

std::vector<std::shared_ptr<TrackSpace>> LocalStore::ListTracks() {
    const std::shared_lock lock(mutex);
    std::vector<std::shared_ptr<TrackSpace>> list;
    for (const auto& [id, track] : tracks) {
        list.push_back(track);
    }
    return list;
}

std::shared_ptr<LocalSegment> LocalStore::FindSegment(const SegmentId& id) {
    const std::shared_ptr<TrackSpace> track = FindTrack(id.track);
    if (!track) {
        throw EngineError(EngineError::Kind::Gone, PathOf(id.track) + ": no such track");
    }
    return track->Find(id);
}

std::string LocalStore::Describe(const SegmentId& id) {
    const std::shared_ptr<TrackSpace> track = FindTrack(id.track);
    const std::shared_ptr<LocalSegment> segment = track ? track->TryFind(id) : nullptr;
    return segment ? segment->Describe() : PathOf(id.track);
}

}  // namespace Brantel::Engine
