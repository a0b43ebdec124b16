#include "Support/HttpClient.h"
#include "Support/ProcessState.h"
#include "Support/TestSockets.h"
#include "Support/Waiting.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <StorageServer/HttpServer.h>

#include <chrono>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace Brantel::Server {
namespace {

using testing::HasSubstr;
using Tests::HttpAnswer;
using Tests::HttpRequest;
using Tests::HttpSocket;

class HttpServerTest : public testing::Test {
  protected:
    static ListenAddress Loopback(unsigned short port = 0) {
        return {ListenAddress::Kind::Tcp, {}, "127.0.0.1", port};
    }
    static HttpReply Reply(const std::string& path) {
        if (path == "/throws") {
            throw std::runtime_error("a secret");
        }
        return {path == "/busy" ? 503 : 200, "text/plain", "you asked for " + path + "\n"};
    }
    void Serve(HttpLimits limits = {}) {
        server = std::make_unique<HttpServer>(Loopback(), &Reply, limits);
        const std::string& address = server->GetAddress();
        port = static_cast<unsigned short>(std::stoul(address.substr(address.rfind(':') + 1)));
    }

    std::unique_ptr<HttpServer> server;
    unsigned short port = 0;
};

TEST_F(HttpServerTest, AGetIsAnsweredAndTheConnectionEnds) {
    Serve();
    const HttpAnswer answer = HttpRequest(port, "/some/path");
    EXPECT_EQ(answer.status, 200);
    EXPECT_EQ(answer.body, "you asked for /some/path\n");
    EXPECT_THAT(answer.head, HasSubstr("Content-Type: text/plain"));
    EXPECT_THAT(answer.head, HasSubstr("Content-Length: 25"));
    EXPECT_THAT(answer.head, HasSubstr("Cache-Control: no-store"));
}

TEST_F(HttpServerTest, TheQueryIsNotPartOfThePath) {
    Serve();
    EXPECT_EQ(HttpRequest(port, "/path?x=1&y=2").body, "you asked for /path\n");
}

TEST_F(HttpServerTest, AHeadIsAnsweredWithoutTheBody) {
    Serve();
    const HttpAnswer answer = HttpRequest(port, "/path", "HEAD");
    EXPECT_EQ(answer.status, 200);
    EXPECT_EQ(answer.body, "");
    EXPECT_THAT(answer.head, HasSubstr("Content-Length: 20"));
}

TEST_F(HttpServerTest, TheStatusIsWhatTheAnswerSays) {
    Serve();
    EXPECT_EQ(HttpRequest(port, "/busy").status, 503);
}

TEST_F(HttpServerTest, WhatWouldChangeSomethingIsRefused) {
    Serve();
    for (const std::string method : {"POST", "PUT", "DELETE", "PATCH", "OPTIONS"}) {
        const HttpAnswer answer =
            HttpRequest(port, "/path", method, "Content-Length: 5\r\n", "12345");
        EXPECT_EQ(answer.status, 405) << method;
        EXPECT_THAT(answer.head, HasSubstr("Allow: GET, HEAD")) << method;
    }
}

TEST_F(HttpServerTest, AFailureOfTheAnswerIsStatus500AndSaysNothingOfItsReason) {
    Serve();
    const HttpAnswer answer = HttpRequest(port, "/throws");
    EXPECT_EQ(answer.status, 500);
    EXPECT_EQ((answer.head + answer.body).find("a secret"), std::string::npos);
    EXPECT_EQ(HttpRequest(port, "/path").status, 200);
}

TEST_F(HttpServerTest, WhatIsNoRequestIsRefused) {
    Serve();
    for (const std::string bytes : {"nonsense\r\n\r\n", "GET\r\n\r\n", "\r\n\r\n",
                                    "GET /x HTTP/9.9\r\n\r\n", "\x16\x03\x01\x02\r\n\r\n"}) {
        const HttpSocket socket(port);
        ASSERT_TRUE(socket.Send(bytes));
        const std::string answer = socket.ReadAll();
        EXPECT_TRUE(answer.empty() || answer.starts_with("HTTP/1.1 400")) << answer;
    }
    EXPECT_EQ(HttpRequest(port, "/path").status, 200);
}

TEST_F(HttpServerTest, ALongHeadIsCutOff) {
    Serve();
    const HttpSocket socket(port);
    socket.Send("GET /path HTTP/1.1\r\n");
    for (int line = 0; line < 400 && socket.Send("X-Line: " + std::string(100, 'x') + "\r\n");
         ++line) {
    }
    const std::string answer = socket.ReadAll();
    EXPECT_EQ(answer.find("you asked"), std::string::npos);
    EXPECT_EQ(HttpRequest(port, "/path").status, 200);
}

TEST_F(HttpServerTest, AClientDoesNotChooseHowMuchWorkItsAnswerIs) {
    Serve();
    std::string ranges = "Range: bytes=0-";
    for (int range = 0; range < 1500; ++range) {
        ranges += ",0-";
    }
    const HttpAnswer answer =
        HttpRequest(port, "/path", "GET", ranges + "\r\nAccept-Encoding: gzip, br\r\n");
    EXPECT_EQ(answer.status, 200);
    EXPECT_EQ(answer.body, "you asked for /path\n");
}

TEST_F(HttpServerTest, AClientThatDripsIsCutOffWhenItsTimeIsOver) {
    HttpLimits limits;
    limits.exchange = std::chrono::milliseconds(300);
    Serve(limits);
    const auto begin = std::chrono::steady_clock::now();
    const HttpSocket socket(port);
    socket.Send("GET /path HTTP/1.1\r\nX: ");
    std::size_t sent = 0;
    // Each byte alone would be in time. Ends when the server has closed.
    while (socket.Send("x") && ++sent < 8000) {
        pollfd event{socket.Get(), POLLIN, 0};
        if (poll(&event, 1, 20) != 0) {
            break;
        }
    }
    EXPECT_EQ(socket.ReadAll(), "");
    EXPECT_GE(std::chrono::steady_clock::now() - begin, limits.exchange / 2);
    EXPECT_LT(sent, 8000U);
}

TEST_F(HttpServerTest, ClientsThatDoNothingDoNotKeepOthersOut) {
    HttpLimits limits;
    limits.exchange = std::chrono::milliseconds(300);
    Serve(limits);
    std::vector<std::unique_ptr<HttpSocket>> silent;
    for (std::size_t count = 0; count < limits.threads + limits.queue + 20; ++count) {
        silent.push_back(std::make_unique<HttpSocket>(port));
    }
    EXPECT_TRUE(Tests::Eventually([&] { return HttpRequest(port, "/path").status == 200; }));
}

TEST_F(HttpServerTest, ManyClientsCostNoMoreThanItsThreadsAndItsQueue) {
    HttpLimits limits;
    limits.threads = 2;
    limits.queue = 3;
    Serve(limits);
    const std::size_t before = Tests::OpenDescriptors();
    std::vector<std::unique_ptr<HttpSocket>> silent;
    for (int count = 0; count < 50; ++count) {
        silent.push_back(std::make_unique<HttpSocket>(port));
    }
    // The ends of the server are what is more than ours.
    EXPECT_TRUE(Tests::Eventually(
        [&] { return Tests::OpenDescriptors() <= before + 50 + limits.threads + limits.queue; }));
}

TEST_F(HttpServerTest, ItEndsAtOnceWithClientsThatDoNothing) {
    Serve();
    const std::size_t before = Tests::OpenDescriptors();
    const HttpSocket silent(port);
    ASSERT_TRUE(Tests::Eventually([&] { return Tests::OpenDescriptors() >= before + 2; }));
    const auto begin = std::chrono::steady_clock::now();
    server.reset();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, HttpLimits().exchange);
    EXPECT_EQ(silent.ReadAll(), "");
}

