#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <StorageServer/CommandLine.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace {

using Brantel::Engine::Durability;
using Brantel::Server::CommandLine;
using Brantel::Server::LogLevel;
using Brantel::Server::LogOptions;
using Brantel::Server::Role;
using Brantel::Server::ServerLimits;
using Brantel::Server::ServerOptions;
using Brantel::Server::StoreJob;
using Brantel::Services::PeerAddress;
using testing::HasSubstr;
using testing::StartsWith;

class CommandLineTest : public testing::Test {
  protected:
    // A command line that is right, and more behind it.
    static CommandLine Parse(const std::vector<std::string>& more) {
        std::vector<std::string> arguments = {"--engine", "memory", "--listen", "unix:/run/a.sock"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return ParseAlone(arguments);
    }
    static CommandLine ParseAlone(const std::vector<std::string>& arguments) {
        return CommandLine::Parse(arguments, {{"paper", true}, {"memory", false}});
    }
    static void ExpectMisuse(const CommandLine& parsed, const std::string& reason) {
        EXPECT_FALSE(parsed.options.has_value());
        EXPECT_EQ(parsed.exitCode, 2);
        EXPECT_THAT(parsed.text, StartsWith("brantel-storaged: "));
        EXPECT_THAT(parsed.text, HasSubstr(reason));
        EXPECT_THAT(parsed.text, HasSubstr("Usage: brantel-storaged [OPTIONS]"));
    }
};

TEST_F(CommandLineTest, OneAddressAndAnEngineWithoutFilesAreEnough) {
    const CommandLine parsed = Parse({});
    ASSERT_TRUE(parsed.options.has_value()) << parsed.text;
    EXPECT_EQ(parsed.options->listen.size(), 1U);
    EXPECT_EQ(parsed.options->listen.at(0).path, "/run/a.sock");
    EXPECT_EQ(parsed.options->engine, "memory");
}

TEST_F(CommandLineTest, WhatIsNotSaidHasADefault) {
    const CommandLine parsed = Parse({});
    ASSERT_TRUE(parsed.options.has_value()) << parsed.text;
    EXPECT_EQ(parsed.options->socketMode, 0660U);
    EXPECT_EQ(parsed.options->capacity, std::nullopt);
    EXPECT_EQ(parsed.options->keepFree, 268'435'456U);
    EXPECT_TRUE(parsed.options->writesNewSpace);
    EXPECT_EQ(parsed.options->durability.mode, Durability::Mode::Always);
    EXPECT_EQ(parsed.options->limits.messageBytes, 268'435'456U);
    EXPECT_EQ(parsed.options->limits.connections, 4096U);
    EXPECT_EQ(parsed.options->limits.workersPerConnection, 1024U);
    EXPECT_EQ(parsed.options->limits.bytesInFlight, 536'870'912U);
    EXPECT_EQ(parsed.options->limits.transferRate, 65'536U);
    EXPECT_EQ(parsed.options->limits.transferGraceMilliseconds, 10'000U);
    EXPECT_EQ(parsed.options->limits.elements, 65'536U);
    EXPECT_EQ(parsed.options->limits.depth, 8U);
    EXPECT_EQ(parsed.options->limits.idsPerRequest, 65'536U);
    EXPECT_EQ(parsed.options->access.overTcp, Brantel::Server::Role::Reader);
    EXPECT_FALSE(parsed.options->listensInsecurely);
    ASSERT_TRUE(parsed.options->http.has_value());
    EXPECT_EQ(parsed.options->http->Text(), "tcp:127.0.0.1:9187");
    EXPECT_EQ(parsed.options->readyDescriptor, -1);
}

TEST_F(CommandLineTest, AddressesKeepTheirOrder) {
    const CommandLine parsed =
        Parse({"--listen", "tcp:localhost:0", "--listen", "unix:/run/b.sock"});
    ASSERT_TRUE(parsed.options.has_value()) << parsed.text;
    ASSERT_EQ(parsed.options->listen.size(), 3U);
    EXPECT_EQ(parsed.options->listen.at(1).host, "localhost");
    EXPECT_EQ(parsed.options->listen.at(2).path, "/run/b.sock");
}

TEST_F(CommandLineTest, EverythingElseCanBeChosen) {
    const CommandLine parsed =
        Parse({"--socket-mode", "0600", "--capacity", "5GB", "--message-limit", "64KiB",
               "--max-connections", "3", "--ready-fd", "7", "--durability", "interval:200ms",
               "--keep-free", "10MiB", "--prepare", "allocate", "--insecure-listen", "--port-file",
               "/run/port"});
    ASSERT_TRUE(parsed.options.has_value()) << parsed.text;
    EXPECT_EQ(parsed.options->socketMode, 0600U);
    EXPECT_EQ(parsed.options->capacity, 5'000'000'000U);
    EXPECT_EQ(parsed.options->limits.messageBytes, 65'536U);
    EXPECT_EQ(parsed.options->limits.connections, 3U);
    EXPECT_EQ(parsed.options->readyDescriptor, 7);
    const Durability chosen{Durability::Mode::Interval, std::chrono::milliseconds(200)};
    EXPECT_EQ(parsed.options->durability, chosen);
    EXPECT_EQ(parsed.options->keepFree, 10'485'760U);
    EXPECT_FALSE(parsed.options->writesNewSpace);
    EXPECT_TRUE(parsed.options->listensInsecurely);
    EXPECT_EQ(parsed.options->addressFile, "/run/port");
}

TEST_F(CommandLineTest, WithoutAnAddressThereIsNoneOfIt) {
    const CommandLine parsed = ParseAlone({"--engine", "memory"});
    ASSERT_TRUE(parsed.options.has_value()) << parsed.text;
    EXPECT_TRUE(parsed.options->listen.empty());
    EXPECT_FALSE(parsed.options->listensInsecurely);
}

TEST_F(CommandLineTest, TheFirstEngineIsTheDefault) {
    const CommandLine parsed =
        ParseAlone({"--listen", "unix:/run/a.sock", "--data", "/srv/tracks"});
    ASSERT_TRUE(parsed.options.has_value()) << parsed.text;
    EXPECT_EQ(parsed.options->engine, "paper");
    EXPECT_EQ(parsed.options->dataFolder, "/srv/tracks");
}

TEST_F(CommandLineTest, AnEngineThatKeepsFilesNeedsAFolder) {
    ExpectMisuse(ParseAlone({"--listen", "unix:/run/a.sock"}),
                 "The engine paper keeps the tracks in a folder: name it by --data");
    ExpectMisuse(ParseAlone({"--listen", "unix:/run/a.sock", "--data", ""}), "--data");
}

TEST_F(CommandLineTest, AFolderForAnEngineWithoutFilesIsMisuse) {
    ExpectMisuse(Parse({"--data", "/srv/tracks"}),
                 "--data /srv/tracks makes no sense: the engine memory keeps no files");
}

TEST_F(CommandLineTest, AnUnknownEngineIsMisuseAndTheKnownOnesAreNamed) {
    ExpectMisuse(ParseAlone({"--listen", "unix:/run/a.sock", "--engine", "stone"}),
                 "--engine: stone is none of paper, memory");
}

TEST_F(CommandLineTest, ADurabilityThatIsUnknownIsMisuse) {
    for (const std::string mode : {"", "never", "interval", "interval:0ms", "interval:5s"}) {
        ExpectMisuse(
            Parse({"--durability", mode}),
            "Durability " + mode + " is neither always, os nor interval:1ms to interval:3600000ms");
    }
}

TEST_F(CommandLineTest, AnAddressThatCannotBeReadIsMisuse) {
    ExpectMisuse(Parse({"--listen", "tcp:localhost:70000"}),
                 "port 70000 is over the limit of 65535");
}

TEST_F(CommandLineTest, AnUnknownOptionOrArgumentIsMisuse) {
    ExpectMisuse(Parse({"--colour"}), "--colour");
    ExpectMisuse(Parse({"colour"}), "colour");
}

TEST_F(CommandLineTest, ACapacityOutOfItsRangeIsMisuse) {
    const std::string range = " is not within 1048576 to 9223372036854775807";
    ExpectMisuse(Parse({"--capacity", "1048575"}), "1048575" + range);
    ExpectMisuse(Parse({"--capacity", "9223372036854775808"}), "9223372036854775808" + range);
}

TEST_F(CommandLineTest, ACapacityThatIsNoNumberIsMisuse) {
    for (const std::string text :
         {"", "many", "-5", "5 parsecs", "99999999999999999999", "20EiB"}) {
        const CommandLine parsed = Parse({"--capacity", text});
        EXPECT_EQ(parsed.exitCode, CommandLine::misused) << text;
    }
}

TEST_F(CommandLineTest, AMessageLimitOutOfItsRangeIsMisuse) {
    ExpectMisuse(Parse({"--message-limit", "65535"}), "65535 is not within 65536 to 1073741824");
    ExpectMisuse(Parse({"--message-limit", "2GiB"}), "is not within 65536 to 1073741824");
}

TEST_F(CommandLineTest, ANumberOfConnectionsOutOfItsRangeIsMisuse) {
    ExpectMisuse(Parse({"--max-connections", "0"}), "0 is not within 1 to 1000000");
    ExpectMisuse(Parse({"--max-connections", "1000001"}), "1000001 is not within 1 to 1000000");
}

TEST_F(CommandLineTest, AReadyDescriptorThatIsAStandardOneIsMisuse) {
    ExpectMisuse(Parse({"--ready-fd", "2"}), "2 is not within 3 to 2147483647");
}

TEST_F(CommandLineTest, AModeThatIsNotOctalIsMisuse) {
    for (const std::string mode : {"8", "rw-", "1000", "07777", "-1"}) {
        ExpectMisuse(Parse({"--socket-mode", mode}),
                     "Mode " + mode + " is not an octal number from 0 to 777");
    }
}

TEST_F(CommandLineTest, EveryLimitCanBeSetWithinItsRange) {
    for (const ServerLimits::Setting& setting : ServerLimits::settings) {
        const std::string option = std::string("--") + setting.name;
        const std::string highest = std::to_string(setting.highest);
        const CommandLine parsed = setting.value == &ServerLimits::messageBytes
                                       ? Parse({option, highest, "--bytes-in-flight", highest})
                                       : Parse({option, highest});
        ASSERT_TRUE(parsed.options.has_value()) << parsed.text;
        EXPECT_EQ(parsed.options->limits.*setting.value, setting.highest);
        ExpectMisuse(Parse({option, std::to_string(setting.highest + 1)}), "is not within");
    }
}

TEST_F(CommandLineTest, EveryLimitsDefaultIsWithinItsRange) {
    for (const ServerLimits::Setting& setting : ServerLimits::settings) {
        const std::uint64_t value = ServerLimits().*setting.value;
        EXPECT_GE(value, setting.lowest) << setting.name;
        EXPECT_LE(value, setting.highest) << setting.name;
    }
}

TEST_F(CommandLineTest, ALargestMessageThatCouldNeverArriveIsMisuse) {
    ExpectMisuse(Parse({"--message-limit", "2MiB", "--bytes-in-flight", "1MiB"}),
                 "bytes-in-flight 1048576 is below message-limit 2097152: a message of that size "
                 "could never arrive");
}

TEST_F(CommandLineTest, RolesAreGivenToUsersGroupsAndTcp) {
    const CommandLine parsed = Parse(
        {"--allow", "user:1000=writer", "--allow", "group:2000=editor", "--tcp-role", "none"});
    ASSERT_TRUE(parsed.options.has_value()) << parsed.text;
    PeerAddress peer;
    peer.kind = PeerAddress::Kind::Unix;
    peer.user = 1000;
    EXPECT_EQ(parsed.options->access.RoleOf(peer, 1), Role::Writer);
    peer.group = 2000;
    EXPECT_EQ(parsed.options->access.RoleOf(peer, 1), Role::Editor);
    EXPECT_EQ(parsed.options->access.overTcp, Role::None);
}

TEST_F(CommandLineTest, ARuleThatCannotBeReadIsMisuse) {
    ExpectMisuse(Parse({"--allow", "user:1000=king"}), "\"king\" is no role");
    ExpectMisuse(Parse({"--tcp-role", "king"}),
                 "--tcp-role: king is none of none, reader, writer, editor, admin");
}

TEST_F(CommandLineTest, AFlagThatIsNeitherTrueNorFalseIsMisuse) {
    EXPECT_FALSE(Parse({"--insecure-listen=false"}).options->listensInsecurely);
    ExpectMisuse(Parse({"--insecure-listen=perhaps"}), "perhaps");
}

TEST_F(CommandLineTest, WhereMetricsAreServedIsAnAddressOrOff) {
    EXPECT_EQ(Parse({}).options->http->Text(), "tcp:127.0.0.1:9187");
    EXPECT_EQ(Parse({"--http", "[::1]:80"}).options->http->Text(), "tcp:[::1]:80");
    EXPECT_FALSE(Parse({"--http", "off"}).options->http.has_value());
    ExpectMisuse(Parse({"--http", "here"}), "--http: Address tcp:here: the port is missing");
}

TEST_F(CommandLineTest, TheLogIsChosen) {
    const CommandLine parsed = Parse({"--log-format", "json", "--log-level", "debug",
                                      "--log-priority", "never", "--audit-file", "/var/audit"});
    ASSERT_TRUE(parsed.options.has_value()) << parsed.text;
    EXPECT_EQ(parsed.options->log.format, LogOptions::Format::Json);
    EXPECT_EQ(parsed.options->log.level, LogLevel::Debug);
    EXPECT_EQ(parsed.options->log.priority, LogOptions::Priority::Never);
    EXPECT_EQ(parsed.options->log.auditFile, "/var/audit");
}

TEST_F(CommandLineTest, RetentionIsChosen) {
    using Retention = Brantel::Tracks::TrackSettings::Retention;
    EXPECT_EQ(Parse({}).options->retention, Retention::Loop);
    EXPECT_EQ(Parse({"--retention", "stop"}).options->retention, Retention::Stop);
}

TEST_F(CommandLineTest, AFileThatIsNotThereEndsItWithoutTheUsage) {
    const CommandLine parsed = Parse({"--config", "/nowhere/storage.toml"});
    EXPECT_FALSE(parsed.options.has_value());
    EXPECT_EQ(parsed.exitCode, 1);
    EXPECT_EQ(parsed.text,
              "brantel-storaged: /nowhere/storage.toml: the settings could not be read: No such "
              "file or directory; name another file by --config, or none by --config \"\"\n");
}

TEST_F(CommandLineTest, TheSettingsInForceAreShown) {
    const CommandLine parsed = Parse({"--check-config", "--max-depth", "9"});
    EXPECT_FALSE(parsed.options.has_value());
    EXPECT_EQ(parsed.exitCode, 0);
    EXPECT_THAT(parsed.text, HasSubstr("\nmax-depth = 9  # flag\n"));
    EXPECT_EQ(Parse({"--check-config", "--max-depth", "7"}).exitCode, CommandLine::misused);
}

TEST_F(CommandLineTest, CheckAndRecoverAreJobsOnAStore) {
    const CommandLine check = ParseAlone({"check", "/srv/tracks"});
    ASSERT_TRUE(check.job.has_value()) << check.text;
    EXPECT_EQ(check.job->kind, StoreJob::Kind::Check);
    EXPECT_EQ(check.job->folder, "/srv/tracks");
    const CommandLine recover = ParseAlone({"recover", "/srv/tracks", "/srv/new"});
    ASSERT_TRUE(recover.job.has_value()) << recover.text;
    EXPECT_EQ(recover.job->kind, StoreJob::Kind::Recover);
    EXPECT_EQ(recover.job->target, "/srv/new");
}

TEST_F(CommandLineTest, AJobWithoutItsFoldersIsMisuse) {
    for (const std::vector<std::string>& arguments :
         std::vector<std::vector<std::string>>{{"check"},
                                               {"check", "/a", "/b"},
                                               {"check", "--engine", "paper", "/a"},
                                               {"recover", "/a"},
                                               {"recover", "/a", "/b", "/c"}}) {
        const CommandLine parsed = ParseAlone(arguments);
        EXPECT_FALSE(parsed.job.has_value());
        EXPECT_EQ(parsed.exitCode, CommandLine::misused);
        EXPECT_THAT(parsed.text, HasSubstr("Usage: brantel-storaged " + arguments.front()));
    }
}

TEST_F(CommandLineTest, HelpAndVersionAreNoMisuse) {
    const CommandLine help = ParseAlone({"--help"});
    EXPECT_FALSE(help.options.has_value());
    EXPECT_EQ(help.exitCode, 0);
    EXPECT_THAT(help.text, HasSubstr("--listen ADDRESS"));
    const CommandLine version = ParseAlone({"--version"});
    EXPECT_EQ(version.exitCode, 0);
    EXPECT_THAT(version.text, testing::MatchesRegex("brantel-storaged [0-9]+\\.[0-9]+\\.[0-9]+\n"));
}

}  // namespace
