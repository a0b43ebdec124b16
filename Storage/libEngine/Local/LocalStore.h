#pragma once

#include "Local/Catalogue.h"
#include "Local/CatalogueKeeper.h"
#include "Local/CatalogueScratch.h"
#include "Local/FileCache.h"
#include "Local/FileCalls.h"
#include "Local/FlushMeter.h"
#include "Local/FlushTimer.h"
#include "Local/FolderCalls.h"
#include "Local/LocalOptions.h"
#include "Local/SpaceBudget.h"
#include "Local/StoreFolder.h"
#include "Local/TrackSpace.h"
#include "LocalSignal.h"

#include <libEngine/IEngine.h>

#include <map>
#include <memory>
#include <shared_mutex>
#include <string>
#include <vector>

namespace Brantel::Engine {

// Everything of an open store, connected: opened in this order, closed in the other. Thread-safe.
class LocalStore {
  public:
    LocalStore(const LocalOptions& wanted, IFileCalls* givenCalls);
    ~LocalStore();
    LocalStore(const LocalStore&) = delete;
    LocalStore& operator=(const LocalStore&) = delete;

    Catalogue& GetCatalogue() { return *catalogue; }
    SpaceBudget& GetBudget() { return budget; }
    FlushTimer& GetTimer() { return *timer; }
    FlushTimer& GetSealer() { return *sealer; }
    LocalSignal& GetSignal() { return signal; }
    const FlushMeter& GetFlushMeter() const { return flushMeter; }

    // Null when nothing is known of it. Throws EngineError (Io) when it can't be read.
    std::shared_ptr<TrackSpace> FindTrack(TrackId track);
    // Makes one without a reservation when nothing is known of it.
    std::shared_ptr<TrackSpace> FindOrMakeTrack(TrackId track);
    std::vector<std::shared_ptr<TrackSpace>> ListTracks();
    // Throws Gone.
    std::shared_ptr<LocalSegment> FindSegment(const SegmentId& id);
    // Its file, or the track's folder while there is none.
    std::string Describe(const SegmentId& id);

  private:
    std::string PathOf(TrackId track) const;
    static LocalOptions Complete(LocalOptions options);
    void AdoptTracks(bool restored);
    void Adopt(TrackId track, std::map<TrackId, StoredReservation>& known);
    void LoadTracks();

    const LocalOptions options;
    FileCalls ownCalls;
    const FolderCalls folders;
    StoreFolder folder;
    const std::unique_ptr<CatalogueScratch> scratch;  // only when nothing may be changed
    CatalogueKeeper keeper;
    std::unique_ptr<Catalogue> catalogue;
    SpaceBudget budget;
    FileCache cache;
    FlushMeter flushMeter;
    std::unique_ptr<LocalContext> context;
    LocalSignal signal;

    std::shared_mutex mutex;
    std::map<TrackId, std::shared_ptr<TrackSpace>> tracks;  // guarded by mutex
    // End first: their threads use the segments. Two, so that no flush that is promised for a time
    // waits for the long ones of segments that are sealed.
    std::unique_ptr<FlushTimer> timer;
    std::unique_ptr<FlushTimer> sealer;
};

}  // namespace Brantel::Engine
