// Every verb with arguments that make no sense: named with the value, exit code 2, nothing changed.

#include "ToolFixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace Brantel::Tests {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

struct Misuse {
    // T: the track, U: an empty one, F: a file of whole pictures, E: an export of the track.
    std::vector<std::string> arguments;
    // Part of what is said.
    std::string says;
    // The verb whose help is named.
    std::string verb;
};

using Misuses = std::vector<Misuse>;

Misuses OfEveryVerb() {
    return {{{"nonsense"}, "There is no verb nonsense", ""},
            {{"--nonsense"}, "There is no option --nonsense", ""},
            {{"track", "nonsense"}, "There is no verb track nonsense", "track"},
            {{"ls", "--server", "ftp:x"}, "Server address ftp:x", "ls"},
            {{"ls", "--server", "tcp:h:65536"}, "port from 1 to 65535", "ls"},
            {{"ls", "--server", ""}, "--server: a value that is empty", "ls"},
            {{"ls", "--timeout", "25h"}, "--timeout 25h is not within 1ms to 24h", "ls"},
            {{"ls", "--timeout", "soon"}, "Duration soon", "ls"},
            {{"ls", "--time-format", "x"}, "x not in", "ls"},
            {{"ls", "--color", "x"}, "x not in", "ls"},
            {{"ls", "-q", "-v"}, "contradict", "ls"},
            {{"ls", "0"}, "0 is not a whole number within 1 to 9223372036854775807", "ls"},
            {{"ls", "9223372036854775808"}, "9223372036854775808 is not a whole number", "ls"},
            {{"ls", "1x"}, "1x is not a whole number", "ls"},
            {{"ls", "-i", "1s"}, "--watch", "ls"},
            {{"ls", "-w", "-i", "0s"}, "The interval must be above 0: 0s", "ls"},
            {{"info"}, "TRACK is required", "info"},
            {{"info", "-1"}, "-1 is not a whole number", "info"},
            {{"top", "-i", "x"}, "Duration x", "top"},
            {{"top", "-i", "0s"}, "The interval must be above 0", "top"}};
}

Misuses OfTracks() {
    return {
        {{"track", "create"}, "SIZE is required", "track create"},
        {{"track", "create", "5XB"}, "Size 5XB", "track create"},
        {{"track", "create", "9223372036854775808"},
         "limit of 9223372036854775807",
         "track create"},
        {{"track", "create", "1M", "--durability", "never"}, "Durability never", "track create"},
        {{"track", "create", "1M", "--durability", "interval:0ms"},
         "Durability interval:0ms",
         "track create"},
        {{"track", "create", "1M", "--retention", "x"}, "x not in", "track create"},
        {{"track", "create", "1M", "--rate", "8Xbit/s"}, "Rate 8Xbit/s", "track create"},
        {{"track", "grow", "T", "0"}, "at least 1 byte", "track grow"},
        {{"track", "grow", "T", "more"}, "Size more", "track grow"},
        {{"track", "clear", "T"}, "give -y to agree", "track clear"},
        {{"track", "clear", "-y", "T", "T"}, "Track 1 is given twice", "track clear"},
        {{"track", "delete", "U"}, "give -y to agree", "track delete"},
        {{"track", "delete", "-y", "T", "T"}, "Track 1 is given twice", "track delete"},
        {{"prop", "get", "T", ""}, "KEY: a value that is empty", "prop get"},
        {{"prop", "set", "T", "=x"}, "Property =x is not KEY=VALUE", "prop set"},
        {{"prop", "set", "T", "a=1", "a=2"}, "Property a is given twice", "prop set"},
        {{"prop", "rm", "T"}, "KEY is required", "prop rm"},
        {{"prop", "rm", "T", ""}, "KEY: a value that is empty", "prop rm"},
        {{"protect", "add", "T", "5s..3s"}, "before it begins", "protect add"},
        {{"protect", "add", "T", "..now+2562047h"}, "is outside of 64 bits", "protect add"},
        {{"protect", "add", "T", "-1000000h..now"}, "before zero", "protect add"},
        {{"protect", "add", "T", "[1s..2s)"}, "Range [1s..2s)", "protect add"},
        {{"protect", "ls", "x"}, "x is not a whole number", "protect ls"},
        {{"protect", "rm", "1"}, "give -y to agree", "protect rm"},
        {{"protect", "rm", "-y", "1", "1"}, "Protection 1 is given twice", "protect rm"},
        {{"protect", "rm", "x"}, "x is not a whole number", "protect rm"},
        {{"worker", "ls", "x"}, "not expected: x", "worker ls"},
        {{"command", "ls", "x"}, "not expected: x", "command ls"},
        {{"command", "watch", "-1"}, "-1 is not a whole number", "command watch"}};
}

