#pragma once

#include "Support/CrashImage.h"
#include "Support/FileRecording.h"
#include "Support/TemporaryFolder.h"

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace Brantel::Engine {

// A folder, in memory, whose power goes again and again.
class CrashFolder {
  public:
    std::string Path() const { return image->Path(); }
    std::string File(const std::string& name) const { return image->File(name); }

    // The power goes at one of the recorded calls, chosen at random: what may be left then takes
    // the place of the folder. Returns the tick of that call.
    std::uint64_t LosePower(FileRecording& recording, FlushHonesty honesty,
                            std::mt19937_64& random) {
        const std::uint64_t first = recording.GetAdoptedEnd();
        const std::uint64_t cut = first + random() % (recording.Tick() - first) + 1;
        auto next = std::make_unique<Tests::TemporaryFolder>(memory);
        CrashImage(recording, cut, honesty, random).Materialise(next->Path());
        image = std::move(next);
        return cut;
    }

  private:
    const std::filesystem::path memory = Tests::TemporaryFolder::InMemory();
    std::unique_ptr<Tests::TemporaryFolder> image =
        std::make_unique<Tests::TemporaryFolder>(memory);
};

// What was known from which tick on.
template <typename Known>
using KnownByTick = std::vector<std::pair<std::uint64_t, Known>>;

// The first note behind this tick; the one in front of it holds what was known then.
template <typename Known>
typename KnownByTick<Known>::const_iterator NoteBehind(const KnownByTick<Known>& notes,
                                                       std::uint64_t tick) {
    return std::upper_bound(
        notes.begin(), notes.end(), tick,
        [](std::uint64_t wanted, const auto& note) { return wanted < note.first; });
}

}  // namespace Brantel::Engine
