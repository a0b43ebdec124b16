// Small sends that the system takes in part or late.
#include "ConnectionFixture.h"
#include "Support/InterruptingSignal.h"

#include <libServices/FileDescriptorServiceConnection.h>

#include <fcntl.h>
#include <sys/socket.h>

#include <csignal>
#include <string>
#include <thread>

namespace Brantel::Services {
namespace {

using Tests::Frame;
using Tests::InterruptingSignal;
using Tests::MessageOfSize;

class FileDescriptorServiceConnectionInterruptionTest : public ConnectionFixture {
  protected:
    // Puts so many bytes into the socket that it takes not one more; returns how many.
    std::size_t Fill() const {
        const std::string bytes(1000, 'f');
        std::size_t filled = 0;
        for (const std::size_t step : {bytes.size(), std::size_t{1}}) {
            ssize_t sent = 0;
            while ((sent = ::send(descriptor, bytes.data(), step, MSG_DONTWAIT)) > 0) {
                filled += static_cast<std::size_t>(sent);
            }
        }
        return filled;
    }
};

TEST_F(FileDescriptorServiceConnectionInterruptionTest, ASmallSendThatWasTakenInPartIsCompleted) {
    const int least = 1;
    ASSERT_EQ(::setsockopt(descriptor, SOL_SOCKET, SO_SNDBUF, &least, sizeof(least)), 0);
    const InterruptingSignal interrupting(SIGUSR1);
    const pthread_t sender = ::pthread_self();
    const long id = Tests::ThisThread();
    const std::string frame = Frame(MessageOfSize(16'000));
    std::string bytes;
    std::thread reading([&] {
        InterruptingSignal::Send(sender, id, SYS_sendto);
        Tests::WaitUntilBlockedIn(id, SYS_sendmsg);
        EXPECT_TRUE(peer.HasInput());
        bytes = peer.Read(frame.size());
    });
    EXPECT_TRUE(connection.Send(MessageOfSize(16'000)));
    reading.join();
    EXPECT_EQ(bytes, frame);
}

TEST_F(FileDescriptorServiceConnectionInterruptionTest,
       ADescriptorMadeNonBlockingBehindOurBackStillSendsSmallMessages) {
    ASSERT_EQ(::fcntl(descriptor, F_SETFL, O_NONBLOCK), 0);
    const long id = Tests::ThisThread();
    const std::size_t filled = Fill();
    std::string bytes;
    std::thread reading([&] {
        Tests::WaitUntilBlockedIn(id, SYS_poll);
        peer.Read(filled);
        bytes = peer.Read(Frame(MessageOfSize(5000)).size());
    });
    EXPECT_TRUE(connection.Send(MessageOfSize(5000)));
    reading.join();
    EXPECT_EQ(bytes, Frame(MessageOfSize(5000)));
}

}  // namespace
}  // namespace Brantel::Services
