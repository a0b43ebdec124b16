#include "Support/LocalStoreTest.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace Brantel::Engine {
namespace {

class CatalogueTest : public LocalStoreTest {
  protected:
    std::string Path() const { return options.directory + "/catalogue.sqlite"; }
    std::string CopyPath() const { return options.directory + "/catalogue.copy.sqlite"; }

    // Runs SQL on the closed store's catalogue.
    void Run(const std::string& sql) {
        sqlite3* database = nullptr;
        ASSERT_EQ(sqlite3_open(Path().c_str(), &database), SQLITE_OK);
        EXPECT_EQ(sqlite3_exec(database, sql.c_str(), nullptr, nullptr, nullptr), SQLITE_OK)
            << sqlite3_errmsg(database);
        sqlite3_close(database);
    }
    bool WasReported(const std::string& text) {
        for (const std::string& report : Reports()) {
            if (report.find(text) != std::string::npos) {
                return true;
            }
        }
        return false;
    }
    std::string Aside(int number) const {
        return options.directory + "/catalogue.damaged-" + std::to_string(number) + ".sqlite";
    }
};

TEST_F(CatalogueTest, AChangedValueIsRestoredFromTheCopy) {
    Open();
    Write("k", "true value");
    Close();
    Run("UPDATE records SET value = x'00'");
    Open();
    EXPECT_EQ(ValueOf("k"), "true value");
    EXPECT_TRUE(WasReported("the damaged record k was restored from the copy"));
    Reopen();
    EXPECT_EQ(ValueOf("k"), "true value");
    EXPECT_EQ(Reports().size(), 1U);
}

TEST_F(CatalogueTest, ADamagedRecordThatNoCopyHasIsAnErrorAndTheOthersAreServed) {
    Open();
    Write("k", "1");
    Write("other", "2");
    Close();
    std::filesystem::remove(CopyPath());
    Run("UPDATE records SET value = x'00' WHERE key = CAST('k' AS BLOB)");
    Open();
    EXPECT_EQ(ErrorOf(EngineError::Kind::Damaged, [this] { ValueOf("k"); }),
              "the record k is damaged");
    ErrorOf(EngineError::Kind::Damaged, [this] { engine->ScanRecords(""); });
    EXPECT_EQ(ValueOf("other"), "2");
    EXPECT_TRUE(WasReported("the record k is damaged"));
    EXPECT_EQ(engine->ListDamagedRecords(), std::vector<std::string>{"k"});
    Write("k", "new");
    EXPECT_EQ(ValueOf("k"), "new");
    EXPECT_TRUE(engine->ListDamagedRecords().empty());
}

TEST_F(CatalogueTest, ARowThatIsMissingOrOlderIsNoticed) {
    for (const std::string sql :
         {"DELETE FROM records", "DELETE FROM reservations", "UPDATE state SET last_version = 77",
          "DROP TABLE records", "DELETE FROM state"}) {
        std::filesystem::remove_all(options.directory);
        Open();
        Reserve(1);
        Write("k", "1");
        Close();
        Run(sql);
        Open();
        EXPECT_TRUE(WasReported("restored from")) << sql;
        EXPECT_EQ(ValueOf("k"), "1") << sql;
        EXPECT_TRUE(std::filesystem::exists(Aside(1)));
        EXPECT_EQ(engine->ListReservations().size(), 1U);
        Close();
    }
}

TEST_F(CatalogueTest, ALostCatalogueIsRestoredFromTheCopy) {
    Open();
    Write("k", "1");
    Reserve(2);
    engine->CreateSegment(Ring(1), 1);
    const ChunkEntry entry = Append(Ring(1), 5, {"m", "data"});
    Close();
    std::filesystem::remove(Path());
    Open();
    EXPECT_TRUE(WasReported("catalogue.sqlite: is missing"));
    EXPECT_EQ(ValueOf("k"), "1");
    EXPECT_EQ(Read(Ring(1), entry)[1], "data");
    Write("k", "2");
    Reopen();
    EXPECT_EQ(ValueOf("k"), "2");
}

TEST_F(CatalogueTest, WithoutACopyTheReservationsAreFoundInTheFiles) {
    Open();
    Write("k", "1");
    Reserve(3);
    engine->CreateSegment(Ring(1), 1);
    const ChunkEntry entry = Append(Ring(1), 5, {"m", "data"});
    Close();
    std::filesystem::remove(Path());
    std::filesystem::remove(CopyPath());
    Open();
    EXPECT_TRUE(WasReported("begins empty, all records are lost"));
    EXPECT_TRUE(WasReported("the catalogue did not know of its 3 segments"));
    EXPECT_EQ(engine->ListReservations(), (std::vector<Reservation>{{track, segmentSize, 3}}));
    EXPECT_EQ(Read(Ring(1), entry)[1], "data");
    EXPECT_EQ(ValueOf("k"), "(none)");
}

TEST_F(CatalogueTest, AnEmptyCatalogueIsNotTakenForANewOne) {
    Open();
    Write("k", "1");
    Close();
    WriteFile(Path(), "");
    Open();
    EXPECT_EQ(ValueOf("k"), "1");
    EXPECT_TRUE(WasReported("catalogue.sqlite: is empty"));
}

TEST_F(CatalogueTest, ACatalogueOfANewerVersionIsRefused) {
    Open();
    Close();
    Run("PRAGMA user_version = 2");
    EXPECT_EQ(ErrorOf(EngineError::Kind::Refused, [this] { Open(); }),
              Path() + ": has format version 2, this program knows up to 1");
}

TEST_F(CatalogueTest, AFlippedBitAnywhereServesNothingWrong) {
    Open();
    Reserve(1);
    Write("k", "the value of k");
    Write("other", "another value");
    Close();
    const std::string whole = ReadFile(Path());
    const std::uint64_t stride = std::getenv("BRANTEL_PROVE") != nullptr ? 1 : 211;
    RecordProperty("cycles", std::to_string((whole.size() + stride - 1) / stride));
    for (std::uint64_t place = 0; place < whole.size(); place += stride) {
        std::string damaged = whole;
        damaged[place] = static_cast<char>(damaged[place] ^ (1 << (place % 8)));
        WriteFile(Path(), damaged);
        std::filesystem::remove(Path() + "-wal");
        try {
            Open();
            EXPECT_EQ(ValueOf("k"), "the value of k") << place;
            EXPECT_EQ(ValueOf("other"), "another value") << place;
            EXPECT_EQ(engine->ListReservations().size(), 1U) << place;
        } catch (const EngineError& error) {
            // The version, and it alone, can be damaged into one that is refused.
            EXPECT_NE(std::string(error.what()).find("has format version"), std::string::npos)
                << place << ": " << error.what();
        }
        Close();
        for (int number = 1; std::filesystem::exists(Aside(number)); ++number) {
            std::filesystem::remove(Aside(number));
        }
    }
}

TEST_F(CatalogueTest, TheCopyFollowsAfterManyChanges) {
    Open();
    for (int round = 0; round < 300; ++round) {
        Write("k", std::to_string(round));
    }
    // As a crash leaves it, with the catalogue itself lost.
    const std::string copy = folder.File("copy");
    std::filesystem::copy(options.directory, copy, std::filesystem::copy_options::recursive);
    Close();
    options.directory = copy;
    std::filesystem::remove(Path());
    std::filesystem::remove(Path() + "-wal");
    Open();
    EXPECT_GE(std::stoi(ValueOf("k")), 255);
}

// The database takes a log with a flipped bit for one that ends there.
TEST_F(CatalogueTest, ALogThatLostAnsweredChangesIsNoticedAndTold) {
    constexpr int rounds = 20;
    Open();
    Write("k", "0");
    Reopen();
    for (int round = 1; round <= rounds; ++round) {
        Write("k", std::to_string(round));
    }
    const std::uint64_t version = engine->ReadRecord("k")->version;
    const std::string crashed = folder.File("crashed");
    std::filesystem::copy(options.directory, crashed, std::filesystem::copy_options::recursive);
    Close();
    const std::string log = ReadFile(crashed + "/catalogue.sqlite-wal");
    const std::uint64_t stride = std::getenv("BRANTEL_PROVE") != nullptr ? 11 : 5003;
    int lost = 0;
    for (std::uint64_t place = 0; place < log.size(); place += stride) {
        std::filesystem::remove_all(options.directory);
        std::filesystem::copy(crashed, options.directory, std::filesystem::copy_options::recursive);
        WriteAt(Path() + "-wal", place, std::string(1, static_cast<char>(log[place] ^ 0x10)));
        const std::size_t before = Reports().size();
        Open();
        const int value = std::stoi(ValueOf("k"));
        const std::size_t told = Reports().size() - before;
        if (value < rounds) {
            ++lost;
            EXPECT_EQ(Reports().back(),
                      Path() + ": the changes " +
                          std::to_string(version - static_cast<std::uint64_t>(rounds - value) + 1) +
                          " to " + std::to_string(version) + " are lost")
                << place;
            EXPECT_TRUE(std::filesystem::exists(Aside(1))) << place;
        } else {
            EXPECT_EQ(value, rounds);
            EXPECT_EQ(told, 0U) << place << ": " << Reports().back();
        }
        // Told once, and no version is given a second time.
        Reopen();
        EXPECT_EQ(Reports().size(), before + told) << place << ": " << Reports().back();
        EXPECT_EQ(ValueOf("k"), std::to_string(value));
        Write("other", "1");
        EXPECT_GT(engine->ReadRecord("other")->version, version);
        Close();
        ASSERT_FALSE(HasFailure());
    }
    EXPECT_GT(lost, 10);
}

TEST_F(CatalogueTest, ALogThatIsMissingIsNoticed) {
    Open();
    Write("k", "1");
    const std::string crashed = folder.File("crashed");
    std::filesystem::copy(options.directory, crashed, std::filesystem::copy_options::recursive);
    Close();
    options.directory = crashed;
    std::filesystem::remove(Path() + "-wal");
    Open();
    EXPECT_EQ(ValueOf("k"), "(none)");
    EXPECT_TRUE(WasReported("lacks changes that were answered, its log is damaged"));
    EXPECT_TRUE(WasReported(" are lost"));
}

TEST_F(CatalogueTest, ADamagedMarkIsToldAndWrittenAgain) {
    Open();
    Write("k", "1");
    Close();
    WriteFile(options.directory + "/catalogue.mark", Bytes(4096, 3));
    Open();
    EXPECT_EQ(ValueOf("k"), "1");
    EXPECT_EQ(Reports(),
              std::vector<std::string>{options.directory + "/catalogue.mark: is damaged"});
    Reopen();
    EXPECT_EQ(Reports().size(), 1U);
}

TEST_F(CatalogueTest, ManyThreadsWriteWithFewerFlushesThanChanges) {
    constexpr int threadCount = 8;
    constexpr int rounds = 20;
    Open();
    std::vector<std::thread> threads;
    for (int thread = 0; thread < threadCount; ++thread) {
        threads.emplace_back([this, thread] {
            for (int round = 0; round < rounds; ++round) {
                EXPECT_TRUE(Write("k" + std::to_string(thread), std::to_string(round)));
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    Reopen();
    for (int thread = 0; thread < threadCount; ++thread) {
        EXPECT_EQ(ValueOf("k" + std::to_string(thread)), std::to_string(rounds - 1));
    }
}

}  // namespace
}  // namespace Brantel::Engine
