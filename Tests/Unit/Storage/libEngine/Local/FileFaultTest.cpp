#include "Support/FaultyFileCalls.h"
#include "Support/LocalStoreTest.h"
#include "Support/LocalWorkload.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
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

    void Run(int error, std::uint64_t times) {
        const std::uint64_t stride = std::getenv("BRANTEL_PROVE") != nullptr ? 1 : 5;
        bool reached = true;
        for (std::uint64_t n = 1; reached; n += stride) {
            std::filesystem::remove_all(options.directory);
            known = {};
            calls.Heal();
            calls.Inject({n, times, error, std::nullopt});
            const int failures = Live(1000);
            reached = calls.CountFaults() > 0;
            if (error == 0 || error == EINTR) {
                EXPECT_EQ(failures, 0) << "call " << n;
            }
            CheckAfter("call " + std::to_string(n));
            ASSERT_FALSE(HasFailure());
        }
    }

    FaultyFileCalls calls;
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

TEST_F(FileFaultTest, ACallThatIsCutShortChangesNothing) {
    Run(0, 1);
}

TEST_F(FileFaultTest, ACallThatIsInterruptedChangesNothing) {
    Run(EINTR, 1);
}

}  // namespace
}  // namespace Brantel::Engine
