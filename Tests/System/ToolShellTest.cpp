// What a person sees who types into a shell or looks at pictures: completion by the Tab key,
// colours, bars, and no bytes that would upset the terminal.

#include "ScriptedServer.h"
#include "Support/Waiting.h"
#include "TerminalRun.h"
#include "ToolFixture.h"

#include <libProtocolX/IStorageWriterX.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <unistd.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace Brantel::Tests {
namespace {

using testing::ContainsRegex;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;

class ToolTabTest : public ToolFixture {
  protected:
    const std::string clearLine = "\x15";

    // A shell without any settings of the user, that has read the completion.
    std::unique_ptr<TerminalRun> Start(const std::string& shell,
                                       const std::vector<std::string>& options) {
        const std::string program = "/usr/bin/" + shell;
        if (access(program.c_str(), X_OK) != 0) {
            return nullptr;
        }
        std::vector<std::string> command{program};
        command.insert(command.end(), options.begin(), options.end());
        ToolRun::Environment environment = Where();
        environment.emplace_back("HOME", folder.Path());
        environment.emplace_back("PS1", "> ");
        const std::string tools = std::filesystem::path(ToolRun::Program()).parent_path().string();
        environment.emplace_back("PATH", tools + ":/usr/bin:/bin");
        return std::make_unique<TerminalRun>(command, environment);
    }
};

TEST_F(ToolTabTest, ZshCompletesAVerbAndATrack) {
    const auto shell = Start("zsh", {"-f", "-i"});
    if (!shell) {
        GTEST_SKIP() << "zsh is not installed";
    }
    shell->Type(
        "PS1='ready> '; autoload -U compinit; compinit -u -D; "
        "source <(brantel completion zsh); echo lo''aded\n");
    ASSERT_TRUE(shell->Await("loaded")) << shell->Text();
    ASSERT_TRUE(shell->Await("ready> "));
    shell->Type("brantel track del\t");
    ASSERT_TRUE(shell->Await("delete")) << shell->Text();
    shell->Type(clearLine + "brantel info \t");
    ASSERT_TRUE(shell->Await("\n" + Number())) << shell->Text();
    shell->Type(Number() + "\n");
    ASSERT_TRUE(shell->Await("Track " + Number())) << shell->Text();
}

TEST_F(ToolTabTest, BashCompletesAVerbAndATrack) {
    const auto shell = Start("bash", {"--norc", "--noprofile", "-i"});
    ASSERT_TRUE(shell);
    shell->Type("source <(brantel completion bash); echo lo''aded\n");
    ASSERT_TRUE(shell->Await("loaded\r\n")) << shell->Text();
    shell->Type("brantel track del\t");
    ASSERT_TRUE(shell->Await("delete ")) << shell->Text();
    shell->Type(clearLine + "brantel info --timeo\t");
    ASSERT_TRUE(shell->Await("--timeout ")) << shell->Text();
    shell->Type(clearLine + "brantel info " + Number() + "\n");
    ASSERT_TRUE(shell->Await("Track " + Number())) << shell->Text();
}

class ToolPreviewTest : public ToolFixture {
  protected:
    // Two pictures, 40 ms apart.
    void RecordPictures(const std::string& color) {
        ASSERT_EQ(Shell("ffmpeg -v error -f lavfi -i color=c=" + color +
                        ":size=64x48:rate=25 -frames:v 2 -f mjpeg - | "
                        "$TOOL record $TRACK --format mjpeg --fps 25 --start 0"),
                  0)
            << errors;
    }
};

TEST_F(ToolPreviewTest, ATerminalShowsThePicturesInTheirColors) {
    RecordPictures("red");
    TerminalRun run({ToolRun::Program(), "play", Number(), "--preview"}, Where());
    EXPECT_EQ(run.Wait(), 0) << run.Text();
    // Half a row is the letter's colour, the other half the one behind it; decoders differ by 1.
    EXPECT_THAT(run.Text(), ContainsRegex("\x1b\\[38;2;25[3-5];0;0m\x1b\\[48;2;25[3-5];0;0m▀"));
    // The second picture is drawn over the first one.
    EXPECT_THAT(run.Text(), ContainsRegex("0\\.000000000\x1b\\[K\r\n\x1b\\[[0-9]+A\r"));
    EXPECT_THAT(run.Text(), HasSubstr("0.040000000"));
}

TEST_F(ToolPreviewTest, WithoutColorsItIsMadeOfLetters) {
    RecordPictures("white");
    TerminalRun run({ToolRun::Program(), "play", Number(), "--preview", "--color", "never"},
                    Where());
    EXPECT_EQ(run.Wait(), 0) << run.Text();
    EXPECT_THAT(run.Text(), HasSubstr("@@@@@@@@"));
    EXPECT_THAT(run.Text(), Not(HasSubstr("\x1b[38;2")));
}

class ToolPlainTerminalTest : public ToolFixture {
  protected:
    void Append(long time, const std::string& bytes) {
        AppendChunk(*client, track, time, bytes);
        client->CloseTrackWriter(track);
    }
    int OnTerminal(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), ToolRun::Program());
        TerminalRun run(arguments, Where());
        const int exitCode = run.Wait();
        said = run.Text();
        return exitCode;
    }
};

TEST_F(ToolPlainTerminalTest, BytesThatAreNoTextAreKeptFromIt) {
    Append(1, std::string("\x1b[2J\0\xff", 6));
    for (const std::vector<std::string>& verb : {std::vector<std::string>{"play", Number()},
                                                 {"play", Number(), "--format", "record"},
                                                 {"get", Number(), "0:1"},
                                                 {"tail", Number()}}) {
        EXPECT_EQ(OnTerminal(verb), 2);
        EXPECT_THAT(said, HasSubstr("brantel: The data are no text, and a terminal can't show "));
        EXPECT_THAT(said, Not(HasSubstr("\x1b[2J")));
    }
    EXPECT_EQ(OnTerminal({"play", Number(), "-j"}), 0) << said;
}

TEST_F(ToolPlainTerminalTest, TextIsShown) {
    Append(1, "a line, größer\n");
    EXPECT_EQ(OnTerminal({"play", Number(), "-q"}), 0);
    EXPECT_EQ(said, "a line, größer\r\n");
}

// Nobody sits there: lines, the first one after a second, instead of a bar.
TEST(ToolProgressTest, ElsewhereThanOnATerminalThereAreLines) {
    const TemporaryFolder folder;
    const std::string socketPath = folder.File("storage.sock");
    ScriptedServer server(socketPath);
    server.Set(Protocol::CommandInfo::ONGOING, 40);
    ProgramRun run(
        {ToolRun::Program(), "track", "create", "100MiB", "--server", "unix:" + socketPath});
    ASSERT_TRUE(Eventually([&] { return run.Errors().find('\n') != std::string::npos; }));
    server.Set(Protocol::CommandInfo::FINISHED, 100);
    EXPECT_EQ(run.Wait(), 0);
    EXPECT_THAT(run.Errors(),
                MatchesRegex("Creating track 1  40\\.0 MiB of 100 MiB  [0-9.]+ MiB/s  [^\r\n]+ "
                             "left\nCreating track 1  100 MiB of 100 MiB  [^\r\n]+\n"));
    EXPECT_EQ(run.Output(), "Track 1 created, 100 MiB\n");
}

}  // namespace
}  // namespace Brantel::Tests
