#include "Support/ChildProcess.h"
#include "Support/LocalStoreTest.h"
#include "Support/LocalWorkload.h"

#include <gtest/gtest.h>

#include <signal.h>
#include <sys/mman.h>
#include <time.h>

#include <cstdint>
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
    static int Cycles(int usual) { return std::getenv("BRANTEL_PROVE") != nullptr ? 2000 : usual; }

    // A child that writes until it is killed, after a random time.
    void WriteAndKill(Epoch epoch, std::uint64_t seed) {
        Tests::ChildProcess child([&](int channel) {
            Open();
            LocalWorkload workload(*engine, settings, epoch, seed);
            workload.onChange = [&](const Answered& now) { answers.Get() = now; };
            workload.Recover(answers.Get());
            Tests::ChildProcess::Say(channel);
            while (true) {
                workload.Step();
            }
            return 0;
        });
        ASSERT_TRUE(child.Hear());
        const timespec pause{0, static_cast<long>(random() % 8'000'000)};
        nanosleep(&pause, nullptr);
        kill(child.Id(), SIGKILL);
    }

    void Run(int cycles) {
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
        RecordProperty("chunks", static_cast<int>(answers.Get().chunks));
        EXPECT_GT(answers.Get().chunks, static_cast<std::uint64_t>(cycles));
    }

    SharedAnswers answers;
    LocalWorkload::Settings settings;
    std::mt19937_64 random{20};
};

TEST_F(LocalEngineKillTest, NothingAnsweredIsLostAndNothingIsInventedWithAlways) {
    settings.durability = {Durability::Mode::Always, {}};
    Run(Cycles(70));
}

TEST_F(LocalEngineKillTest, NothingAnsweredIsLostAndNothingIsInventedWithOs) {
    settings.durability = {Durability::Mode::Os, {}};
    Run(Cycles(70));
}

TEST_F(LocalEngineKillTest, NothingAnsweredIsLostAndNothingIsInventedWithAnyDurability) {
    settings.mixDurability = true;
    Run(Cycles(70));
}

}  // namespace
}  // namespace Brantel::Engine
