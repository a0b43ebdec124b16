#include "Support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <StorageServer/Configuration.h>

#include <algorithm>
#include <fstream>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace {

using Brantel::Server::Configuration;
using Brantel::Server::EngineName;
using Brantel::Server::LogLevel;
using Brantel::Server::Role;
using Brantel::Server::ServerOptions;
using Brantel::Server::Setting;
using Brantel::Server::SettingTable;
using Brantel::Server::Surroundings;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

class ConfigurationTest : public testing::Test {
  protected:
    ConfigurationTest() { surroundings.environment["XDG_DATA_HOME"] = "/data"; }

    void Write(const std::string& text) const { std::ofstream(file) << text; }
    Configuration Make() const { return {engines, surroundings, flags, file}; }
    Configuration::Chosen ReadOf(const std::string& text) const {
        Write(text);
        return Make().Read();
    }
    // What is wrong with the file, without its path.
    std::string ErrorOf(const std::string& text) const {
        try {
            ReadOf(text);
            return "none";
        } catch (const std::runtime_error& error) {
            const std::string what = error.what();
            return what.starts_with(file + ":") ? what.substr(file.size() + 1) : what;
        }
    }

    const Brantel::Tests::TemporaryFolder folder;
    const std::string file = folder.File("storage.toml");
    const std::vector<EngineName> engines{{"paper", true}, {"memory", false}};
    Surroundings surroundings;
    std::map<std::string, Setting::Texts> flags;
};

TEST_F(ConfigurationTest, TheFileIsReadWithTypesOfItsOwn) {
    const ServerOptions options = ReadOf(
                                      "listen = ['unix:/a', \"tcp:[::1]:80\"]\n"
                                      "allow = 'user:7=writer'\n"
                                      "insecure-listen = true\n"
                                      "keep-free = 17\n"
                                      "message-limit = '64KiB'\n"
                                      "max-depth = 9\n"
                                      "durability = 'interval:5ms'\n"
                                      "http = 'off'\n")
                                      .options;
    ASSERT_EQ(options.listen.size(), 2U);
    EXPECT_EQ(options.listen.at(1).Text(), "tcp:[::1]:80");
    EXPECT_EQ(options.accessRules, Setting::Texts{"user:7=writer"});
    EXPECT_TRUE(options.listensInsecurely);
    EXPECT_EQ(options.keepFree, 17U);
    EXPECT_EQ(options.limits.messageBytes, 65536U);
    EXPECT_EQ(options.limits.depth, 9U);
    EXPECT_EQ(options.durability.interval.count(), 5);
    EXPECT_FALSE(options.http.has_value());
}

TEST_F(ConfigurationTest, AFlagBeatsTheEnvironmentAndThatTheFile) {
    surroundings.environment["BRANTEL_MAX_DEPTH"] = "20";
    surroundings.environment["BRANTEL_MAX_IDS"] = "21";
    flags["max-ids"] = {"30"};
    const Configuration::Chosen chosen = ReadOf("max-depth = 10\nmax-ids = 11\nmax-workers = 12\n");
    EXPECT_EQ(chosen.options.limits.idsPerRequest, 30U);
    EXPECT_EQ(chosen.options.limits.depth, 20U);
    EXPECT_EQ(chosen.options.limits.workersPerConnection, 12U);
    EXPECT_EQ(chosen.origins, (std::map<std::string, std::string>{{"max-ids", "flag"},
                                                                  {"max-depth", "environment"},
                                                                  {"max-workers", file + ":3"}}));
}

TEST_F(ConfigurationTest, AListOfTheEnvironmentHasCommas) {
    surroundings.environment["BRANTEL_LISTEN"] = "unix:/a,tcp:localhost:0";
    const ServerOptions options = ReadOf("listen = 'unix:/b'").options;
    ASSERT_EQ(options.listen.size(), 2U);
    EXPECT_EQ(options.listen.at(0).path, "/a");
}

TEST_F(ConfigurationTest, AnUnknownKeyIsRefusedWithItsLine) {
    EXPECT_THAT(ErrorOf("max-depth = 9\n\ncolour = 'red'\n"), StartsWith("3: unknown key colour;"));
    EXPECT_THAT(ErrorOf("[limits]\nmax-depth = 9\n"), StartsWith("1: unknown key limits;"));
    EXPECT_THAT(ErrorOf("ready-fd = 7\n"), StartsWith("1: unknown key ready-fd;"));
}

TEST_F(ConfigurationTest, AValueOfAnotherTypeIsRefused) {
    EXPECT_EQ(ErrorOf("max-depth = '9'"), "1: max-depth = '9': must be a whole number");
    EXPECT_EQ(ErrorOf("max-depth = 9.5"), "1: max-depth = 9.5: must be a whole number");
    EXPECT_EQ(ErrorOf("listen = [7]"), "1: listen = [ 7 ]: must be a list of texts in quotes");
    EXPECT_EQ(ErrorOf("data = true"), "1: data = true: must be a text in quotes");
    EXPECT_EQ(ErrorOf("insecure-listen = 1"), "1: insecure-listen = 1: must be true or false");
    EXPECT_EQ(ErrorOf("capacity = false"),
              "1: capacity = false: must be a number of bytes, or a text as \"2GiB\"");
}

