#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace Brantel::Engine {

struct FaultyVfsState;

// A file layer for SQLite: the system's, of which some calls fail as they are told to. Calls are
// counted from 1, all kinds together. Used by one thread at a time.
class FaultyVfs {
  public:
    struct Fault {
        std::uint64_t from = 0;   // number of the first call that fails
        std::uint64_t times = 1;  // how many in a row; 0: for ever
        bool full = false;        // the medium is full: writes alone fail; else every call
    };

    FaultyVfs();
    ~FaultyVfs();
    FaultyVfs(const FaultyVfs&) = delete;
    FaultyVfs& operator=(const FaultyVfs&) = delete;

    // As it is registered with SQLite.
    const std::string& GetName() const;

    // Counting begins again.
    void Inject(const Fault& wanted);
    void Heal();
    std::uint64_t CountFaults() const;

  private:
    const std::unique_ptr<FaultyVfsState> state;
};

}  // namespace Brantel::Engine
