// Completion and manual: made from the same declarations as the help, and fit for the shells and
// the formatter that read them.

#include "Support/ServerProcess.h"
#include "Support/TemporaryFolder.h"
#include "ToolRun.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace Brantel::Tests {
namespace {

using testing::AllOf;
using testing::Contains;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

// Where the program of this name is; empty when it is not installed.
std::string PathOf(const std::string& program) {
    for (const char* const folder : {"/usr/bin/", "/bin/"}) {
        if (access((folder + program).c_str(), X_OK) == 0) {
            return folder + program;
        }
    }
    return {};
}

std::set<std::string> Words(const std::string& text) {
    std::istringstream stream(text);
    std::set<std::string> words;
    for (std::string word; stream >> word;) {
        words.insert(word);
    }
    return words;
}

// The verbs that the help lists below this one, in this row.
std::set<std::string> VerbsInHelp(const std::vector<std::string>& verb) {
    std::vector<std::string> arguments = verb;
    arguments.emplace_back("--help");
    const std::string help = ToolRun(arguments).Output();
    std::istringstream lines(help.substr(std::min(help.find("Subcommands:"), help.size())));
    std::set<std::string> verbs;
    std::string line;
    std::getline(lines, line);
    while (std::getline(lines, line) && line.starts_with("  ")) {
        verbs.insert(line.substr(2, line.find(' ', 2) - 2));
    }
    return verbs;
}

class ToolCompletionTest : public testing::TestWithParam<const char*> {
  protected:
    std::string Script(const std::string& shell) const {
        const ToolRun run({"completion", shell}, {{"BRANTEL_SERVER", "nonsense"}});
        EXPECT_EQ(run.ExitCode(), 0) << run.Errors();
        const std::string path = folder.File("script." + shell);
        std::ofstream(path) << run.Output();
        return path;
    }

    TemporaryFolder folder;
};

TEST_P(ToolCompletionTest, TheShellReadsTheScript) {
    const std::string shell = PathOf(GetParam());
    if (shell.empty()) {
        GTEST_SKIP() << GetParam() << " is not installed";
    }
    ProgramRun run({shell, "-n", Script(GetParam())});
    EXPECT_EQ(run.Wait(), 0) << run.Errors();
    EXPECT_EQ(run.Errors(), "");
}

TEST_P(ToolCompletionTest, EveryVerbOfTheHelpIsInTheScript) {
    const std::string script = ToolRun({"completion", GetParam()}).Output();
    const std::set<std::string> verbs = VerbsInHelp({});
    EXPECT_THAT(verbs, Contains("track"));
    for (const std::string& verb : verbs) {
        EXPECT_THAT(script, HasSubstr(verb));
    }
}

INSTANTIATE_TEST_SUITE_P(Shells, ToolCompletionTest, testing::Values("bash", "zsh", "fish"));

class ToolBashTest : public ToolCompletionTest {
  protected:
    // What bash offers for the last of these words.
    std::set<std::string> Offers(const std::string& words) const {
        const std::string command =
            "PATH=" + std::filesystem::path(ToolRun::Program()).parent_path().string() +
            ":$PATH; source " + Script("bash") + "; COMP_WORDS=(" + words +
            "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _brantel; echo \"${COMPREPLY[@]}\"";
        ProgramRun run({PathOf("bash"), "-c", command}, {{"BRANTEL_SERVER", "unix:" + socketPath}});
        EXPECT_EQ(run.Wait(), 0);
        EXPECT_EQ(run.Errors(), "");
        return Words(run.Output());
    }

