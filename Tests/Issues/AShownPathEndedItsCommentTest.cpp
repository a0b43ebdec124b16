// --check-config showed a path with a line's end in it so that the rest of the path became a
// setting of its own, and one with another control character so that no server read the file.

#include "Support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <StorageServer/Configuration.h>

#include <fstream>
#include <string>

namespace Brantel::Server {
namespace {

// What is shown of a server that listens on this path, written as TOML.
std::string ShownOf(const std::string& path) {
    const Tests::TemporaryFolder folder;
    const std::string file = folder.File("storage.toml");
    std::ofstream(file) << "engine = 'memory'\nlisten = \"unix:" << path << "\"\n";
    const Configuration configuration({{"memory", false}}, {}, {}, file);
    return configuration.Describe(configuration.Read());
}

TEST(AShownPathEndedItsCommentTest, ALinesEndStaysInItsComment) {
    EXPECT_THAT(ShownOf("/a\\nengine = 'local'"), testing::HasSubstr("#   unix:/a?engine = "));
}

TEST(AShownPathEndedItsCommentTest, WhatIsShownCanBeRead) {
    const Tests::TemporaryFolder folder;
    const std::string file = folder.File("shown.toml");
    std::ofstream(file) << ShownOf("/a\\u001A\\u007F\\r\\nb");
    const Configuration again({{"memory", false}}, {}, {}, file);
    EXPECT_EQ(again.Read().options.listen.at(0).path, "/a\x1A\x7F\r\nb");
}

}  // namespace
}  // namespace Brantel::Server
