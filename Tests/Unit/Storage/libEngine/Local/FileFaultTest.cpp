#include "Support/FaultyFileCalls.h"
#include "Support/FaultyVfs.h"
#include "Support/LocalStoreTest.h"
#include "Support/LocalWorkload.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace Brantel::Engine {
namespace {

// A life of a store, of which the n-th file call fails: an operation then fails or succeeds, what
// was answered stays, and once the medium works again so does the store.
class FileFaultTest : public LocalStoreTest {
  protected:
    static constexpr int steps = 60;

    FileFaultTest() {
        PlaceInMemory();
        settings.segmentSize = 4 * ChunkLayout::unit;
        settings.segments = 3;
        settings.maxPart = 3000;
        settings.mixDurability = true;
    }

    // Opens the store, writes, and closes it; a failed operation is followed by a recovery, as the
    // tracks above do it. Returns how many operations failed.
    int Live(Epoch epoch) {
        int failures = 0;
        Answered answered;
        const auto attempt = [&](const auto& action) {
            try {
                action();
                return true;
            } catch (const EngineError&) {
                ++failures;
                return false;
            }
        };
        std::optional<LocalWorkload> workload;
        if (!attempt([&] { Open(&calls); })) {
            return failures;
        }
        workload.emplace(*engine, settings, epoch, 3);
        workload->onChange = [&](const Answered& now) { Note(now); };
        bool usable = attempt([&] { workload->Recover(known); });
        for (int step = 0; step < steps; ++step) {
            usable =
                usable ? attempt([&] { workload->Step(); }) : attempt([&] { Renew(*workload); });
        }
        Close();
        return failures;
    }

    // Goes on after a failure: the segment that takes no more is sealed and a fresh one made.
    void Renew(LocalWorkload& workload) {
        for (const SegmentInfo& info : engine->ListSegments(settings.track)) {
            if (!info.sealed) {
                engine->Seal(info.id, 1000, info.count);
            }
        }
        Answered now = known;
        now.attempted = now.chunks;
        workload.Recover(now);
    }

    void Note(const Answered& now) {
        // A recovery counts what it finds; only answers raise what must be there.
        known = now;
    }

    void CheckAfter(const std::string& what) {
        calls.Heal();
        vfs.Heal();
        Open();
        EXPECT_EQ(LocalWorkload::Check(*engine, settings, known), std::vector<std::string>())
            << what;
        LocalWorkload workload(*engine, settings, 2000, 4);
        workload.Recover(known);
        for (int step = 0; step < 20; ++step) {
            workload.Step();
        }
        EXPECT_EQ(LocalWorkload::Check(*engine, settings, workload.GetAnswered()),
                  std::vector<std::string>())
            << what;
        Close();
    }

    // One life for each n; `usualStride` lets most n out, unless BRANTEL_PROVE is set.
    void RunAll(std::uint64_t usualStride, bool harmless,
                const std::function<void(std::uint64_t n)>& inject,
                const std::function<std::uint64_t()>& countFaults) {
        const std::uint64_t stride = std::getenv("BRANTEL_PROVE") != nullptr ? 1 : usualStride;
        std::uint64_t lives = 0;
        std::uint64_t failed = 0;
        bool reached = true;
        for (std::uint64_t n = 1; reached; n += stride, ++lives) {
            std::filesystem::remove_all(options.directory);
            known = {};
            inject(n);
            const int failures = Live(1000);
            reached = countFaults() > 0;
            failed += failures > 0 ? 1 : 0;
            if (harmless) {
                EXPECT_EQ(failures, 0) << "call " << n;
            }
            CheckAfter("call " + std::to_string(n));
            ASSERT_FALSE(HasFailure());
        }
        std::printf("%" PRIu64 " lives, in %" PRIu64 " of them an operation failed\n", lives,
                    failed);
        RecordProperty("cycles", std::to_string(lives));
        EXPECT_EQ(failed == 0, harmless);
    }

    void Run(int error, std::uint64_t times) {
        const auto inject = [&](std::uint64_t n) { calls.Inject({n, times, error, std::nullopt}); };
        RunAll(9, error == 0 || error == EINTR, inject, [&] { return calls.CountFaults(); });
    }

    void RunInCatalogue(bool full, std::uint64_t times) {
        options.catalogueVfs = vfs.GetName();
        const auto inject = [&](std::uint64_t n) {
            calls.Heal();
            vfs.Inject({n, times, full});
        };
        RunAll(7, false, inject, [&] { return vfs.CountFaults(); });
    }

    FaultyFileCalls calls;
    FaultyVfs vfs;
    LocalWorkload::Settings settings;
    Answered known;
};

TEST_F(FileFaultTest, AnErrorOfTheMediumOnce) {
    Run(EIO, 1);
}

TEST_F(FileFaultTest, AnErrorOfTheMediumForEver) {
    Run(EIO, 0);
}

TEST_F(FileFaultTest, AFullMediumOnce) {
    Run(ENOSPC, 1);
}

TEST_F(FileFaultTest, AFullMediumForEver) {
    Run(ENOSPC, 0);
}

TEST_F(FileFaultTest, AnErrorOfTheMediumUnderTheCatalogueOnce) {
    RunInCatalogue(false, 1);
}

TEST_F(FileFaultTest, AnErrorOfTheMediumUnderTheCatalogueForEver) {
    RunInCatalogue(false, 0);
}

TEST_F(FileFaultTest, AFullMediumUnderTheCatalogueOnce) {
    RunInCatalogue(true, 1);
}

TEST_F(FileFaultTest, AFullMediumUnderTheCatalogueForEver) {
    RunInCatalogue(true, 0);
}

// While nothing more can be written, everything that was answered can be read; when there is room
// again, the store goes on.
TEST_F(FileFaultTest, WhatWasThereStaysReadableWhileTheMediumIsFull) {
    for (std::uint64_t n = 1; n < 400; n += 23) {
        std::filesystem::remove_all(options.directory);
        known = {};
        Open(&calls);
        LocalWorkload workload(*engine, settings, 1000, n);
        workload.onChange = [&](const Answered& now) { Note(now); };
        workload.Recover(known);
        calls.Inject({n, 0, ENOSPC, FileCall::WriteVector});
        bool failed = false;
        for (int step = 0; step < steps && !failed; ++step) {
            try {
                workload.Step();
            } catch (const EngineError&) {
                failed = true;
            }
        }
        ASSERT_TRUE(failed || calls.CountFaults() == 0) << n;
        EXPECT_EQ(LocalWorkload::Check(*engine, settings, known), std::vector<std::string>()) << n;
        calls.Heal();
        Renew(workload);
        for (int step = 0; step < 20; ++step) {
            workload.Step();
        }
        EXPECT_EQ(LocalWorkload::Check(*engine, settings, known), std::vector<std::string>()) << n;
        Close();
        ASSERT_FALSE(HasFailure());
    }
}

TEST_F(FileFaultTest, ACallThatIsCutShortChangesNothing) {
    Run(0, 1);
}

TEST_F(FileFaultTest, ACallThatIsInterruptedChangesNothing) {
    Run(EINTR, 1);
}

}  // namespace
}  // namespace Brantel::Engine