TEST_F(ConfigurationTest, AValueOutOfItsRangeIsRefusedWithLineKeyValueAndLimit) {
    EXPECT_EQ(ErrorOf("\nmax-depth = 7"), "2: max-depth = 7: 7 is not within 8 to 100");
    EXPECT_EQ(ErrorOf("max-depth = -1"), "1: max-depth = -1: -1 is not within 8 to 100");
    EXPECT_EQ(ErrorOf("capacity = '1KiB'"),
              "1: capacity = '1KiB': 1KiB is not within 1048576 to 9223372036854775807");
    EXPECT_EQ(ErrorOf("log-level = 'loud'"),
              "1: log-level = 'loud': loud is none of error, warning, info, debug");
}

TEST_F(ConfigurationTest, WhatIsNoTomlIsRefusedWithItsLine) {
    EXPECT_THAT(ErrorOf("max-depth = 9\nmax-depth 9\n"), StartsWith("2: "));
    EXPECT_THAT(ErrorOf("max-depth = 9\nmax-depth = 10\n"), StartsWith("2: "));
    EXPECT_THAT(ErrorOf("data = \"\xff\"\n"), StartsWith("1: "));
}

TEST_F(ConfigurationTest, AVariableThatIsWrongIsNamed) {
    surroundings.environment["BRANTEL_TCP_ROLE"] = "king";
    EXPECT_EQ(ErrorOf(""), "BRANTEL_TCP_ROLE: king is none of none, reader, writer, editor, admin");
}

TEST_F(ConfigurationTest, AFileThatCannotBeReadIsRefusedWithWhatTheSystemSaid) {
    EXPECT_THROW(Make().Read(), std::runtime_error);
    const Configuration onFolder(engines, surroundings, flags, folder.Path());
    try {
        onFolder.Read();
        FAIL() << "a folder was read";
    } catch (const std::runtime_error& error) {
        EXPECT_EQ(error.what(),
                  folder.Path() +
                      ": the settings could not be read: Is a directory; name another "
                      "file by --config, or none by --config \"\"");
    }
}

TEST_F(ConfigurationTest, AFileThatIsTooLargeIsRefused) {
    EXPECT_EQ(ErrorOf(std::string((1 << 20) + 1, '\n')), " is over the limit of 1048576 bytes");
    EXPECT_EQ(ErrorOf(std::string(1 << 20, '\n')), "none");
}

TEST_F(ConfigurationTest, TheFileOfTheSystemIsReadOnlyIfItIsThere) {
    surroundings.settingsFile = file;
    const Configuration configuration(engines, surroundings, flags, std::nullopt);
    EXPECT_EQ(configuration.Read().file, "");
    Write("max-depth = 9");
    EXPECT_EQ(configuration.Read().options.limits.depth, 9U);
    EXPECT_EQ(Configuration(engines, surroundings, flags, "").Read().options.limits.depth, 8U);
}

TEST_F(ConfigurationTest, TheEnvironmentCanNameTheFile) {
    surroundings.environment["BRANTEL_CONFIG"] = file;
    Write("max-depth = 9");
    const Configuration configuration(engines, surroundings, flags, std::nullopt);
    EXPECT_EQ(configuration.Read().options.limits.depth, 9U);
}

TEST_F(ConfigurationTest, AnEngineWithoutFilesNeedsNoFolderOfTheFile) {
    EXPECT_EQ(ReadOf("engine = 'memory'\ndata = '/srv'").options.dataFolder, "");
    EXPECT_EQ(ReadOf("engine = 'paper'\ndata = '/srv'").options.dataFolder, "/srv");
    EXPECT_EQ(ReadOf("").options.dataFolder, "/data/brantel");
}

TEST_F(ConfigurationTest, LimitsThatContradictEachOtherAreRefused) {
    EXPECT_THAT(ErrorOf("message-limit = '2MiB'\nbytes-in-flight = '1MiB'"),
                HasSubstr("bytes-in-flight 1048576 is below message-limit 2097152"));
}

TEST_F(ConfigurationTest, WhatIsInForceIsShownAsAFileWithItsOrigins) {
    flags["max-ids"] = {"30"};
    const Configuration::Chosen chosen = ReadOf("data = 'a \"b\\\\'\nlisten = ['unix:/a']\n");
    const std::string text = Make().Describe(chosen);
    EXPECT_THAT(text, HasSubstr("\nlisten = [\"unix:/a\"]  # " + file + ":2\n"));
    EXPECT_THAT(text, HasSubstr("\nmax-ids = 30  # flag\n"));
    EXPECT_THAT(text, HasSubstr("\nretention = \"loop\"  # default\n"));
    EXPECT_THAT(text, HasSubstr("\n#capacity = not set  # default\n"));
    EXPECT_THAT(text, Not(HasSubstr("ready-fd")));
    flags.clear();
    EXPECT_TRUE(Make().Compare(ReadOf(text).options, chosen.options).empty());
}

