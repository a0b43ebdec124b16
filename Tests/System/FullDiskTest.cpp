// A server whose disk is full: it starts, reads, appends to the room that its tracks have, frees
// and deletes, and says clearly what it can't do.

#include "Support/Refusal.h"
#include "Support/ServerProcess.h"
#include "Support/TemporaryFolder.h"
#include "Support/Waiting.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace Brantel::Tests {
namespace {

using ProtocolX::StorageClientX;
using testing::HasSubstr;
using Time::TimePoint;

// A file system of its own with this many bytes, while the object lives.
class SmallDisk {
  public:
    explicit SmallDisk(const std::string& size) {
        const std::string options = "size=" + size;
        isMounted = mount("brantel-test", folder.Path().c_str(), "tmpfs", 0, options.c_str()) == 0;
        error = isMounted ? 0 : errno;
    }
    SmallDisk(const SmallDisk&) = delete;
    SmallDisk& operator=(const SmallDisk&) = delete;
    ~SmallDisk() {
        if (isMounted) {
            umount2(folder.Path().c_str(), MNT_DETACH);
        }
    }

    bool IsThere() const { return isMounted; }
    std::string Reason() const { return std::strerror(error); }
    std::string File(const std::string& name) const { return folder.File(name); }

    // Takes everything that is left.
    void Fill() const {
        const std::string path = folder.File("filling");
        const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
        std::string bytes(1U << 20U, 'x');
        while (!bytes.empty()) {
            if (write(file, bytes.data(), bytes.size()) <= 0) {
                bytes.resize(bytes.size() / 2);
            }
        }
        close(file);
        if (std::filesystem::space(folder.Path()).available != 0) {
            throw std::runtime_error("the disk could not be filled");
        }
    }

  private:
    TemporaryFolder folder;
    bool isMounted = false;
    int error = 0;
};

class FullDiskTest : public testing::Test {
  protected:
    void SetUp() override {
        if (!disk.IsThere()) {
            GTEST_SKIP()
                << "SKIPPED, NOTHING IS PROVED: a small file system can't be mounted here: "
                << disk.Reason();
        }
        Start();
        track = CreateTrack(*client);
        AppendChunk(*client, track, 1, "one");
        protection = client->Protect(track, TimePoint::Nanoseconds(1), TimePoint::Nanoseconds(2));
    }
    void Start() {
        server.emplace(folder.File("storage.sock"), ServerProcess::OnFolder(disk.File("store")));
        client = server->ConnectOverUnix();
    }
    void FillAndRestart(int signal) {
        disk.Fill();
        server->Process().Signal(signal);
        server->Process().Wait();
        client.reset();
        Start();
    }
    bool Finishes(long command) {
        return Eventually(
            [&] { return client->GetCommandInfo(command).type == StorageClientX::FINISHED; });
    }

    const SmallDisk disk{"96m"};
    TemporaryFolder folder;
    std::optional<ServerProcess> server;
    std::unique_ptr<StorageClientX> client;
    long track = 0;
    long protection = 0;
};

TEST_F(FullDiskTest, AServerStartsAndReadsAfterEveryKindOfEnd) {
    for (const int signal : {SIGTERM, SIGKILL}) {
        FillAndRestart(signal);
        EXPECT_EQ(ReadChunk(*client, track, 1), "one") << signal;
    }
}

TEST_F(FullDiskTest, TracksTakeChunksIntoTheRoomTheyHave) {
    FillAndRestart(SIGKILL);
    AppendChunk(*client, track, 2, std::string(1'000'000, 'b'));
    FillAndRestart(SIGKILL);
    EXPECT_EQ(ReadChunk(*client, track, 2), std::string(1'000'000, 'b'));
}

TEST_F(FullDiskTest, ANewTrackIsRefusedAndNothingElseSuffers) {
    FillAndRestart(SIGTERM);
    EXPECT_THAT(RefusalOf([&] { CreateTrack(*client); }), HasSubstr("Exception from server: "));
    EXPECT_EQ(ReadChunk(*client, track, 1), "one");
    EXPECT_EQ(client->ListTracks().size(), 1U);
}

TEST_F(FullDiskTest, ProtectionsEndAndTracksAreDeletedWhichMakesRoomAgain) {
    FillAndRestart(SIGKILL);
    client->Unprotect(protection);
    EXPECT_TRUE(client->ListProtections().empty());
    ASSERT_TRUE(Finishes(client->DeleteTrack(track).commandId));
    const long other = CreateTrack(*client);
    AppendChunk(*client, other, 1, "in the room of the other");
    EXPECT_EQ(ReadChunk(*client, other, 1), "in the room of the other");
}

TEST_F(FullDiskTest, PropertiesCanStillBeChanged) {
    FillAndRestart(SIGKILL);
    client->SetTrackProperties(track, {{"storage.retention", "stop"}});
    FillAndRestart(SIGKILL);
    EXPECT_EQ(client->GetTrackProperties(track).at("storage.retention"), "stop");
}

}  // namespace
}  // namespace Brantel::Tests