Misuses OfChunks() {
    return {
        {{"ping", "-n", "0"}, "0 is not a whole number within 1 to 1000000000", "ping"},
        {{"ping", "-i", "x"}, "Duration x", "ping"},
        {{"record", "T", "F"}, "--format is required", "record"},
        {{"record", "T", "--format", "mjpeg", "--key", "", "F"},
         "--key: a value that is empty",
         "record"},
        {{"record", "T", "--format", "mjpeg", "--start", "-100000d", "F"}, "before 0", "record"},
        {{"record", "T", "--format", "mjpeg", "--fps", "1/0", "F"}, "'1/0' is no rate", "record"},
        {{"record", "T", "--format", "lines", "--time-field", "0", "F"},
         "the first field is 1",
         "record"},
        {{"record", "T", "--format", "raw", "--rate", "5x", "F"}, "Rate 5x", "record"},
        {{"play", "T", "5s..3s"}, "before it begins", "play"},
        {{"play", "T", "1s+"}, "Range 1s+", "play"},
        {{"play", "T", "--keys", ""}, "--keys: a value that is empty", "play"},
        {{"play", "T", "-o", ""}, "--output: a value that is empty", "play"},
        {{"play", "T", "-j", "--format", "record"}, "Either --json or --format record", "play"},
        {{"play", "T", "-j", "--preview"}, "Either --preview or --json", "play"},
        {{"get", "T", "13:1000000000"}, "more than 999999999 ns", "get"},
        {{"get", "T", "12345"}, "has 5 digits", "get"},
        {{"get", "T", "2024-02-30"}, "Time 2024-02-30 is no date", "get"},
        {{"get", "T", "5s", "-f"}, "it goes with -o", "get"},
        {{"get", "T", "5s", "-j", "--format", "record"}, "Either --json", "get"},
        {{"tail", "T", "-n", "-1"}, "-1 is not a whole number within 0 to 1000000000", "tail"},
        {{"tail", "T", "-i", "1s"}, "--follow", "tail"},
        {{"tail", "T", "-f", "-i", "0s"}, "The interval must be above 0", "tail"},
        {{"tail", "T", "--stats"}, "it goes with -f", "tail"}};
}

Misuses OfFiles() {
    return {{{"export", "T", "5s..3s", "new"}, "before it begins", "export"},
            {{"export", "T", ""}, "a value that is empty", "export"},
            {{"export", "T", "a", "b", "c"}, "At Most 2 required", "export"},
            {{"import", "E", "--size", "x"}, "Size x", "import"},
            {{"import", "E", "--size", "0", "--new"}, "at least 1 byte", "import"},
            {{"import", "E", "--size", "5M"}, "brantel track grow", "import"},
            {{"import", "E", "--track", "0"}, "0 is not a whole number", "import"},
            {{"gaps", "T", "--min", "x"}, "Duration x", "gaps"},
            {{"gaps", "T", "5s..3s"}, "before it begins", "gaps"},
            {{"graph", "T", "--width", "100001"}, "within 1 to 100000", "graph"},
            {{"graph", "T", "soon"}, "Range soon", "graph"},
            {{"du", "x"}, "x is not a whole number", "du"},
            {{"check", ""}, "WHAT: a value that is empty", "check"},
            {{"check", "T", "x"}, "not expected: x", "check"},
            {{"recover", "E"}, "OUT is required", "recover"},
            {{"recover", "E", ""}, "OUT: a value that is empty", "recover"},
            {{"bench", "write"}, "write not in", "bench"},
            {{"bench", "--writers", "257"}, "within 1 to 256", "bench"},
            {{"bench", "--durability", "sometimes"}, "Durability sometimes", "bench"},
            {{"bench", "--chunk-size", "x"}, "Size x", "bench"},
            {{"completion", "tcsh"}, "tcsh not in", "completion"},
            {{"completion"}, "SHELL is required", "completion"}};
}

