// What a connection does when the system fails as no test can make it fail.
#include "ConnectionFixture.h"
#include "Support/ScriptedCalls.h"

#include <libServices/FileDescriptorServiceConnection.h>
#include <libServices/ServiceThread.h>
#include <libServices/SpinGovernor.h>

#include <chrono>
#include <stdexcept>
#include <string>
#include <system_error>

namespace Brantel::Services {
namespace {

using Tests::Fails;
using Tests::Passes;
using Tests::Returns;
using Tests::ScriptedCall;
using Tests::SystemCall;

class FileDescriptorServiceConnectionSystemTest : public ConnectionFixture {
  protected:
    // A descriptor that can't be prepared is refused and closed.
    static void ExpectRefused() {
        Tests::SocketPair pair;
        const int fd = pair.near.Take();
        EXPECT_EQ(TextOf<std::system_error>([&] { const FileDescriptorServiceConnection c(fd); }),
                  "Could not use descriptor " + std::to_string(fd) + ": Operation not permitted");
        EXPECT_TRUE(pair.far.SeesTheEnd());
    }
};

TEST_F(FileDescriptorServiceConnectionSystemTest, ADescriptorThatCannotBeMadeBlockingIsRefused) {
    const ScriptedCall fcntl(SystemCall::Fcntl, {Passes(), Fails(EPERM)});
    ExpectRefused();
}

TEST_F(FileDescriptorServiceConnectionSystemTest,
       ADescriptorThatCannotBeMadeToCloseOnExecIsRefused) {
    const ScriptedCall fcntl(SystemCall::Fcntl, {Passes(), Passes(), Fails(EPERM)});
    ExpectRefused();
}

TEST_F(FileDescriptorServiceConnectionSystemTest, ASocketThatDoesNotTellItsKindIsUsedAllTheSame) {
    Tests::SocketPair pair;
    const ScriptedCall getsockopt(SystemCall::Getsockopt, {Fails(ENOPROTOOPT)});
    FileDescriptorServiceConnection silent(pair.near.Take());
    EXPECT_EQ(getsockopt.Left(), 0U);
    EXPECT_TRUE(silent.Send(Tests::MessageOfSize(100'000)));
    const std::string frame = Tests::Frame(Tests::MessageOfSize(100'000));
    EXPECT_TRUE(pair.far.Read(frame.size()) == frame);
}

TEST_F(FileDescriptorServiceConnectionSystemTest, ASocketWhoseWaitsCannotBeLimitedIsRefused) {
    ConnectionLimits limits;
    limits.bytesPerSecond = 1000;
    const ScriptedCall setsockopt(SystemCall::Setsockopt, {Fails(ENOPROTOOPT)});
    EXPECT_EQ(TextOf<std::system_error>([&] { connection.SetLimits(limits, nullptr, nullptr); }),
              "Could not limit the waits of descriptor " + std::to_string(descriptor) +
                  ": Protocol not available");
}

TEST_F(FileDescriptorServiceConnectionSystemTest, ASignalDuringAPollIsNoLoss) {
    governor.SetBudget(std::chrono::hours(1));
    peer.Write(Tests::Frame(Tests::MessageOfSize(50)));
    const ScriptedCall recv(SystemCall::Recv, {Fails(EINTR)});
    EXPECT_TRUE(connection.Receive(received));
    EXPECT_EQ(received.value(), Tests::MessageOfSize(50).value());
    EXPECT_EQ(recv.Left(), 0U);
}

TEST_F(FileDescriptorServiceConnectionSystemTest, AFailureDuringAPollIsALoss) {
    governor.SetBudget(std::chrono::hours(1));
    const ScriptedCall recv(SystemCall::Recv, {Fails(EAGAIN), Fails(EAGAIN), Fails(ECONNRESET)});
    EXPECT_EQ(TextOfReceive(), "Connection lost: Connection reset by peer");
}

TEST(SpinGovernorSystemTest, WhenTheSystemDoesNotTellItsProcessorsThereIsOne) {
    const ScriptedCall sysconf(SystemCall::Sysconf, {Returns(-1)});
    EXPECT_EQ(SpinGovernor::OnlineProcessors(), 1U);
}

TEST(ServiceThreadSystemTest, AThreadWhoseAttributesTakeNoMemoryIsReported) {
    const ScriptedCall attributes(SystemCall::PthreadAttrInit, {Returns(ENOMEM)});
    EXPECT_EQ(TextOf<std::runtime_error>([] { const ServiceThread t(262'144, "test", [] {}); }),
              "Could not start a thread: Cannot allocate memory");
}

}  // namespace
}  // namespace Brantel::Services
