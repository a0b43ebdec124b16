#include "Support/LocalStoreTest.h"

#include <gtest/gtest.h>

#include <sys/mount.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace Brantel::Engine {
namespace {

// A store on a real file system of a few megabytes, of which not one byte is left.
class LocalEngineFullDiskTest : public LocalStoreTest {
  protected:
    void SetUp() override {
        mounted = mount("tmpfs", MountPoint().c_str(), "tmpfs", 0, "size=4m") == 0;
        if (!mounted) {
            GTEST_SKIP() << "mounting a small file system needs root";
        }
        options.directory = MountPoint() + "/store";
        options.catalogueReserve = 256 * 1024;
        Open();
        Reserve(4);
        engine->CreateSegment(Ring(1), 1);
        entry = Append(Ring(1), 5, {"m", Bytes(5000, 1)}, Durability::Mode::Always);
        Write("k", "before");
    }

    void TearDown() override {
        Close();
        if (mounted) {
            EXPECT_EQ(umount(MountPoint().c_str()), 0);
        }
    }

    std::string MountPoint() {
        const std::string path = folder.File("disk");
        std::filesystem::create_directories(path);
        return path;
    }
    std::string Junk() { return MountPoint() + "/junk"; }

    void Fill() {
        const std::string block(4096, 'x');
        std::ofstream file(Junk(), std::ios::binary);
        while (file.write(block.data(), static_cast<std::streamsize>(block.size())).flush()) {
        }
        ASSERT_EQ(std::filesystem::space(MountPoint()).available, 0U);
    }

    bool mounted = false;
    ChunkEntry entry;
};

TEST_F(LocalEngineFullDiskTest, WhatIsReservedCanBeWrittenToItsEnd) {
    Fill();
    std::int64_t timePoint = 10;
    for (std::uint64_t number = 1; number <= 4; ++number) {
        if (number > 1) {
            engine->CreateSegment(Ring(number), 1);
        }
        for (int chunk = 0; chunk < 5; ++chunk) {
            timePoint += 10;
            const std::vector<std::string> parts{"m", Bytes(9000, static_cast<unsigned>(chunk))};
            const ChunkEntry added =
                Append(Ring(number), timePoint, parts, Durability::Mode::Always);
            EXPECT_EQ(Read(Ring(number), added), parts);
        }
        engine->Seal(Ring(number), 1, Info(Ring(number)).count);
    }
    EXPECT_TRUE(Reports().empty());
}

TEST_F(LocalEngineFullDiskTest, AReservationIsRefusedAndChangesNothing) {
    Fill();
    ErrorOf(EngineError::Kind::NoSpace, [this] { Reserve(8); });
    ErrorOf(EngineError::Kind::NoSpace, [this] { Reserve(1, 8); });
    EXPECT_EQ(engine->ListReservations(), (std::vector<Reservation>{{track, segmentSize, 4}}));
    EXPECT_EQ(Read(Ring(1), entry)[1], Bytes(5000, 1));
    Append(Ring(1), 10, {"m", "more"}, Durability::Mode::Always);
}

TEST_F(LocalEngineFullDiskTest, RecordsCanBeChangedManyTimes) {
    Fill();
    for (int round = 0; round < 40; ++round) {
        Write("k", std::to_string(round));
    }
    EXPECT_EQ(ValueOf("k"), "39");
}

TEST_F(LocalEngineFullDiskTest, AStoreIsOpenedReadAndGivenBack) {
    Fill();
    Write("k", "full");
    for (int round = 0; round < 3; ++round) {
        Reopen();
        EXPECT_EQ(ValueOf("k"), "full");
        EXPECT_EQ(Read(Ring(1), entry)[1], Bytes(5000, 1));
    }
    engine->RemoveSegment(Ring(1), 1, 0);
    SilentProgress progress;
    engine->Release(track, progress);
    EXPECT_TRUE(engine->ListReservations().empty());
    Reserve(3);
    engine->CreateSegment(Ring(1), 1);
    Append(Ring(1), 5, {"m", "new"}, Durability::Mode::Always);
}

TEST_F(LocalEngineFullDiskTest, RoomThatComesBackHealsIt) {
    Fill();
    ErrorOf(EngineError::Kind::NoSpace, [this] { Reserve(8); });
    std::filesystem::remove(Junk());
    Reserve(8);
    EXPECT_EQ(engine->ListReservations(), (std::vector<Reservation>{{track, segmentSize, 8}}));
    Reopen();
    EXPECT_EQ(Read(Ring(1), entry)[1], Bytes(5000, 1));
}

}  // namespace
}  // namespace Brantel::Engine