TEST_F(HttpServerTest, NothingIsLeftOfItAtItsEnd) {
    // With its first thread a program under ThreadSanitizer gets another one, for good.
    std::thread([] {}).join();
    const std::size_t descriptors = Tests::OpenDescriptors();
    const std::size_t threads = Tests::RunningThreads();
    Serve();
    EXPECT_EQ(HttpRequest(port, "/path").status, 200);
    server.reset();
    EXPECT_EQ(Tests::OpenDescriptors(), descriptors);
    EXPECT_TRUE(Tests::Eventually([&] { return Tests::RunningThreads() == threads; }));
}

TEST_F(HttpServerTest, APortThatIsTakenIsNamed) {
    const Tests::PlainTcpListener taken("127.0.0.1");
    try {
        const HttpServer second(Loopback(taken.Port()), &Reply);
        FAIL() << "no error";
    } catch (const std::runtime_error& error) {
        EXPECT_EQ(std::string(error.what()), "Could not listen on 127.0.0.1 port " +
                                                 std::to_string(taken.Port()) +
                                                 " for HTTP: Address already in use; choose "
                                                 "another address by --http, or off");
    }
}

TEST_F(HttpServerTest, AnIpV6AddressIsServed) {
    if (!Tests::HasIpV6()) {
        GTEST_SKIP() << "SKIPPED: this machine has no IPv6";
    }
    const HttpServer other({ListenAddress::Kind::Tcp, {}, "::1", 0}, &Reply);
    EXPECT_THAT(other.GetAddress(), testing::StartsWith("[::1]:"));
}

}  // namespace
}  // namespace Brantel::Server
