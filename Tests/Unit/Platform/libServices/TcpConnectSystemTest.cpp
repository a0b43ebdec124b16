// What connecting does when the system fails as no test can make it fail.
#include "Support/ScriptedCalls.h"
#include "Support/TestSockets.h"

#include <libServices/FileDescriptorServiceConnection.h>
#include <libServices/TcpSocketConnection.h>

#include <gtest/gtest.h>

#include <netdb.h>

#include <stdexcept>
#include <string>

namespace Brantel::Services {
namespace {

using Tests::Fails;
using Tests::FailsAfterwards;
using Tests::Returns;
using Tests::ScriptedCall;
using Tests::SystemCall;

class TcpConnectSystemTest : public testing::Test {
  protected:
    // "connected", or the reason why not.
    std::string Connect(unsigned int timeout = 60'000) const {
        const std::string where =
            "Could not connect to 127.0.0.1 port " + std::to_string(listener.Port()) + ": ";
        try {
            const TcpSocketConnection<FileDescriptorServiceConnection> connection(
                "127.0.0.1", listener.Port(), timeout);
        } catch (const std::runtime_error& error) {
            const std::string text = error.what();
            EXPECT_EQ(text.substr(0, where.size()), where);
            return text.substr(where.size());
        }
        return "connected";
    }

    const Tests::PlainTcpListener listener{"127.0.0.1"};
};

TEST_F(TcpConnectSystemTest, AConnectionThatStandsAtOnceNeedsNoWait) {
    const ScriptedCall connect(SystemCall::Connect, {[](const auto& system) {
                                   system();
                                   return 0L;
                               }});
    const ScriptedCall poll(SystemCall::Poll, {Fails(ENOMEM)});
    EXPECT_EQ(Connect(), "connected");
    EXPECT_EQ(poll.Left(), 1U);
}

TEST_F(TcpConnectSystemTest, AnInterruptedConnectGoesOn) {
    const ScriptedCall connect(SystemCall::Connect, {FailsAfterwards(EINTR)});
    EXPECT_EQ(Connect(), "connected");
}

TEST_F(TcpConnectSystemTest, AConnectThatFailsAtOnceIsReported) {
    const ScriptedCall connect(SystemCall::Connect, {Fails(ENETUNREACH)});
    EXPECT_EQ(Connect(), "Network is unreachable");
}

TEST_F(TcpConnectSystemTest, TheSystemsOwnTimeoutIsReportedWithoutALimit) {
    const ScriptedCall connect(SystemCall::Connect, {Fails(ETIMEDOUT)});
    EXPECT_EQ(Connect(0), "Connection timed out");
}

TEST_F(TcpConnectSystemTest, AWaitThatFailsIsReported) {
    const ScriptedCall poll(SystemCall::Poll, {Fails(ENOMEM)});
    EXPECT_EQ(Connect(), "Cannot allocate memory");
}

TEST_F(TcpConnectSystemTest, AResultThatCannotBeAskedForIsReported) {
    const ScriptedCall getsockopt(SystemCall::Getsockopt, {Fails(ENOBUFS)});
    EXPECT_EQ(Connect(), "No buffer space available");
}

TEST_F(TcpConnectSystemTest, ASocketThatCannotBeMadeBlockingIsReported) {
    const ScriptedCall fcntl(SystemCall::Fcntl, {Fails(EPERM)});
    EXPECT_EQ(Connect(), "Operation not permitted");
}

TEST_F(TcpConnectSystemTest, WhatTheSystemSaidToTheNameServiceIsReported) {
    const ScriptedCall getaddrinfo(SystemCall::Getaddrinfo, {Returns(EAI_SYSTEM, EMFILE)});
    EXPECT_EQ(Connect(), "Too many open files");
}

}  // namespace
}  // namespace Brantel::Services
