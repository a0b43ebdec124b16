// A store that is opened for reading alone.

#include "Support/LocalStoreTest.h"

#include <libEngine/ReadOnlyEngine.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace Brantel::Engine {

using testing::HasSubstr;

class LocalStoreReadOnlyTest : public LocalStoreTest {
  protected:
    void SetUp() override {
        Open();
        Reserve(4);
        Write("key", "value");
        engine->CreateSegment(Ring(1), 1);
        entry = Append(Ring(1), 10, {"first", "second"});
        Close();
        options.readOnly = true;
    }
    std::map<std::string, std::string> Contents() const {
        std::map<std::string, std::string> contents;
        for (const auto& item : std::filesystem::recursive_directory_iterator(options.directory)) {
            contents[item.path().string()] =
                item.is_regular_file() ? ReadFile(item.path().string()) : "";
        }
        return contents;
    }

    ChunkEntry entry;
};

TEST_F(LocalStoreReadOnlyTest, EverythingIsReadAsItWasWritten) {
    Open();
    EXPECT_EQ(Read(Ring(1), entry), (std::vector<std::string>{"first", "second"}));
    EXPECT_EQ(ValueOf("key"), "value");
    EXPECT_EQ(engine->ListReservations().size(), 1U);
    EXPECT_TRUE(Verify(Ring(1)).empty());
}

TEST_F(LocalStoreReadOnlyTest, NothingOfItChanges) {
    const auto before = Contents();
    Open();
    ReadOnlyEngine shown(*engine);
    SilentProgress progress;
    shown.Reserve({track, segmentSize, 9}, progress);
    EXPECT_EQ(shown.Claim(Ring(1), 5).epoch, 5U);
    shown.Seal(Ring(1), 5, 1);
    shown.RemoveSegment(Ring(1), 5, 0);
    shown.Release(track, progress);
    EXPECT_EQ(shown.ReadEntries(Ring(1)), std::vector<ChunkEntry>{entry});
    Close();
    EXPECT_EQ(Contents(), before);
}

TEST_F(LocalStoreReadOnlyTest, ChunksAreRefused) {
    Open();
    ReadOnlyEngine shown(*engine);
    const std::vector<std::string_view> parts{"a"};
    EXPECT_THAT(
        ErrorOf(EngineError::Kind::Refused, [&] { shown.Append(Ring(1), 1, entry, parts, {}); }),
        HasSubstr("the store is open for reading alone"));
    EXPECT_THAT(ErrorOf(EngineError::Kind::Refused, [&] { shown.CreateSegment(Ring(2), 1); }),
                HasSubstr("the store is open for reading alone"));
    EXPECT_NE(ErrorOf(EngineError::Kind::Io, [&] { Append(Ring(1), 20, {"b"}); }), "");
}

TEST_F(LocalStoreReadOnlyTest, RecordsThatAreWrittenAreForgottenAtTheEnd) {
    Open();
    ASSERT_TRUE(Write("key", "other"));
    EXPECT_EQ(ValueOf("key"), "other");
    Reopen();
    EXPECT_EQ(ValueOf("key"), "value");
}

TEST_F(LocalStoreReadOnlyTest, ADamagedCatalogueIsRestoredElsewhereAndReportedByItsName) {
    const std::string path = options.directory + "/catalogue.sqlite";
    WriteAt(path, 0, "rubbish");
    const auto before = Contents();
    Open();
    EXPECT_EQ(ValueOf("key"), "value");
    EXPECT_THAT(Reports().at(0), HasSubstr(path + ": "));
    Close();
    EXPECT_EQ(Contents(), before);
}

TEST_F(LocalStoreReadOnlyTest, TheTemporaryFolderIsLeftAsItWas) {
    const Tests::TemporaryFolder temporary;
    ASSERT_EQ(setenv("TMPDIR", temporary.Path().c_str(), 1), 0);
    Open();
    EXPECT_FALSE(std::filesystem::is_empty(temporary.Path()));
    Close();
    EXPECT_TRUE(std::filesystem::is_empty(temporary.Path()));
    unsetenv("TMPDIR");
}

TEST_F(LocalStoreReadOnlyTest, AServerAndAReaderExcludeEachOther) {
    Open();
    LocalOptions served = options;
    served.readOnly = false;
    EXPECT_THAT(ErrorOf(EngineError::Kind::Refused, [&] { const LocalEngine other(served); }),
                HasSubstr("is in use"));
}

TEST_F(LocalStoreReadOnlyTest, AFolderThatIsNoStoreIsRefusedAndStaysAsItIs) {
    options.directory = folder.File("nothing");
    EXPECT_THAT(ErrorOf(EngineError::Kind::Refused, [&] { Open(); }), HasSubstr("does not exist"));
    EXPECT_FALSE(std::filesystem::exists(options.directory));
    std::filesystem::create_directory(options.directory);
    EXPECT_THAT(ErrorOf(EngineError::Kind::Refused, [&] { Open(); }), HasSubstr("is no store"));
    EXPECT_TRUE(std::filesystem::is_empty(options.directory));
}

}  // namespace Brantel::Engine
