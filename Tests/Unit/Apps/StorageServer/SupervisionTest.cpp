#include "Support/TemporaryFolder.h"
#include "Support/Waiting.h"

#include <gtest/gtest.h>

#include <StorageServer/ServiceManager.h>
#include <StorageServer/Supervision.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <optional>
#include <stdexcept>
#include <string>

namespace {

using Brantel::Server::LogOptions;
using Brantel::Server::ServerLog;
using Brantel::Server::ServiceManager;
using Brantel::Server::Supervision;
using Brantel::Tests::Gate;

// The test is the service manager.
class SupervisionTest : public testing::Test {
  protected:
    SupervisionTest() {
        const std::string path = folder.File("notify");
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.copy(static_cast<char*>(address.sun_path), sizeof(address.sun_path) - 1);
        const timeval limit{60, 0};
        setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
        EXPECT_EQ(bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
        setenv("NOTIFY_SOCKET", path.c_str(), 1);
    }
    ~SupervisionTest() override {
        unsetenv("NOTIFY_SOCKET");
        supervision.reset();
        close(fd);
    }

    void Start(const std::function<void()>& ask, std::chrono::microseconds interval) {
        supervision.emplace(log, Supervision::Subject{ask, [this] { return status; }}, interval);
    }
    // The next thing that is told; empty when nothing is.
    std::string Next() const {
        std::array<char, 4096> text{};
        const ssize_t size = recv(fd, text.data(), text.size(), 0);
        return {text.data(), static_cast<std::size_t>(std::max<ssize_t>(size, 0))};
    }
    bool IsSilent() const {
        char byte = 0;
        return recv(fd, &byte, 1, MSG_DONTWAIT) < 0;
    }

    static constexpr std::chrono::milliseconds interval{3};
    const Brantel::Tests::TemporaryFolder folder;
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ServerLog log{LogOptions()};
    std::string status = "Serving";
    std::optional<Supervision> supervision;
};

TEST_F(SupervisionTest, ItTellsTheStatusOnceAndLifeAgainAndAgain) {
    std::atomic<int> asked{0};
    Start([&] { ++asked; }, interval);
    EXPECT_EQ(Next(), "STATUS=Serving");
    EXPECT_EQ(Next(), "WATCHDOG=1");
    EXPECT_EQ(Next(), "WATCHDOG=1");
    EXPECT_GE(asked, 2);
}

TEST_F(SupervisionTest, AStorageThatHangsIsNotToldToLive) {
    Gate answering;
    Gate asked;
    int answers = 0;
    Start(
        [&] {
            if (++answers == 2) {
                asked.Open();
                answering.Wait();
            }
        },
        interval);
    EXPECT_EQ(Next(), "STATUS=Serving");
    EXPECT_EQ(Next(), "WATCHDOG=1");
    ASSERT_TRUE(asked.Wait());
    EXPECT_TRUE(IsSilent());
    answering.Open();
    EXPECT_EQ(Next(), "WATCHDOG=1");
}

TEST_F(SupervisionTest, AStorageThatFailsIsNotToldToLive) {
    Gate again;
    int asked = 0;
    Start(
        [&] {
            if (++asked == 3) {
                again.Open();
            }
            throw std::runtime_error("the disk is gone");
        },
        interval);
    ASSERT_TRUE(again.Wait());
    EXPECT_EQ(Next(), "STATUS=Serving");
    EXPECT_TRUE(IsSilent());
}

TEST_F(SupervisionTest, WithoutAWatchTheStorageIsNotAsked) {
    std::atomic<int> asked{0};
    Start([&] { ++asked; }, std::chrono::microseconds(0));
    EXPECT_EQ(Next(), "STATUS=Serving");
    supervision.reset();
    EXPECT_EQ(asked, 0);
}

TEST_F(SupervisionTest, WithoutAServiceManagerNothingIsAsked) {
    unsetenv("NOTIFY_SOCKET");
    std::atomic<int> asked{0};
    Start([&] { ++asked; }, interval);
    supervision.reset();
    EXPECT_EQ(asked, 0);
}

TEST_F(SupervisionTest, TheIntervalIsTheManagers) {
    EXPECT_EQ(ServiceManager::AliveInterval().count(), 0);
    setenv("WATCHDOG_USEC", "2000", 1);
    EXPECT_EQ(ServiceManager::AliveInterval().count(), 2000);
    setenv("WATCHDOG_PID", "1", 1);
    EXPECT_EQ(ServiceManager::AliveInterval().count(), 0);
    unsetenv("WATCHDOG_USEC");
    unsetenv("WATCHDOG_PID");
}

}  // namespace
