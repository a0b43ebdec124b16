#pragma once

#include "Local/CatalogueContent.h"

#include <libEngine/EngineTypes.h>

#include <cstdint>
#include <string>

struct sqlite3;

namespace Brantel::Engine {

// The SQLite database that keeps a store's records and reservations: write-ahead log, each commit
// flushed, one connection that nobody else shares. Each row has a checksum, and one row has the sum
// of them all, so that a page that is older than the others is noticed too. Failures throw
// EngineError with the path and what SQLite said: Damaged, NoSpace, Io. Not thread-safe.
//
//   records       key BLOB, version INTEGER, value BLOB
//                 checksum: XXH3 of version (8 bytes), length of the key (8), key, value
//   reservations  track, segment_size, segment_count, settled_count
//                 checksum: XXH3 of the four (8 bytes each)
//   state         id 1, last_version, digest: the exclusive or of all checksums above
//                 checksum: XXH3 of the two (8 bytes each)
//
// user_version is the version of this format.
class CatalogueFile {
  public:
    static constexpr int version = 1;

    enum class Mode {
        Make,  // a file that is missing or empty is made
        Open,  // such a one is damaged
        Read,  // nothing is changed
    };

    // `reserve`: bytes that the database takes at least, so that it can grow when the medium is
    // full; 0: none. `vfs`: SQLite's, empty for the system's. Throws Refused for a newer version.
    CatalogueFile(const std::string& path, Mode mode, std::uint64_t reserve,
                  const std::string& vfs);
    ~CatalogueFile();
    CatalogueFile(const CatalogueFile&) = delete;
    CatalogueFile& operator=(const CatalogueFile&) = delete;

    // Reads and checks everything.
    CatalogueContent Load();

    // Changes between these are carried out all or none, and are lasting when Commit returns.
    void Begin();
    void PutRecord(const std::string& key, const std::string& value, std::uint64_t recordVersion);
    void RemoveRecord(const std::string& key);
    void PutReservation(const StoredReservation& stored);
    void RemoveReservation(TrackId track);
    void Commit(std::uint64_t lastVersion);
    void Rollback() noexcept;

    // Copies everything into a new file, which is not flushed.
    void CopyTo(const std::string& target);
    // Moves what the log holds into the database, and empties it.
    void Checkpoint();
    // Closing leaves the log as it is.
    void KeepLog() noexcept;

  private:
    class Statement;

    [[noreturn]] void Throw(const char* what) const;
    void Execute(const char* sql);
    void SetUp(std::uint64_t reserve);
    bool CheckVersion(Mode mode);
    void MakeTables();
    void LoadState(CatalogueContent& content);
    void TakeOut(Statement& checksumOfOld);

    const std::string path;
    sqlite3* database = nullptr;
    std::uint64_t digest = 0;         // as of the last commit
    std::uint64_t pendingDigest = 0;  // with the changes since Begin
};

}  // namespace Brantel::Engine
