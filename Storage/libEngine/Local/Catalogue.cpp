#include "Local/Catalogue.h"

#include "EngineError.h"
#include "Local/CatalogueFile.h"
#include "Local/CatalogueKeeper.h"

#include <algorithm>
#include <exception>
#include <utility>

namespace Brantel::Engine {

namespace {

constexpr std::uint64_t commitsPerCopy = 256;

[[noreturn]] void ThrowDamaged(const std::string& key) {
    throw EngineError(EngineError::Kind::Damaged, "the record " + key + " is damaged");
}

}  // namespace

// One call's changes on their way into the file.
struct Catalogue::Change {
    std::span<const RecordChange> changes;
    const StoredReservation* reservation = nullptr;
    std::optional<TrackId> released;

    std::map<std::string, Stored> written;  // as they will lie in memory
    std::map<TrackId, StoredReservation> reserved;
    bool accepted = false;
    bool done = false;
    std::exception_ptr error;
};

Catalogue::Catalogue(CatalogueKeeper& keeper, std::unique_ptr<CatalogueFile> openFile,
                     CatalogueContent content)
    : keeper(keeper), file(std::move(openFile)), lastVersion(content.lastVersion) {
    for (CatalogueContent::StoredRecord& stored : content.records) {
        records.emplace(std::move(stored.record.key),
                        Stored{std::move(stored.record.value), stored.record.version});
    }
    for (CatalogueContent::DamagedRecord& record : content.damaged) {
        damaged.insert(std::move(record.key));
    }
    for (const StoredReservation& stored : content.reservations) {
        reservations.emplace(stored.reservation.track, stored);
    }
}

Catalogue::~Catalogue() = default;

std::optional<Record> Catalogue::Read(const std::string& key) const {
    const std::lock_guard lock(mutex);
    if (damaged.contains(key)) {
        ThrowDamaged(key);
    }
    const auto found = records.find(key);
    return found == records.end()
               ? std::nullopt
               : std::optional(Record{key, found->second.value, found->second.version});
}

std::vector<Record> Catalogue::Scan(const std::string& prefix) const {
    const auto matches = [&prefix](const std::string& key) {
        return key.compare(0, prefix.size(), prefix) == 0;
    };
    const std::lock_guard lock(mutex);
    const auto broken = damaged.lower_bound(prefix);
    if (broken != damaged.end() && matches(*broken)) {
        ThrowDamaged(*broken);
    }
    std::vector<Record> found;
    for (auto record = records.lower_bound(prefix);
         record != records.end() && matches(record->first); ++record) {
        found.push_back({record->first, record->second.value, record->second.version});
    }
    return found;
}

std::vector<std::string> Catalogue::ListDamaged() const {
    const std::lock_guard lock(mutex);
    return {damaged.begin(), damaged.end()};
}

std::vector<StoredReservation> Catalogue::ListReservations() const {
    const std::lock_guard lock(mutex);
    std::vector<StoredReservation> list;
    for (const auto& [track, stored] : reservations) {
        list.push_back(stored);
    }
    return list;
}

bool Catalogue::Write(std::span<const RecordChange> changes) {
    Change change;
    change.changes = changes;
    return Run(change);
}

void Catalogue::WriteReservation(const StoredReservation& stored) {
    Change change;
    change.reservation = &stored;
    Run(change);
}

void Catalogue::RemoveReservation(TrackId track) {
    Change change;
    change.released = track;
    Run(change);
}

bool Catalogue::Run(Change& change) {
    std::unique_lock lock(mutex);
    waiting.push_back(&change);
    while (!change.done) {
        if (leading) {
            ended.wait(lock);
            continue;
        }
        leading = true;
        const std::vector<Change*> batch = std::exchange(waiting, {});
        lock.unlock();
        CarryOut(batch);
        lock.lock();
        for (Change* carried : batch) {
            if (carried->accepted && !carried->error) {
                ApplyLocked(*carried);
            }
            carried->done = true;
        }
        leading = false;
        ended.notify_all();
    }
    if (change.error) {
        std::rethrow_exception(change.error);
    }
    return change.accepted;
}

void Catalogue::CarryOut(const std::vector<Change*>& changes) {
    std::map<std::string, std::uint64_t> versions;  // as changed by this batch
    std::uint64_t version = lastVersion;
    try {
        bool any = false;
        file->Begin();
        for (Change* change : changes) {
            change->accepted = Prepare(*change, versions, version);
            any = any || change->accepted;
        }
        if (any) {
            // Each commit has a version of its own: the mark tells by it which one is missing.
            version = std::max(version, lastVersion + 1);
            file->Commit(version);
            keeper.NoteAnswered(version);
            lastVersion = version;
            ++uncopied;
        }
        file->Rollback();  // of a batch in which nothing was accepted
    } catch (...) {
        file->Rollback();
        for (Change* change : changes) {
            change->error = std::current_exception();
        }
        return;
    }
    CopyWhenDue();
}

bool Catalogue::Prepare(Change& change, std::map<std::string, std::uint64_t>& versions,
                        std::uint64_t& version) {
    for (const RecordChange& record : change.changes) {
        const auto changed = versions.find(record.key);
        const auto present = records.find(record.key);
        const std::uint64_t found = changed != versions.end()  ? changed->second
                                    : present != records.end() ? present->second.version
                                                               : 0;
        if (record.expected.value_or(found) != found) {
            return false;
        }
    }
    for (const RecordChange& record : change.changes) {
        if (record.value) {
            file->PutRecord(record.key, *record.value, ++version);
            change.written.emplace(record.key, Stored{*record.value, version});
            versions[record.key] = version;
        } else {
            file->RemoveRecord(record.key);
            versions[record.key] = 0;
        }
    }
    if (change.reservation != nullptr) {
        file->PutReservation(*change.reservation);
        change.reserved.emplace(change.reservation->reservation.track, *change.reservation);
    }
    if (change.released) {
        file->RemoveReservation(*change.released);
    }
    return true;
}

void Catalogue::ApplyLocked(Change& change) {
    for (const RecordChange& record : change.changes) {
        records.erase(record.key);
        damaged.erase(record.key);
    }
    records.merge(change.written);
    if (change.reservation != nullptr) {
        reservations.erase(change.reservation->reservation.track);
        reservations.merge(change.reserved);
    }
    if (change.released) {
        reservations.erase(*change.released);
    }
}

void Catalogue::CopyWhenDue() noexcept {
    if (uncopied < commitsPerCopy) {
        return;
    }
    try {
        keeper.Copy(*file);
        uncopied = 0;
    } catch (const std::exception&) {
        // A copy that is older is still one; the next commit tries again.
        return;
    }
}

void Catalogue::Close() {
    keeper.Close(std::move(file), uncopied > 0);
}

}  // namespace Brantel::Engine
