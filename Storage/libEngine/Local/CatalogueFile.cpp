#include "Local/CatalogueFile.h"

#include "EngineError.h"
#include "Local/SegmentFormat.h"

#include <sqlite3.h>

#include <algorithm>
#include <array>
#include <new>

namespace Brantel::Engine {

namespace {

std::uint64_t ChecksumOfRecord(const std::string& key, const std::string& value,
                               std::uint64_t version) {
    const std::array<std::uint64_t, 2> numbers{version, key.size()};
    const std::uint64_t head = SegmentFormat::Checksum(numbers.data(), sizeof numbers);
    const std::uint64_t both = SegmentFormat::Checksum(key.data(), key.size(), head);
    return SegmentFormat::Checksum(value.data(), value.size(), both);
}

std::uint64_t ChecksumOfReservation(const StoredReservation& stored) {
    const Reservation& reservation = stored.reservation;
    const std::array<std::uint64_t, 4> numbers{static_cast<std::uint64_t>(reservation.track),
                                               reservation.segmentSize, reservation.segmentCount,
                                               stored.settledCount};
    return SegmentFormat::Checksum(numbers.data(), sizeof numbers);
}

std::uint64_t ChecksumOfState(std::uint64_t lastVersion, std::uint64_t digest) {
    const std::array<std::uint64_t, 2> numbers{lastVersion, digest};
    return SegmentFormat::Checksum(numbers.data(), sizeof numbers);
}

EngineError::Kind KindOf(int result) {
    switch (result & 0xff) {
        case SQLITE_FULL: return EngineError::Kind::NoSpace;
        case SQLITE_CORRUPT:
        case SQLITE_NOTADB:
        case SQLITE_ERROR:  // a table that is missing
            return EngineError::Kind::Damaged;
        default: return EngineError::Kind::Io;
    }
}

}  // namespace

// One prepared statement; values are bound by position from 1, columns counted from 0.
class CatalogueFile::Statement {
  public:
    Statement(CatalogueFile& file, const char* sql) : file(file) {
        if (sqlite3_prepare_v2(file.database, sql, -1, &statement, nullptr) != SQLITE_OK) {
            file.Throw("preparing a statement");
        }
    }
    ~Statement() { sqlite3_finalize(statement); }
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    Statement& Bind(int position, std::uint64_t number) {
        Check(sqlite3_bind_int64(statement, position, static_cast<sqlite3_int64>(number)));
        return *this;
    }
    // Borrowed until the statement ends.
    Statement& Bind(int position, const std::string& bytes) {
        Check(sqlite3_bind_blob64(statement, position, bytes.data(), bytes.size(), SQLITE_STATIC));
        return *this;
    }
    // True: a row is there.
    bool Step() {
        const int result = sqlite3_step(statement);
        if (result != SQLITE_ROW && result != SQLITE_DONE) {
            file.Throw("reading or writing");
        }
        return result == SQLITE_ROW;
    }
    std::uint64_t GetNumber(int column) const {
        return static_cast<std::uint64_t>(sqlite3_column_int64(statement, column));
    }
    std::string GetBytes(int column) const {
        const void* bytes = sqlite3_column_blob(statement, column);
        const auto size = static_cast<std::size_t>(sqlite3_column_bytes(statement, column));
        if (bytes == nullptr && size > 0) {
            throw std::bad_alloc();
        }
        return size == 0 ? std::string() : std::string(static_cast<const char*>(bytes), size);
    }

  private:
    void Check(int result) {
        if (result != SQLITE_OK) {
            file.Throw("binding a value");
        }
    }

