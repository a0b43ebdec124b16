#pragma once

#include "Local/CatalogueContent.h"

#include <libEngine/EngineTypes.h>

#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <vector>

namespace Brantel::Engine {

class CatalogueFile;
class CatalogueKeeper;

// The records and reservations of a store: all in memory, every change in the file first. Changes
// that arrive together share one flush. Thread-safe; reading waits for no disk.
class Catalogue {
  public:
    // `keeper` is borrowed.
    Catalogue(CatalogueKeeper& keeper, std::unique_ptr<CatalogueFile> file,
              CatalogueContent content);
    ~Catalogue();
    Catalogue(const Catalogue&) = delete;
    Catalogue& operator=(const Catalogue&) = delete;

    // As the operations of IEngine.
    std::optional<Record> Read(const std::string& key) const;
    bool Write(std::span<const RecordChange> changes);
    std::vector<Record> Scan(const std::string& prefix) const;
    std::vector<std::string> ListDamaged() const;

    std::vector<StoredReservation> ListReservations() const;
    void WriteReservation(const StoredReservation& stored);
    void RemoveReservation(TrackId track);

    // Brings the file into the form that is opened fastest, and copies it. Nothing may follow.
    void Close();

  private:
    struct Change;
    struct Stored {
        std::string value;
        std::uint64_t version = 0;
    };

    bool Run(Change& change);
    void CarryOut(const std::vector<Change*>& changes);
    bool Prepare(Change& change, std::map<std::string, std::uint64_t>& versions,
                 std::uint64_t& version);
    void ApplyLocked(Change& change);
    void CopyWhenDue() noexcept;

    CatalogueKeeper& keeper;
    std::unique_ptr<CatalogueFile> file;  // used by the one thread that leads

    mutable std::mutex mutex;
    std::condition_variable ended;
    // guarded by mutex; changed only by the thread that leads, which reads them without it
    bool leading = false;          // a thread carries out what waits
    std::vector<Change*> waiting;  // borrowed from those who wait
    std::uint64_t lastVersion = 0;
    std::uint64_t uncopied = 0;  // commits since the last copy
    std::map<std::string, Stored> records;
    std::set<std::string> damaged;  // keys of records that can't be read
    std::map<TrackId, StoredReservation> reservations;
};

}  // namespace Brantel::Engine
