// Drives Memory and Local with the same random operations, beside a reference of maps for each, and
// compares every answer, also after restarts in good order and after crashes of the server.
//
//   BRANTEL_MODEL_OPERATIONS  how many operations, in rounds of 2000 on fresh stores
//   BRANTEL_MODEL_SEED        of the first round; each round has the next one
//   BRANTEL_MODEL_REPLAY      operations as a failure prints them, in place of random ones
//
//   TMPDIR                    where the stores lie; without it in memory, where that is a folder
//
// A million operations take some four minutes, on a disk longer. From the root of the tree:
//   export BRANTEL_MODEL_OPERATIONS=1000000
//   build/release/Tests/Conformance/StorageModelTest --gtest_filter='*AnswersAsTheReferenceDoes'
#include "Conformance/ModelRound.h"
#include "Conformance/StorageOperation.h"
#include "Support/FaultyEngine.h"
#include "Support/LocalHarness.h"
#include "Support/MemoryHarness.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Brantel::Tracks {

namespace {

constexpr std::size_t roundLength = 2000;

std::string Environment(const char* name, const std::string& otherwise) {
    const char* text = std::getenv(name);
    return text == nullptr ? otherwise : text;
}

std::string CommandFor(std::uint64_t seed, const std::string& replay) {
    return "BRANTEL_MODEL_SEED=" + std::to_string(seed) + " BRANTEL_MODEL_OPERATIONS=1 " +
           (replay.empty() ? "" : "BRANTEL_MODEL_REPLAY='" + replay + "' ") +
           "StorageModelTest --gtest_filter='*AnswersAsTheReferenceDoes'";
}

// What crashes here is the server, never the machine: nothing hangs on a disk, which would take
// most of the time.
void KeepStoresInMemory() {
    constexpr const char* folder = "/dev/shm";
    if (access(folder, W_OK) == 0) {
        setenv("TMPDIR", folder, 0);
    }
}

// True when the round went well; else the failure is reported with the ways to have it again.
bool RunRound(std::uint64_t seed, const std::vector<StorageOperation>& operations,
              std::set<std::string>& outcomes) {
    constexpr std::size_t tries = 1500;
    ModelRound round(seed, {Engine::MemoryHarnessFactory(), Engine::LocalHarnessFactory()});
    const std::optional<ModelRound::Failure> failure = round.Run(operations);
    if (!failure) {
        outcomes.insert(round.GetOutcomes().begin(), round.GetOutcomes().end());
        return true;
    }
    std::cerr << "operation " << failure->operation << " of the round with seed " << seed << ", "
              << ToText(operations[failure->operation]) << ": " << failure->text
              << "\nagain: " << CommandFor(seed, "") << "\nshrinking" << std::endl;
    const std::vector<StorageOperation> fewer = round.Shrink(operations, tries);
    const std::optional<ModelRound::Failure> last = round.Run(fewer);
    ADD_FAILURE() << "operation " << ToText(fewer.back()) << ": "
                  << (last ? last->text : "it does not fail every time; before: " + failure->text)
                  << "\nagain: " << CommandFor(seed, ToText(fewer));
    return false;
}

// Random operations that seldom succeed, or never fail, would prove little.
void ExpectEveryOutcome(const std::set<std::string>& outcomes) {
    for (const std::string wanted :
         {"Create: track # # FINISHED #",
          "Create: Track # already exists",
          "Create: Track #: size # is more than the remaining space, # bytes",
          "Create: Track #: size # is below that of the smallest chunk",
          "Grow: track # # FINISHED #",
          "Grow: Track #: size # is below its capacity",
          "Grow: Track #: size # takes # bytes more",
          "Delete: track # # FINISHED #",
          "Delete: Track #: it has # protections",
          "Delete: Track #: it has # open workers",
          "OpenWriter: open",
          "OpenWriter: Track # already has a writer",
          "OpenReader: Track # does not exist",
          "Append: # [# #) # of #",
          "Append: Track #: time point # is not after the last one",
          "Append: Track #: duration -# is below #",
          "occurs twice in the chunk",
          "has an empty key",
          "Append: Track #: a chunk of # bytes is over the largest",
          "bytes are held by protections",
          "in use and its retention is stop",
          "GetChunk: #+#",
          "GetChunk: none",
          "NextChunk: #+#",
          "NextChunk: none",
          "PreviousChunk: #+#",
          "PreviousChunk: none",
          "NextTime: # found",
          "NextTime: unset",
          "PreviousTime: # found",
          "PreviousTime: unset",
          "Wait: there",
          "Wait: not there",
          "Clear: # [-# -#) # of #",
          "Clear: # [# #) # of #",
          "SetProperties: done",
          "storage.colour is no setting",
          "RemoveProperties: done",
          "Protect: protected",
          "ends at or before the beginning",
          "Unprotect: # [# #) # of #",
          "Unprotect: Protection # does not exist",
          "DescribeWorkers: # WRITER",
          "DescribeWorkers: # READER",
          "# NONE",
          "DescribeCommand: FINISHED #",
          "DescribeCommand: NOT_EXIST #",
          "RemainingSpace: space",
          "CutOff: track # #",
          "Restart:  #",
          "Crash:  #"}) {
        EXPECT_TRUE(std::any_of(
            outcomes.begin(), outcomes.end(),
            [&](const std::string& outcome) { return outcome.find(wanted) != std::string::npos; }))
            << "never happened: " << wanted;
    }
}

}  // namespace