    const std::string socketPath = folder.File("storage.sock");
};

TEST_F(ToolBashTest, VerbsAreOfferedWhereTheyFit) {
    EXPECT_THAT(Offers("brantel ''"), AllOf(Contains("track"), Contains("ls"), Contains("--json"),
                                            Not(Contains("create"))));
    EXPECT_EQ(Offers("brantel track c"), (std::set<std::string>{"create", "clear"}));
    EXPECT_EQ(Offers("brantel -j worker ''").count("ls"), 1U);
}

TEST_F(ToolBashTest, OptionsAndTheirValuesAreOffered) {
    EXPECT_EQ(Offers("brantel track create --re"), (std::set<std::string>{"--retention"}));
    EXPECT_EQ(Offers("brantel track create --retention ''"),
              (std::set<std::string>{"loop", "stop"}));
    EXPECT_EQ(Offers("brantel ls --color a"), (std::set<std::string>{"auto", "always"}));
    EXPECT_EQ(Offers("brantel completion ''").count("fish"), 1U);
}

TEST_F(ToolBashTest, TheTracksOfTheServerAreOffered) {
    const ServerProcess server(socketPath);
    const auto client = server.ConnectOverUnix();
    CreateTrack(*client);
    CreateTrack(*client);
    EXPECT_THAT(Offers("brantel info ''"), AllOf(Contains("1"), Contains("2")));
}

TEST_F(ToolBashTest, WithoutAServerOnlyTheTracksAreMissing) {
    EXPECT_THAT(Offers("brantel info ''"), AllOf(Contains("--json"), Not(Contains("1"))));
}

class ToolFishTest : public ToolCompletionTest {
  protected:
    void SetUp() override {
        if (PathOf("fish").empty()) {
            GTEST_SKIP() << "fish is not installed";
        }
    }
    // What fish offers for the last word of this line, with the descriptions.
    std::string Offers(const std::string& line) const {
        ProgramRun run({PathOf("fish"), "-N", "-c",
                        "source " + Script("fish") + "; complete -C '" + line + "'"},
                       {{"HOME", folder.Path()}});
        EXPECT_EQ(run.Wait(), 0);
        EXPECT_EQ(run.Errors(), "");
        return run.Output();
    }
};

TEST_F(ToolFishTest, VerbsOptionsAndValuesAreOffered) {
    EXPECT_EQ(Offers("brantel track c"),
              "clear\tDrops all chunks of tracks that no protection holds\n"
              "create\tMakes a track\n");
    EXPECT_THAT(Offers("brantel track create --re"), StartsWith("--retention\t"));
    EXPECT_EQ(Words(Offers("brantel completion ")), (std::set<std::string>{"bash", "fish", "zsh"}));
}

TEST(ToolCompletionMisuseTest, AnUnknownShellIsMisuse) {
    EXPECT_EQ(ToolRun({"completion", "tcsh"}).ExitCode(), 2);
    EXPECT_EQ(ToolRun({"completion"}).ExitCode(), 2);
}

class ToolManualTest : public testing::Test {
  protected:
    std::vector<std::string> Pages() const {
        const ToolRun run({"manual", folder.Path(), "2024-05-01"});
        EXPECT_EQ(run.ExitCode(), 0) << run.Errors();
        std::vector<std::string> pages;
        for (const auto& entry : std::filesystem::directory_iterator(folder.Path())) {
            pages.push_back(entry.path().string());
        }
        return pages;
    }

    TemporaryFolder folder;
};

TEST_F(ToolManualTest, EveryVerbHasAPage) {
    const std::vector<std::string> pages = Pages();
    EXPECT_THAT(pages, Contains(folder.File("brantel.1")));
    for (const std::string& verb : VerbsInHelp({})) {
        EXPECT_THAT(pages, Contains(folder.File("brantel-" + verb + ".1")));
    }
    for (const std::string& verb : VerbsInHelp({"track"})) {
        EXPECT_THAT(pages, Contains(folder.File("brantel-track-" + verb + ".1")));
    }
}

TEST_F(ToolManualTest, TheFormatterHasNothingToWarnOf) {
    const std::string formatter = PathOf("mandoc");
    if (formatter.empty()) {
        GTEST_SKIP() << "mandoc is not installed";
    }
    std::vector<std::string> command{formatter, "-T", "lint", "-W", "warning"};
    for (const std::string& page : Pages()) {
        command.push_back(page);
    }
    ProgramRun run(command);
    EXPECT_EQ(run.Wait(), 0);
    EXPECT_EQ(run.Output(), "");
}

TEST_F(ToolManualTest, AFolderThatIsMissingIsAFailure) {
    const ToolRun run({"manual", folder.File("none"), "2024-05-01"});
    EXPECT_EQ(run.ExitCode(), 1);
    EXPECT_THAT(run.Errors(),
                StartsWith("brantel: Writing " + folder.File("none") + "/brantel.1 failed"));
}

}  // namespace
}  // namespace Brantel::Tests
