#include "Support/ChildProcess.h"
#include "Support/LocalStoreTest.h"

#include <gtest/gtest.h>
#include <xxhash.h>

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <iomanip>
#include <sstream>
#include <string>

namespace Brantel::Engine {
namespace {

class StoreFolderTest : public LocalStoreTest {
  protected:
    std::string Refusal() {
        return ErrorOf(EngineError::Kind::Refused, [this] { Open(); });
    }
    std::string Store() const { return options.directory; }
};

TEST_F(StoreFolderTest, AMissingFolderBecomesAStore) {
    Open();
    EXPECT_EQ(ReadFile(Store() + "/FORMAT"), "brantel local store, version 1, ee608ffd7eb73079\n");
    EXPECT_TRUE(std::filesystem::is_directory(Store() + "/tracks"));
    EXPECT_TRUE(Reports().empty());
}

TEST_F(StoreFolderTest, OnlyItsOwnerCanLookIntoAStore) {
    Open();
    struct stat status {};
    ASSERT_EQ(stat(Store().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0700U);
}

TEST_F(StoreFolderTest, ASlashBehindTheNameIsFine) {
    options.directory += "//";
    Open();
    EXPECT_TRUE(std::filesystem::exists(folder.File("store/FORMAT")));
}

TEST_F(StoreFolderTest, AFolderThatHoldsSomethingElseIsRefusedAndLeftAlone) {
    std::filesystem::create_directory(Store());
    WriteFile(Store() + "/letter.txt", "dear");
    EXPECT_EQ(Refusal(), Store() + ": is neither empty nor a store: it holds letter.txt");
    EXPECT_EQ(ReadFile(Store() + "/letter.txt"), "dear");
    EXPECT_FALSE(std::filesystem::exists(Store() + "/FORMAT"));
}

TEST_F(StoreFolderTest, AFileInPlaceOfTheStoreIsRefused) {
    WriteFile(Store(), "x");
    EXPECT_EQ(Refusal(), Store() + ": is not a folder");
}

TEST_F(StoreFolderTest, ASecondServerOnTheSameFolderIsRefused) {
    Open();
    EXPECT_EQ(ErrorOf(EngineError::Kind::Refused, [this] { LocalEngine second(options); }),
              Store() + ": is in use by another server, process " + std::to_string(getpid()));
}

TEST_F(StoreFolderTest, ASecondServerInAnotherProcessIsRefused) {
    Tests::ChildProcess child([this](int channel) {
        Open();
        Tests::ChildProcess::Say(channel);
        Tests::ChildProcess::Hear(channel);
        Close();
        return 0;
    });
    ASSERT_TRUE(child.Hear());
    EXPECT_EQ(Refusal(),
              Store() + ": is in use by another server, process " + std::to_string(child.Id()));
    child.Say();
    EXPECT_EQ(child.Wait(), 0);
    Open();
}

TEST_F(StoreFolderTest, AServerThatWasKilledLeavesNoLock) {
    {
        Tests::ChildProcess child([this](int channel) {
            Open();
            Tests::ChildProcess::Say(channel);
            Tests::ChildProcess::Hear(channel);
            return 0;
        });
        ASSERT_TRUE(child.Hear());
        // At once: one that ended in good order would look for leaks, in a helper that shares its
        // files and may outlive it.
        ASSERT_EQ(kill(child.Id(), SIGKILL), 0);
    }
    Open();
}

TEST_F(StoreFolderTest, AStoreOfANewerVersionIsRefused) {
    Open();
    Close();
    const std::string line = "brantel local store, version 2, ";
    std::ostringstream checksum;
    checksum << std::hex << std::setw(16) << std::setfill('0')
             << XXH3_64bits(line.data(), line.size());
    WriteFile(Store() + "/FORMAT", line + checksum.str() + "\n");
    EXPECT_EQ(Refusal(), Store() + ": has format version 2, this program knows up to 1");
}

TEST_F(StoreFolderTest, ADamagedFormatLineIsReportedAndWrittenAgain) {
    Open();
    Write("k", "1");
    Close();
    const std::string line = ReadFile(Store() + "/FORMAT");
    for (std::size_t place = 0; place < line.size(); ++place) {
        std::string damaged = line;
        damaged[place] = static_cast<char>(damaged[place] ^ 4);
        WriteFile(Store() + "/FORMAT", damaged);
        Open();
        EXPECT_EQ(ValueOf("k"), "1");
        Close();
        EXPECT_EQ(ReadFile(Store() + "/FORMAT"), line);
    }
    EXPECT_EQ(Reports().size(), line.size());
}

TEST_F(StoreFolderTest, ASymbolicLinkInPlaceOfTheStoreIsRefused) {
    options.directory = folder.File("real");
    Open();
    Close();
    options.directory = folder.File("link");
    std::filesystem::create_directory_symlink(folder.File("real"), options.directory);
    EXPECT_EQ(Refusal(), Store() + ": is a symbolic link; name the store itself");
    options.directory += "/";
    EXPECT_NE(Refusal().find("is a symbolic link"), std::string::npos);
}

TEST_F(StoreFolderTest, ASymbolicLinkInsideTheStoreIsRefused) {
    Open();
    Close();
    for (const std::string name : {"LOCK", "FORMAT", "tracks", "catalogue.sqlite"}) {
        std::filesystem::rename(Store() + "/" + name, folder.File("moved"));
        std::filesystem::create_symlink(folder.File("moved"), Store() + "/" + name);
        EXPECT_EQ(Refusal(), Store() + "/" + name + ": is a symbolic link; name the store itself");
        std::filesystem::remove(Store() + "/" + name);
        std::filesystem::rename(folder.File("moved"), Store() + "/" + name);
    }
}

TEST_F(StoreFolderTest, AStoreOfSomebodyElseIsRefused) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can give a folder away";
    }
    Open();
    Close();
    ASSERT_EQ(chown(Store().c_str(), 12345, 12345), 0);
    EXPECT_EQ(Refusal(), Store() + ": belongs to user 12345, this server runs as user 0");
}

TEST_F(StoreFolderTest, AStoreWhoseMakingWasCutOffIsFinished) {
    Open();
    Close();
    std::filesystem::remove(Store() + "/FORMAT");
    Open();
    EXPECT_TRUE(std::filesystem::exists(Store() + "/FORMAT"));
}

}  // namespace
}  // namespace Brantel::Engine