Misuses AllMisuses() {
    Misuses all;
    for (const Misuses& some : {OfEveryVerb(), OfTracks(), OfChunks(), OfFiles()}) {
        all.insert(all.end(), some.begin(), some.end());
    }
    return all;
}

class ToolMisuseTest : public ToolFixture {
  protected:
    void SetUp() override {
        ToolFixture::SetUp();
        movie = WriteFile("movie", MakeMovie(3));
        ASSERT_EQ(Tool({"record", Number(), "--format", "mjpeg", "--start", "1s", movie}), 0);
        ASSERT_EQ(Tool({"export", Number(), exported}), 0) << errors;
        client->SetTrackProperties(track, {{"a", "b"}});
        unused = CreateTrack(*client);
        ASSERT_EQ(client->Protect(track, Time::TimePoint::Nanoseconds(0),
                                  Time::TimePoint::Nanoseconds(1'500'000'000)),
                  1);
    }
    int Run(std::vector<std::string> arguments) {
        for (std::string& argument : arguments) {
            argument = argument == "U"   ? std::to_string(unused)
                       : argument == "T" ? Number()
                       : argument == "F" ? movie
                       : argument == "E" ? exported
                                         : argument;
        }
        return Tool(arguments);
    }
    // Everything that a verb could have changed.
    std::string State() const {
        std::string state;
        for (const auto& info : client->GetTrackInfos(client->ListTracks())) {
            state += std::to_string(info.trackId) + ":" + std::to_string(info.size) + "/" +
                     std::to_string(info.capacity) + " ";
        }
        for (const auto& [key, value] : client->GetTrackProperties(track)) {
            state += key;
            state += "=" + value + " ";
        }
        state +=
            std::to_string(client->ListProtections().size()) + " " + std::to_string(Times().size());
        std::set<std::string> files;
        for (const auto& entry : std::filesystem::directory_iterator(folder.Path())) {
            files.insert(entry.path().filename().string());
        }
        return state + testing::PrintToString(files) + ReadFile(exported);
    }

    const std::string exported = folder.File("exported");
    std::string movie;
    long unused = 0;
};

TEST_F(ToolMisuseTest, IsNamedWithTheValueAndChangesNothing) {
    const std::string before = State();
    for (const Misuse& wrong : AllMisuses()) {
        SCOPED_TRACE(testing::PrintToString(wrong.arguments));
        EXPECT_EQ(Run(wrong.arguments), 2) << errors;
        EXPECT_EQ(said, "");
        EXPECT_THAT(errors, StartsWith("brantel: "));
        EXPECT_THAT(errors, HasSubstr(wrong.says));
        EXPECT_THAT(errors, EndsWith("Try: brantel " + wrong.verb +
                                     (wrong.verb.empty() ? "" : " ") + "--help\n"));
    }
    EXPECT_EQ(State(), before);
}

// A verb that is added gets its rows.
TEST_F(ToolMisuseTest, IsTriedWithEveryVerb) {
    std::set<std::string> tried;
    for (const Misuse& wrong : AllMisuses()) {
        tried.insert(wrong.verb);
    }
    ASSERT_EQ(Shell("$TOOL manual . 2024-05-01 && ls brantel-*.1"), 0) << errors;
    std::istringstream pages(said);
    for (std::string page; std::getline(pages, page);) {
        // brantel-track-create.1
        std::string verb = page.substr(page.find('-') + 1);
        verb.resize(verb.size() - std::string_view(".1").size());
        std::replace(verb.begin(), verb.end(), '-', ' ');
        const std::set<std::string> families{"prop", "protect", "worker", "command"};
        EXPECT_TRUE(tried.count(verb) == 1 || families.count(verb) == 1) << verb;
    }
}

}  // namespace
}  // namespace Brantel::Tests
