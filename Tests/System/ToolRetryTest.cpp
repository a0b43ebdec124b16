// A recording whose server is lost: with --retry nothing is missing and nothing is there twice,
// without it the tool says what is stored.

#include "PipeInput.h"
#include "Support/Waiting.h"
#include "ToolFixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/stat.h>

#include <cstdlib>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace Brantel::Tests {
namespace {

using testing::AnyOf;
using testing::HasSubstr;
using testing::MatchesRegex;

class ToolRetryTest : public ToolFixture {
  protected:
    void SetUp() override {
        ToolFixture::SetUp();
        ASSERT_EQ(mkfifo(pipe.c_str(), S_IRWXU), 0);
    }
    std::vector<std::string> Command(const std::vector<std::string>& options) const {
        std::vector<std::string> command{
            ToolRun::Program(), "record", Number(), "--format", "mjpeg",
            "--start",          "0",      "--fps",  "1000"};
        command.insert(command.end(), options.begin(), options.end());
        command.push_back(pipe);
        return command;
    }
    void Kill() {
        server->Process().Signal(SIGKILL);
        server->Process().Wait();
        client.reset();
    }
    // BRANTEL_KILL_CYCLES makes it longer.
    static int CountKills() {
        constexpr int inEveryRun = 5;
        const char* const wanted = std::getenv("BRANTEL_KILL_CYCLES");
        return wanted == nullptr ? inEveryRun : std::atoi(wanted);
    }

    const std::string pipe = folder.File("pipe");
};

TEST_F(ToolRetryTest, AServerThatIsKilledAndStartedAgainMissesNothingAndHasNothingTwice) {
    std::mt19937 random(20'261'121);
    ProgramRun run(Command({"--retry"}), Where());
    const int kills = CountKills();
    int sent = 0;
    PipeInput input(pipe);
    const auto send = [&](int count) {
        for (const int end = sent + count; sent < end; ++sent) {
            input.Write(MakePicture(sent, 2000));
        }
    };
    for (int kill = 0; kill < kills; ++kill) {
        // The kill comes while the pictures are on their way.
        std::thread sender(send, 60);
        const auto wanted =
            static_cast<std::size_t>(kill * 60 + 1 + static_cast<int>(random() % 58));
        ASSERT_TRUE(Eventually([&] { return Times().size() >= wanted; }));
        Kill();
        sender.join();
        Start();
    }
    send(10);
    input.Close();
    ASSERT_EQ(run.Wait(), 0) << run.Errors();
    const std::vector<long> times = Times();
    ASSERT_EQ(times.size(), static_cast<std::size_t>(sent));
    for (int number = 0; number < sent; ++number) {
        ASSERT_EQ(times[static_cast<std::size_t>(number)], number * 1'000'000L);
        ASSERT_EQ(Chunk(number * 1'000'000L).GetData("image"), MakePicture(number, 2000));
    }
    EXPECT_THAT(run.Errors(), HasSubstr("Connected again; the track ends at "));
    EXPECT_THAT(run.Errors(), HasSubstr(": " + std::to_string(sent) + " chunks, "));
}

TEST_F(ToolRetryTest, WithoutRetryTheLossIsToldWithWhatIsStored) {
    ProgramRun run(Command({}), Where());
    PipeInput input(pipe);
    input.Write(MakeMovie(3));
    ASSERT_TRUE(Eventually([&] { return Times().size() == 3; }));
    Kill();
    input.Write(MakePicture(3));
    EXPECT_EQ(run.Wait(), 1) << run.Errors();
    EXPECT_THAT(run.Errors(), HasSubstr("The connection to unix:" + socketPath + " was lost: "));
    // The kill may have come between the last chunk and its answer.
    EXPECT_THAT(run.Errors(),
                AnyOf(HasSubstr("3 chunks are stored, up to 0.002000000; the one at 0.003000000 "
                                "may be or not, those after it are not"),
                      HasSubstr("2 chunks are stored, up to 0.001000000; the one at 0.002000000 "
                                "may be or not, those after it are not")));
    EXPECT_EQ(run.Output(), "");
}

// What the library has to say of the lost connection is no part of the tool's own output.
TEST_F(ToolRetryTest, DiagnosticsOfTheLibraryStayOutOfTheJson) {
    ProgramRun run(Command({"-j"}), Where());
    PipeInput input(pipe);
    input.Write(MakeMovie(1));
    ASSERT_TRUE(Eventually([&] { return Times().size() == 1; }));
    Kill();
    input.Write(MakePicture(1));
    EXPECT_EQ(run.Wait(), 1);
    EXPECT_THAT(run.Errors(), HasSubstr("Storage seems disconnected: "));
    // The kill may have come between the chunk and its answer.
    EXPECT_THAT(run.Output(), MatchesRegex("\\{\"track\":1,\"chunks\":[01],[^\n]*\\}\n"));
}

TEST_F(ToolRetryTest, AServerThatStaysAwayIsGivenUpAfterTheLimit) {
    ProgramRun run(Command({"--retry-for", "100ms"}), Where());
    PipeInput input(pipe);
    input.Write(MakeMovie(1));
    ASSERT_TRUE(Eventually([&] { return Times().size() == 1; }));
    Kill();
    input.Write(MakePicture(1));
    EXPECT_EQ(run.Wait(), 1) << run.Errors();
    EXPECT_THAT(run.Errors(), HasSubstr("No connection to unix:" + socketPath + " for 0.1s: "));
}

TEST_F(ToolRetryTest, AnInterruptEndsTheWaitForTheServer) {
    ProgramRun run(Command({"--retry"}), Where());
    PipeInput input(pipe);
    input.Write(MakeMovie(1));
    ASSERT_TRUE(Eventually([&] { return Times().size() == 1; }));
    Kill();
    input.Write(MakePicture(1));
    ASSERT_TRUE(Eventually([&] { return run.Errors().find("trying again") != std::string::npos; }));
    run.Signal(SIGTERM);
    EXPECT_EQ(run.Wait(), 1) << run.Errors();
    // The kill may have come between the chunk and its answer.
    EXPECT_THAT(run.Errors(),
                AnyOf(HasSubstr("Interrupted without a connection. 1 chunks are stored, up to 0.0"),
                      HasSubstr("Interrupted without a connection. No chunk is known to be stored; "
                                "the one at 0.0")));
}

}  // namespace
}  // namespace Brantel::Tests