TEST(StorageModelTest, EveryEngineAnswersAsTheReferenceDoes) {
    KeepStoresInMemory();
    const std::uint64_t seed = std::stoull(Environment("BRANTEL_MODEL_SEED", "1"));
    const std::size_t wanted = std::stoull(Environment("BRANTEL_MODEL_OPERATIONS", "20000"));
    const std::string replay = Environment("BRANTEL_MODEL_REPLAY", "");
    std::set<std::string> outcomes;
    if (!replay.empty()) {
        RunRound(seed, FromText(replay), outcomes);
        return;
    }
    constexpr std::size_t betweenReports = 25;
    std::size_t rounds = 0;
    for (std::size_t done = 0; done < wanted; done += roundLength, ++rounds) {
        if (!RunRound(seed + rounds, MakeOperations(seed + rounds, roundLength), outcomes)) {
            return;
        }
        if (rounds % betweenReports == betweenReports - 1) {
            std::cout << done + roundLength << " operations" << std::endl;
        }
    }
    constexpr std::size_t enough = 5;
    if (rounds >= enough) {
        ExpectEveryOutcome(outcomes);
    }
}

TEST(StorageModelTest, OperationsComeBackFromTheirText) {
    const std::vector<StorageOperation> operations = MakeOperations(7, 500);
    EXPECT_EQ(ToText(FromText(ToText(operations))), ToText(operations));
}

namespace {

// Stores a wrong duration now and then.
class ForgetfulEngine : public Engine::FaultyEngine {
  public:
    using FaultyEngine::FaultyEngine;
    void Append(const Engine::SegmentId& id, Engine::Epoch epoch, const Engine::ChunkEntry& entry,
                std::span<const std::string_view> parts,
                const Engine::Durability& durability) override {
        Engine::ChunkEntry stored = entry;
        stored.duration += entry.timePoint % 16 == 3 ? 1 : 0;
        FaultyEngine::Append(id, epoch, stored, parts, durability);
    }
};

class ForgetfulHarness : public Engine::MemoryHarness {
  public:
    explicit ForgetfulHarness(std::uint64_t limit)
        : MemoryHarness(limit), faulty(std::make_unique<ForgetfulEngine>(GetInner())) {}

    Engine::IEngine& GetEngine() override { return *faulty; }
    void Restart() override {
        MemoryHarness::Restart();
        faulty = std::make_unique<ForgetfulEngine>(GetInner());
    }
    void Crash() override {
        former = std::move(faulty);
        MemoryHarness::Crash();
        faulty = std::make_unique<ForgetfulEngine>(GetInner());
    }

  private:
    Engine::IEngine& GetInner() { return MemoryHarness::GetEngine(); }

    std::unique_ptr<ForgetfulEngine> former;
    std::unique_ptr<ForgetfulEngine> faulty;
};

}  // namespace

TEST(StorageModelTest, AFaultOfAnEngineIsFoundAndShrunkToAFewOperations) {
    constexpr std::size_t tries = 3000;
    ModelRound round(1, {{"Forgetful", [](std::uint64_t limit) {
                              return std::make_unique<ForgetfulHarness>(limit);
                          }}});
    const std::vector<StorageOperation> operations = MakeOperations(1, roundLength);
    ASSERT_TRUE(round.Run(operations));
    const std::vector<StorageOperation> fewer = round.Shrink(operations, tries);
    EXPECT_LE(fewer.size(), 12U) << ToText(fewer);
    EXPECT_TRUE(round.Run(fewer));
    EXPECT_TRUE(round.Run(FromText(ToText(fewer))));
}

}  // namespace Brantel::Tracks