    CatalogueFile& file;
    sqlite3_stmt* statement = nullptr;
};

CatalogueFile::CatalogueFile(const std::string& path, Mode mode, std::uint64_t reserve,
                             const std::string& vfs)
    : path(path) {
    const int access =
        mode == Mode::Read ? SQLITE_OPEN_READONLY : SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE;
    try {
        if (sqlite3_open_v2(path.c_str(), &database,
                            access | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_EXRESCODE,
                            vfs.empty() ? nullptr : vfs.c_str()) != SQLITE_OK) {
            Throw("opening");
        }
        if (mode != Mode::Read) {
            SetUp(reserve);
        }
        if (!CheckVersion(mode)) {
            MakeTables();
        }
    } catch (...) {
        sqlite3_close(database);
        throw;
    }
}

CatalogueFile::~CatalogueFile() {
    sqlite3_close(database);
}

void CatalogueFile::Throw(const char* what) const {
    const int result = database == nullptr ? SQLITE_NOMEM : sqlite3_extended_errcode(database);
    if ((result & 0xff) == SQLITE_NOMEM) {
        throw std::bad_alloc();
    }
    const int systemError = sqlite3_system_errno(database);
    throw EngineError(KindOf(result), path + ": " + what + " failed: " + sqlite3_errmsg(database) +
                                          " (SQLite " + std::to_string(result) + ", system " +
                                          std::to_string(systemError) + ")");
}

void CatalogueFile::Execute(const char* sql) {
    if (sqlite3_exec(database, sql, nullptr, nullptr, nullptr) != SQLITE_OK) {
        Throw(sql);
    }
}

void CatalogueFile::SetUp(std::uint64_t reserve) {
    // Alone with the file, SQLite needs no shared memory beside it, which could not be made on a
    // full medium.
    Execute("PRAGMA locking_mode=EXCLUSIVE");
    Execute("PRAGMA journal_mode=WAL");
    Execute("PRAGMA synchronous=FULL");
    int keepLog = 1;
    sqlite3_file_control(database, "main", SQLITE_FCNTL_PERSIST_WAL, &keepLog);
    if (reserve > 0) {
        // So often that the log never needs more than half of what is kept for it.
        constexpr std::uint64_t frameSize = 4096 + 24;
        constexpr std::uint64_t fewFrames = 16;
        constexpr std::uint64_t manyFrames = 1000;
        const std::uint64_t frames = std::clamp(reserve / 2 / frameSize, fewFrames, manyFrames);
        sqlite3_wal_autocheckpoint(database, static_cast<int>(frames));
        int chunk = static_cast<int>(reserve);
        sqlite3_file_control(database, "main", SQLITE_FCNTL_CHUNK_SIZE, &chunk);
    }
}

bool CatalogueFile::CheckVersion(Mode mode) {
    Statement asked(*this, "PRAGMA user_version");
    const int found = asked.Step() ? static_cast<int>(asked.GetNumber(0)) : 0;
    if (found > version) {
        throw EngineError(EngineError::Kind::Refused,
                          path + ": has format version " + std::to_string(found) +
                              ", this program knows up to " + std::to_string(version));
    }
    if (found == 0 && mode != Mode::Make) {
        throw EngineError(EngineError::Kind::Damaged, path + ": is empty");
    }
    return found != 0;
}

void CatalogueFile::MakeTables() {
    Execute(
        "BEGIN IMMEDIATE;"
        "CREATE TABLE records (key BLOB PRIMARY KEY, version INTEGER NOT NULL,"
        " value BLOB NOT NULL, checksum INTEGER NOT NULL) WITHOUT ROWID;"
        "CREATE TABLE reservations (track INTEGER PRIMARY KEY, segment_size INTEGER NOT NULL,"
        " segment_count INTEGER NOT NULL, settled_count INTEGER NOT NULL,"
        " checksum INTEGER NOT NULL);"
        "CREATE TABLE state (id INTEGER PRIMARY KEY, last_version INTEGER NOT NULL,"
        " digest INTEGER NOT NULL, checksum INTEGER NOT NULL);"
        "PRAGMA user_version=1");
    pendingDigest = 0;
    Commit(0);
    Checkpoint();
}

void CatalogueFile::LoadState(CatalogueContent& content) {
    Statement state(*this, "SELECT last_version, digest, checksum FROM state WHERE id = 1");
    if (!state.Step() ||
        state.GetNumber(2) != ChecksumOfState(state.GetNumber(0), state.GetNumber(1))) {
        throw EngineError(EngineError::Kind::Damaged, path + ": the row of the state is damaged");
    }
    content.lastVersion = state.GetNumber(0);
    digest = state.GetNumber(1);
}

CatalogueContent CatalogueFile::Load() {
    CatalogueContent content;
    LoadState(content);
    std::uint64_t sum = 0;
    Statement records(*this, "SELECT key, value, version, checksum FROM records");
    while (records.Step()) {
        Record record{records.GetBytes(0), records.GetBytes(1), records.GetNumber(2)};
        const std::uint64_t stored = records.GetNumber(3);
        sum ^= stored;
        if (ChecksumOfRecord(record.key, record.value, record.version) != stored) {
            content.damaged.push_back({std::move(record.key), stored});
        } else {
            content.records.push_back({std::move(record), stored});
        }
    }
    Statement reservations(*this,
                           "SELECT track, segment_size, segment_count, settled_count, checksum"
                           " FROM reservations");
    while (reservations.Step()) {
        const StoredReservation stored{
            {static_cast<TrackId>(reservations.GetNumber(0)),
             static_cast<std::uint32_t>(reservations.GetNumber(1)), reservations.GetNumber(2)},
            reservations.GetNumber(3)};
        sum ^= reservations.GetNumber(4);
        if (ChecksumOfReservation(stored) != reservations.GetNumber(4)) {
            throw EngineError(EngineError::Kind::Damaged,
                              path + ": the reservation of track " +
                                  std::to_string(stored.reservation.track) + " is damaged");
        }
        content.reservations.push_back(stored);
    }
    if (sum != digest) {
        throw EngineError(EngineError::Kind::Damaged,
                          path + ": its rows are not those of the last change");
    }
    return content;
}

void CatalogueFile::Begin() {
    Rollback();  // one that had no memory for it
    Execute("BEGIN IMMEDIATE");
    pendingDigest = digest;
}

void CatalogueFile::TakeOut(Statement& checksumOfOld) {
    while (checksumOfOld.Step()) {
        pendingDigest ^= checksumOfOld.GetNumber(0);
    }
}

void CatalogueFile::PutRecord(const std::string& key, const std::string& value,
                              std::uint64_t recordVersion) {
    RemoveRecord(key);
    const std::uint64_t checksum = ChecksumOfRecord(key, value, recordVersion);
    pendingDigest ^= checksum;
    Statement(*this, "INSERT INTO records (key, version, value, checksum) VALUES (?, ?, ?, ?)")
        .Bind(1, key)
        .Bind(2, recordVersion)
        .Bind(3, value)
        .Bind(4, checksum)
        .Step();
}

void CatalogueFile::RemoveRecord(const std::string& key) {
    Statement removal(*this, "DELETE FROM records WHERE key = ? RETURNING checksum");
    TakeOut(removal.Bind(1, key));
}

void CatalogueFile::PutReservation(const StoredReservation& stored) {
    RemoveReservation(stored.reservation.track);
    const std::uint64_t checksum = ChecksumOfReservation(stored);
    pendingDigest ^= checksum;
    Statement(*this, "INSERT INTO reservations VALUES (?, ?, ?, ?, ?)")
        .Bind(1, static_cast<std::uint64_t>(stored.reservation.track))
        .Bind(2, stored.reservation.segmentSize)
        .Bind(3, stored.reservation.segmentCount)
        .Bind(4, stored.settledCount)
        .Bind(5, checksum)
        .Step();
}

void CatalogueFile::RemoveReservation(TrackId track) {
    Statement removal(*this, "DELETE FROM reservations WHERE track = ? RETURNING checksum");
    TakeOut(removal.Bind(1, static_cast<std::uint64_t>(track)));
}

void CatalogueFile::Commit(std::uint64_t lastVersion) {
    Statement(*this, "INSERT OR REPLACE INTO state VALUES (1, ?, ?, ?)")
        .Bind(1, lastVersion)
        .Bind(2, pendingDigest)
        .Bind(3, ChecksumOfState(lastVersion, pendingDigest))
        .Step();
    Execute("COMMIT");
    digest = pendingDigest;
}

void CatalogueFile::Rollback() noexcept {
    if (sqlite3_get_autocommit(database) == 0) {
        sqlite3_exec(database, "ROLLBACK", nullptr, nullptr, nullptr);
    }
}

void CatalogueFile::CopyTo(const std::string& target) {
    Statement(*this, "VACUUM INTO CAST(? AS TEXT)").Bind(1, target).Step();
}

void CatalogueFile::Checkpoint() {
    Execute("PRAGMA wal_checkpoint(TRUNCATE)");
}

void CatalogueFile::KeepLog() noexcept {
    sqlite3_db_config(database, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
}

}  // namespace Brantel::Engine
