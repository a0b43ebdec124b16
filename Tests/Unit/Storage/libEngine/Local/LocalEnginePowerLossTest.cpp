#include "Support/ChildProcess.h"
#include "Support/LocalStoreTest.h"
#include "Support/LocalWorkload.h"
#include "Support/LoopFileSystem.h"
#include "Support/ProofSize.h"
#include "Support/SharedMemory.h"
#include "Support/TrackTurnover.h"
#include "Support/UnflushedFileCalls.h"

#include <gtest/gtest.h>

#include <signal.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace Brantel::Engine {
namespace {

using Tests::LoopFileSystem;
using Clock = std::chrono::steady_clock;

void Pause(std::chrono::nanoseconds time) {
    const timespec pause{time.count() / 1'000'000'000, time.count() % 1'000'000'000};
    nanosleep(&pause, nullptr);
}

// What the killed server had answered, and from when on.
struct Answers {
    struct Note {
        std::uint64_t chunks = 0;
        Clock::time_point time;
    };
    static constexpr std::size_t room = 4096;
    static constexpr std::chrono::milliseconds resolution{1};

    Answered track;
    AnsweredTracks tracks;
    std::uint64_t recovered = 0;         // chunks when the server began
    std::atomic<std::uint64_t> noted{};  // of the notes below, which go round
    std::array<Note, room> notes;

