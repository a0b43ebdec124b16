#pragma once

#include <libEngine/EngineTypes.h>

#include <cstdint>
#include <string>
#include <vector>

namespace Brantel::Engine {

// What the catalogue keeps of a track's space.
struct StoredReservation {
    Reservation reservation;
    std::uint64_t settledCount = 0;  // slots there were before a change that is not finished
};

// What a catalogue file holds.
struct CatalogueContent {
    struct StoredRecord {
        Record record;
        std::uint64_t checksum = 0;
    };
    struct DamagedRecord {
        std::string key;             // as it is stored now
        std::uint64_t checksum = 0;  // of the record as it was
    };

    std::vector<StoredRecord> records;
    std::vector<DamagedRecord> damaged;
    std::vector<StoredReservation> reservations;
    std::uint64_t lastVersion = 0;
};

}  // namespace Brantel::Engine
