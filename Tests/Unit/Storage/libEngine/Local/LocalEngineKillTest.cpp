#include "Support/ChildProcess.h"
#include "Support/LocalStoreTest.h"
#include "Support/LocalWorkload.h"
#include "Support/ProofSize.h"

#include <gtest/gtest.h>

#include <signal.h>
#include <sys/mman.h>
#include <time.h>

#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <random>
#include <string>
#include <vector>

namespace Brantel::Engine {
namespace {

// Memory that outlives a killed child: where it notes what was answered.
class SharedAnswers {
  public:
    SharedAnswers()
        : answers(new (mmap(nullptr, sizeof(Answered), PROT_READ | PROT_WRITE,
                            MAP_SHARED | MAP_ANONYMOUS, -1, 0)) Answered) {}
    ~SharedAnswers() { munmap(answers, sizeof(Answered)); }
    SharedAnswers(const SharedAnswers&) = delete;
    SharedAnswers& operator=(const SharedAnswers&) = delete;

    Answered& Get() { return *answers; }

  private:
    Answered* const answers;
};

class LocalEngineKillTest : public LocalStoreTest {
  protected:
    static constexpr std::uint64_t maxHeard = 16;

    // How often the writer is killed in each of the three tests.
    static int GetCycles() {
        const char* wanted = std::getenv("BRANTEL_KILL_CYCLES");
        return wanted == nullptr ? static_cast<int>(Tests::ProofSize(70, 700)) : std::atoi(wanted);
    }

    // A child that writes until it is killed, a random time after a random number of operations;
    // every third one while it may still be opening the store.
    void WriteAndKill(Epoch epoch, std::uint64_t seed) {
        const bool early = epoch % 3 == 0;
        Tests::ChildProcess child([&](int channel) {
            if (early) {
                Tests::ChildProcess::Say(channel);
            }
            Open();
            LocalWorkload workload(*engine, settings, epoch, seed);
            workload.onChange = [&](const Answered& now) { answers.Get() = now; };
            workload.Recover(answers.Get());
            if (!early) {
                Tests::ChildProcess::Say(channel);
            }
            for (std::uint64_t step = 0;; ++step) {
                workload.Step();
                if (!early && step < maxHeard) {
                    Tests::ChildProcess::Say(channel);
                }
            }
            return 0;
        });
        ASSERT_TRUE(child.Hear());
        for (std::uint64_t heard = early ? maxHeard : random() % maxHeard; heard < maxHeard;
             ++heard) {
            ASSERT_TRUE(child.Hear());
        }
        const timespec pause{0, static_cast<long>(random() % (early ? 16'000'000 : 4'000'000))};
        nanosleep(&pause, nullptr);
        kill(child.Id(), SIGKILL);
    }

    void Run(const char* durability) {
        const int cycles = GetCycles();
        for (int cycle = 0; cycle < cycles; ++cycle) {
            WriteAndKill(static_cast<Epoch>(cycle) + 1, random());
            ASSERT_FALSE(HasFatalFailure());
            Open();
            const std::vector<std::string> problems =
                LocalWorkload::Check(*engine, settings, answers.Get());
            ASSERT_EQ(problems, std::vector<std::string>()) << "cycle " << cycle;
            Close();
            ASSERT_EQ(Reports(), std::vector<std::string>()) << "cycle " << cycle;
        }
        const Answered& all = answers.Get();
        std::printf("killed %d times with durability %s: %" PRIu64 " chunks and %" PRIu64
                    " records answered, none lost, none invented\n",
                    cycles, durability, all.chunks, all.record);
        EXPECT_GT(all.chunks, static_cast<std::uint64_t>(cycles));
        RecordProperty("cycles", cycles);
    }

    SharedAnswers answers;
    LocalWorkload::Settings settings;
    std::mt19937_64 random{20};
};

TEST_F(LocalEngineKillTest, NothingAnsweredIsLostAndNothingIsInventedWithAlways) {
    settings.durability = {Durability::Mode::Always, {}};
    Run("always");
}

TEST_F(LocalEngineKillTest, NothingAnsweredIsLostAndNothingIsInventedWithOs) {
    settings.durability = {Durability::Mode::Os, {}};
    Run("os");
}

TEST_F(LocalEngineKillTest, NothingAnsweredIsLostAndNothingIsInventedWithAnyDurability) {
    settings.mixDurability = true;
    Run("always, interval and os, mixed");
}

}  // namespace
}  // namespace Brantel::Engine
