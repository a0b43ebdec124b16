// What a server is told by its file, its environment and its arguments, and what it shows of that.

#include "Support/ServerProcess.h"
#include "Support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace Brantel::Tests {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

class ServerConfigTest : public testing::Test {
  protected:
    using Changes = std::vector<std::pair<std::string, std::string>>;

    std::string Write(const std::string& text) const {
        const std::string path = folder.File("storage.toml");
        std::ofstream(path) << text;
        return path;
    }
    // What a server prints that ends at once with this exit code.
    static std::string Show(const std::vector<std::string>& arguments, int exitCode,
                            const Changes& environment = {}) {
        std::vector<std::string> command = {ServerProcess::Program()};
        command.insert(command.end(), arguments.begin(), arguments.end());
        ProgramRun run(command, environment);
        EXPECT_EQ(run.Wait(), exitCode) << run.Errors();
        EXPECT_EQ((exitCode == 0 ? run.Errors() : run.Output()), "");
        return exitCode == 0 ? run.Output() : run.Errors();
    }

    TemporaryFolder folder;
};

TEST_F(ServerConfigTest, ItServesAsItsFileSays) {
    const std::string file = Write("message-limit = '64KiB'\n");
    const ServerProcess server(folder.File("a.sock"), {"--config", file});
    const auto client = server.ConnectOverUnix();
    const long track = CreateTrack(*client);
    AppendChunk(*client, track, 1, std::string(60'000, 'a'));
    EXPECT_THROW(AppendChunk(*client, track, 2, std::string(70'000, 'a')), std::runtime_error);
}

TEST_F(ServerConfigTest, WhatIsInForceIsShownWithWhereItComesFrom) {
    const std::string file = Write("engine = 'memory'\nmax-ids = 3\nmax-depth = 9\n");
    const std::string shown =
        Show({"--config", file, "--check-config", "--max-connections", "5", "--listen", "unix:/a"},
             0, {{"BRANTEL_MAX_DEPTH", "10"}});
    EXPECT_THAT(shown, HasSubstr("\nmax-ids = 3  # " + file + ":2\n"));
    EXPECT_THAT(shown, HasSubstr("\nmax-depth = 10  # environment\n"));
    EXPECT_THAT(shown, HasSubstr("\nmax-connections = 5  # flag\n"));
    EXPECT_THAT(shown, HasSubstr("\nlog-format = \"text\"  # default\n"));
    EXPECT_THAT(shown, HasSubstr("#   unix:/a\n#     root"));
}

TEST_F(ServerConfigTest, AWrongFileIsRefusedInBothWays) {
    const std::string file = Write("\nmax-ids = 0\n");
    const std::string reason =
        "brantel-storaged: " + file + ":2: max-ids = 0: 0 is not within 1 to 16777216\n";
    EXPECT_EQ(Show({"--config", file, "--check-config"}, 1), reason);
    EXPECT_EQ(Show({"--config", file, "--engine", "memory"}, 1), reason);
    EXPECT_EQ(
        Show({"--config", folder.File("nowhere")}, 1),
        "brantel-storaged: " + folder.File("nowhere") +
            ": the settings could not be read: No such file or directory; name another file by "
            "--config, or none by --config \"\"\n");
}

TEST_F(ServerConfigTest, AnUnknownKeyIsRefusedWithItsLine) {
    const std::string file = Write("max-ids = 1\ncolour = 'red'\n");
    EXPECT_THAT(Show({"--config", file, "--check-config"}, 1),
                StartsWith("brantel-storaged: " + file + ":2: unknown key colour;"));
}

TEST_F(ServerConfigTest, TheInstalledExampleIsWhatTheProgramPrints) {
    std::ifstream file(BRANTEL_EXAMPLE_SETTINGS);
    const std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    EXPECT_EQ(Show({"--print-example-config"}, 0), text)
        << "brantel-storaged --print-example-config makes it anew";
}

}  // namespace
}  // namespace Brantel::Tests
