#include "Support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <StorageServer/DefaultSocket.h>

#include <filesystem>
#include <stdexcept>
#include <string>

namespace {

using Brantel::Server::DefaultSocket;
using Brantel::Server::ListenAddress;
using Brantel::Tests::TemporaryFolder;

TEST(DefaultSocketTest, RootsLiesInRun) {
    EXPECT_EQ(DefaultSocket::Find(true, "").path, "/run/brantel/storage.sock");
    EXPECT_EQ(DefaultSocket::Find(true, "/run/user/0").path, "/run/brantel/storage.sock");
}

TEST(DefaultSocketTest, EverybodyElsesLiesInTheirRuntimeFolder) {
    const ListenAddress address = DefaultSocket::Find(false, "/run/user/1000");
    EXPECT_EQ(address.kind, ListenAddress::Kind::Unix);
    EXPECT_EQ(address.path, "/run/user/1000/brantel/storage.sock");
}

TEST(DefaultSocketTest, WithoutARuntimeFolderThereIsNone) {
    EXPECT_THROW(DefaultSocket::Find(false, ""), std::runtime_error);
}

TEST(DefaultSocketTest, ItsFolderIsMadeAndMayBeThere) {
    const TemporaryFolder folder;
    const ListenAddress address = DefaultSocket::Find(false, folder.Path());
    DefaultSocket::MakeFolder(address);
    EXPECT_TRUE(std::filesystem::is_directory(folder.File("brantel")));
    DefaultSocket::MakeFolder(address);
}

TEST(DefaultSocketTest, AFolderThatCannotBeMadeIsNamed) {
    const TemporaryFolder folder;
    try {
        DefaultSocket::MakeFolder(DefaultSocket::Find(false, folder.File("nowhere")));
        FAIL() << "no error";
    } catch (const std::runtime_error& error) {
        EXPECT_EQ(std::string(error.what()),
                  folder.File("nowhere/brantel") +
                      ": making the folder of the socket failed (--listen chooses another place): "
                      "No such file or directory");
    }
}

}  // namespace