TEST_F(ConfigurationTest, WhoMayConnectIsShown) {
    surroundings.user = "storage";
    const Configuration::Chosen chosen =
        ReadOf("listen = ['unix:/a', 'tcp:localhost:0']\nallow = ['user:7=writer']\n");
    EXPECT_THAT(Make().Describe(chosen),
                HasSubstr("# Who may connect:\n"
                          "#   unix:/a\n"
                          "#     root and storage: admin\n"
                          "#     user:7: writer\n"
                          "#     everybody else whom the mode of the file lets in: none\n"
                          "#   tcp:localhost:0\n"
                          "#     everybody: reader\n"));
}

TEST_F(ConfigurationTest, AnAddressThatWillBeRefusedIsShownAsSuch) {
    const std::string remark = "#     but other machines may reach it: refused without";
    for (const std::string host : {"*", "192.0.2.1", "[::]", "recorder.example"}) {
        const std::string listen = "listen = 'tcp:" + host + ":0'\n";
        EXPECT_THAT(Make().Describe(ReadOf(listen)), HasSubstr(remark));
        EXPECT_THAT(Make().Describe(ReadOf(listen + "insecure-listen = true\n")),
                    Not(HasSubstr(remark)));
    }
    for (const std::string host : {"127.0.0.1", "localhost", "[::1]"}) {
        EXPECT_THAT(Make().Describe(ReadOf("listen = 'tcp:" + host + ":0'\n")),
                    Not(HasSubstr(remark)));
    }
}

// A file in which every line that holds a setting has lost its comment sign.
std::string Uncommented(const std::string& text, const std::vector<Setting>& settings) {
    std::string result;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        const bool isSetting =
            std::any_of(settings.begin(), settings.end(), [&line](const Setting& setting) {
                return line.starts_with("#" + setting.key + " = ");
            });
        result += line.substr(isSetting ? 1 : 0) + "\n";
    }
    return result;
}

TEST_F(ConfigurationTest, TheExampleHasEverySettingWithItsDefault) {
    const std::string example = Configuration::Example(engines);
    EXPECT_TRUE(ReadOf(example).origins.empty());
    std::vector<Setting> settings = SettingTable::All(engines);
    settings.erase(std::remove_if(settings.begin(), settings.end(),
                                  [](const Setting& setting) {
                                      // Whom an example may name is not known to this machine.
                                      return setting.isFlagOnly || setting.key == "allow";
                                  }),
                   settings.end());
    const Configuration::Chosen chosen = ReadOf(Uncommented(example, settings));
    EXPECT_EQ(chosen.origins.size(), settings.size());
    ServerOptions defaults;
    defaults.engine = "paper";
    for (const Configuration::Change& change : Make().Compare(defaults, chosen.options)) {
        EXPECT_THAT((std::vector<std::string>{"listen", "data", "capacity", "audit-file"}),
                    testing::Contains(change.key));
    }
}

TEST_F(ConfigurationTest, AReloadTakesOverOnlyWhatItCan) {
    const ServerOptions running = ReadOf(
                                      "tcp-role = 'writer'\nallow = ['user:7=editor']\n"
                                      "audit-file = '/a'\nkeep-free = 1\n")
                                      .options;
    const Configuration::Chosen wanted = ReadOf("log-level = 'debug'\nkeep-free = 2\n");
    const ServerOptions after = Make().Reload(running, wanted);
    EXPECT_EQ(after.access.overTcp, Role::Reader);
    EXPECT_TRUE(after.accessRules.empty());
    EXPECT_EQ(after.log.level, LogLevel::Debug);
    EXPECT_EQ(after.log.auditFile, "");
    EXPECT_EQ(after.keepFree, 1U);
}

TEST_F(ConfigurationTest, ChangesAreToldWithBothValues) {
    const ServerOptions before = ReadOf("keep-free = 1").options;
    const ServerOptions after = ReadOf("log-level = 'error'").options;
    const std::vector<Configuration::Change> changes = Make().Compare(before, after);
    ASSERT_EQ(changes.size(), 2U);
    EXPECT_EQ(changes.at(0).key, "keep-free");
    EXPECT_EQ(changes.at(0).before, "\"1\"");
    EXPECT_EQ(changes.at(0).after, "\"256MiB\"");
    EXPECT_FALSE(changes.at(0).reloads);
    EXPECT_EQ(changes.at(1).key, "log-level");
    EXPECT_TRUE(changes.at(1).reloads);
}

}  // namespace