    void Tell(const Answered& now) {
        track = now;
        const std::uint64_t count = noted.load(std::memory_order_relaxed);
        const Clock::time_point time = Clock::now();
        if (count == 0 || time - notes[(count - 1) % room].time >= resolution) {
            notes[count % room] = {now.chunks, time};
            noted.store(count + 1, std::memory_order_release);
        }
    }
    // The chunks that had been answered by then.
    std::uint64_t ChunksAt(Clock::time_point time) const {
        const std::uint64_t count = noted;
        for (std::uint64_t index = count; index > 0 && count - index < room - 1; --index) {
            const Note& note = notes[(index - 1) % room];
            if (note.time <= time) {
                return note.chunks;
            }
        }
        return recovered;
    }
};

// A store on a file system of its own. A server in another process writes it until it is killed;
// then the power goes, and what is found afterwards is compared to what was answered.
class LocalEnginePowerLossTest : public LocalStoreTest,
                                 public testing::WithParamInterface<LoopFileSystem::Kind> {
  protected:
    static constexpr std::chrono::milliseconds interval{250};
    static constexpr TrackId reservedTrack = 50;

    void SetUp() override {
        const std::string reason = LoopFileSystem::WhyNot(GetParam());
        if (!reason.empty()) {
            GTEST_SKIP() << reason;
        }
        files = std::make_unique<LoopFileSystem>(GetParam());
        Begin();
    }

    // An empty store.
    void Begin() {
        options.directory = files->Folder() + "/store";
        options.preparation = random() % 2 == 0 ? LocalOptions::Preparation::Write
                                                : LocalOptions::Preparation::Allocate;
        answers->track = {};
        answers->tracks = {};
    }

    // What a server does until it is killed; says when it has begun.
    using Life = std::function<void(LocalWorkload&, TrackTurnover&, int channel)>;

    void LiveAndCut(std::optional<UnflushedFileCalls::Omitted> omitted,
                    std::chrono::nanoseconds time, const Life& life) {
        answers->noted = 0;
        ++epoch;
        const std::uint64_t seed = random();
        Tests::ChildProcess child([&](int channel) {
            std::unique_ptr<UnflushedFileCalls> calls;
            if (omitted) {
                calls = std::make_unique<UnflushedFileCalls>(*omitted);
            }
            Open(calls.get());
            LocalWorkload workload(*engine, settings, epoch, seed);
            TrackTurnover turnover(*engine, epoch);
            workload.onChange = [&](const Answered& now) { answers->Tell(now); };
            turnover.onChange = [&](const AnsweredTracks& now) { answers->tracks = now; };
            workload.Recover(answers->track);
            turnover.Recover(answers->tracks);
            answers->recovered = answers->track.chunks;
            life(workload, turnover, channel);
            return 0;
        });
        ASSERT_TRUE(child.Hear()) << "the server could not take over";
        Pause(time);
        killed = Clock::now();
        kill(child.Id(), SIGKILL);
        child.Wait();
        files->CutPower();
    }

    static void WriteForEver(LocalWorkload& workload, TrackTurnover& turnover, int channel) {
        Tests::ChildProcess::Say(channel);
        for (std::uint64_t step = 0;; ++step) {
            workload.Step();
            if (step % 32 == 0) {
                turnover.Step();
            }
        }
    }

    // Slow enough that hardly anything but the interval flushes what was written.
    static void WriteSlowly(LocalWorkload& workload, TrackTurnover&, int channel) {
        Tests::ChildProcess::Say(channel);
        while (true) {
            workload.Step();
            Pause(std::chrono::milliseconds(2));
        }
    }

    // Two more tracks, whose names in their folders nothing flushes by the way: the catalogue's log
    // goes round by then, so that a commit does not change the size of a file, which would flush
    // all names too; and nothing is written into the second one's files.
    void MakeTracks(LocalWorkload& workload, TrackTurnover& turnover, int channel) {
        constexpr int recordsThatFillTheLog = 1200;
        for (int count = 0; count < recordsThatFillTheLog; ++count) {
            workload.WriteRecord();
        }
        turnover.Step(turnover.GetAnswered().made + 1);
        Reserve(2, reservedTrack);
        Tests::ChildProcess::Say(channel);
        while (true) {
            pause();
        }
    }

    // What is wrong with the store in this folder.
    std::vector<std::string> Check(const std::string& directory, const Answered& expected) {
        LocalOptions checked = options;
        checked.directory = directory;
        std::vector<std::string> problems;
        checked.report = [&](const std::string& text) { problems.push_back("report: " + text); };
        try {
            LocalEngine store(checked);
            for (std::string& problem : LocalWorkload::Check(store, settings, expected)) {
                problems.push_back(std::move(problem));
            }
            for (std::string& problem : TrackTurnover::Check(store, answers->tracks)) {
                problems.push_back(std::move(problem));
            }
            CheckDamage(store, expected, problems);
        } catch (const std::exception& error) {
            problems.emplace_back(error.what());
        }
        return problems;
    }

    static void CheckDamage(LocalEngine& store, const Answered& expected,
                            std::vector<std::string>& problems) {
        for (const Reservation& reservation : store.ListReservations()) {
            for (const SegmentInfo& info : store.ListSegments(reservation.track)) {
                DamageTexts damage;
                store.Verify(info.id, 0, damage);
                const bool dropped = info.count > 0 && info.last.ordinal < expected.front;
                if (!dropped) {
                    problems.insert(problems.end(), damage.texts.begin(), damage.texts.end());
                }
            }
        }
    }

    // Checks in place, which closes the store, or a copy, so that the next server finds it as the
    // power left it.
    std::vector<std::string> CheckSomewhere(const Answered& expected) {
        if (random() % 2 == 0) {
            return Check(options.directory, expected);
        }
        const Tests::TemporaryFolder copy(Tests::TemporaryFolder::InMemory());
        std::filesystem::copy(options.directory, copy.File("store"),
                              std::filesystem::copy_options::recursive);
        return Check(copy.File("store"), expected);
    }

    // Lets servers write and be cut off, so many times.
    void Run(std::uint64_t cycles) {
        const bool isInterval = settings.durability.mode == Durability::Mode::Interval;
        for (std::uint64_t cycle = 0; cycle < cycles; ++cycle) {
            if (random() % 10 == 0) {
                files->Format();
                Begin();
            }
            const std::chrono::microseconds time(
                random() % 8000 + (isInterval ? std::chrono::microseconds(interval).count() : 0));
            LiveAndCut({}, isInterval ? time + interval / 2 : time,
                       isInterval ? WriteSlowly : WriteForEver);
            ASSERT_FALSE(HasFatalFailure()) << "cycle " << cycle;
            Answered expected = answers->track.AfterPowerLoss();
            if (isInterval) {
                expected.chunks = std::max(expected.safe, answers->ChunksAt(killed - interval));
            }
            answers->track = expected;
            ASSERT_EQ(CheckSomewhere(expected), std::vector<std::string>()) << "cycle " << cycle;
        }
        RecordProperty("cycles", static_cast<int>(cycles));
    }

    // The controls: what was lost must be noticed.
    void ExpectProblems(const Answered& expected) {
        const std::vector<std::string> problems = Check(options.directory, expected);
        ASSERT_NE(problems, std::vector<std::string>());
        std::string all;
        for (const std::string& problem : problems) {
            all += problem + "; ";
        }
        RecordProperty("noticed", all);
    }

    const Life makeTracks = [this](LocalWorkload& workload, TrackTurnover& turnover, int channel) {
        MakeTracks(workload, turnover, channel);
    };
    std::unique_ptr<LoopFileSystem> files;
    LocalWorkload::Settings settings;
    const Tests::SharedMemory<Answers> answers;
    std::mt19937_64 random{Tests::ProofSeed()};
    Epoch epoch = 0;
    Clock::time_point killed;
};

TEST_P(LocalEnginePowerLossTest, NothingAnsweredIsLostWithAlways) {
    Run(Tests::ProofSize(42, 900));
}

TEST_P(LocalEnginePowerLossTest, NoMoreThanTheIntervalIsLostWithInterval) {
    settings.durability = {Durability::Mode::Interval, interval};
    settings.segmentSize = 256 * ChunkLayout::unit;
    settings.sealOneIn = 1000;
    Run(Tests::ProofSize(8, 100));
}

TEST_P(LocalEnginePowerLossTest, TracksThatWereMadeAreThere) {
    options.preparation = LocalOptions::Preparation::Write;
    LiveAndCut({}, {}, makeTracks);
    ASSERT_EQ(answers->tracks.made, 1U);
    EXPECT_EQ(Check(options.directory, answers->track), std::vector<std::string>());
}

TEST_P(LocalEnginePowerLossTest, FlushesOfFilesThatDoNothingAreNoticed) {
    Run(1);
    LiveAndCut(UnflushedFileCalls::Omitted::Files, std::chrono::milliseconds(5), WriteForEver);
    ExpectProblems(answers->track.AfterPowerLoss());
}

TEST_P(LocalEnginePowerLossTest, FlushesOfFilesThatDoNothingAreNoticedWithInterval) {
    settings.durability = {Durability::Mode::Interval, interval};
    settings.sealOneIn = 1000;
    settings.segmentSize = 256 * ChunkLayout::unit;
    LiveAndCut(UnflushedFileCalls::Omitted::Files, 2 * interval, WriteSlowly);
    Answered expected = answers->track.AfterPowerLoss();
    expected.chunks = std::max(expected.safe, answers->ChunksAt(killed - interval));
    ExpectProblems(expected);
}

TEST_P(LocalEnginePowerLossTest, FlushesOfFoldersThatDoNothingAreNoticed) {
    options.preparation = LocalOptions::Preparation::Write;
    LiveAndCut(UnflushedFileCalls::Omitted::Folders, {}, makeTracks);
    ASSERT_EQ(answers->tracks.made, 1U);
    ExpectProblems(answers->track);
}

INSTANTIATE_TEST_SUITE_P(FileSystem, LocalEnginePowerLossTest,
                         testing::Values(LoopFileSystem::Kind::Ext4, LoopFileSystem::Kind::Xfs),
                         [](const auto& kind) {
                             return kind.param == LoopFileSystem::Kind::Ext4 ? "Ext4" : "Xfs";
                         });

}  // namespace
}  // namespace Brantel::Engine
