#include "Support/TemporaryFolder.h"
#include "Support/Waiting.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <StorageServer/LogOutput.h>
#include <StorageServer/LogStream.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

namespace {

using Brantel::Server::LogEvent;
using Brantel::Server::LogLine;
using Brantel::Server::LogOptions;
using Brantel::Server::LogOutput;
using Brantel::Server::LogStream;
using Brantel::Tests::Eventually;
using testing::ElementsAre;
using testing::MatchesRegex;

// Lines without their time: with a priority, which is cut off.
class LogStreamTest : public testing::Test {
  protected:
    LogStreamTest() {
        // As the server does for all its threads.
        sigset_t signals;
        sigemptyset(&signals);
        sigaddset(&signals, SIGPIPE);
        pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    }
    ~LogStreamTest() override { CloseEnds(); }

    void OpenOn(std::unique_ptr<LogOutput> output) {
        stream.emplace(std::move(output), LogLine::Style{LogOptions::Format::Text, true});
    }
    void OpenFile() { OpenOn(std::make_unique<LogOutput>(path)); }
    void OpenPipe() {
        ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
        OpenOn(std::make_unique<LogOutput>(ends[1]));
    }
    void OpenSocket() {
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), 0);
        OpenOn(std::make_unique<LogOutput>(ends[1]));
    }
    void CloseEnds() {
        for (int& end : ends) {
            if (end >= 0) {
                close(end);
            }
            end = -1;
        }
    }
    void Put(const std::string& text) {
        LogEvent event;
        event.text = text;
        stream->Put(event);
    }
    // Far more than waits anywhere.
    void PutMany() {
        for (int i = 0; i < manyLines; ++i) {
            Put(std::to_string(i) + std::string(500, 'x'));
        }
    }
    std::vector<std::string> Lines() const {
        std::ifstream file(path);
        std::vector<std::string> lines;
        for (std::string line; std::getline(file, line);) {
            lines.push_back(line.substr(3));
        }
        return lines;
    }
    // Reads until a line of the log tells how many were dropped; empty when none does.
    std::string ReadUntilDropped() {
        std::string text;
        std::array<char, 65536> part{};
        while (text.find(" were dropped") == std::string::npos) {
            const ssize_t size = read(ends[0], part.data(), part.size());
            if (size <= 0) {
                return {};
            }
            text.append(part.data(), static_cast<std::size_t>(size));
        }
        return text;
    }
    void ExpectThatNobodyWaitsAndTheLossIsTold() {
        const auto start = std::chrono::steady_clock::now();
        PutMany();
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
        const std::string text = ReadUntilDropped();
        EXPECT_EQ(text.substr(0, 6), "<6>0xx");
        EXPECT_NE(text.find(" lines of the log were dropped"), std::string::npos);
        // What is logged from now on arrives again.
        Put("afterwards");
        stream.reset();
        close(ends[1]);
        ends[1] = -1;
        std::string rest;
        std::array<char, 65536> part{};
        for (ssize_t size = 1; size > 0;) {
            size = read(ends[0], part.data(), part.size());
            rest.append(part.data(), static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
        }
        EXPECT_TRUE((text + rest).ends_with("<6>afterwards\n"));
    }

    static constexpr int manyLines = 10'000;
    const Brantel::Tests::TemporaryFolder folder;
    const std::string path = folder.File("log");
    std::array<int, 2> ends{-1, -1};
    std::optional<LogStream> stream;
};

TEST_F(LogStreamTest, LinesAreWrittenInTheirOrder) {
    OpenFile();
    Put("first");
    Put("second");
    stream.reset();
    EXPECT_THAT(Lines(), ElementsAre("first", "second"));
}

TEST_F(LogStreamTest, OneCanWaitUntilEverythingIsWritten) {
    OpenFile();
    Put("again");
    Put("again");
    EXPECT_TRUE(stream->WaitUntilWritten(Brantel::Tests::patience));
    EXPECT_THAT(Lines(), ElementsAre("again", "last line repeated 1 time"));
}

TEST_F(LogStreamTest, WhoWaitsForAPipeThatNobodyReadsWaitsNoLongerThanHeSays) {
    OpenPipe();
    PutMany();
    EXPECT_FALSE(stream->WaitUntilWritten(std::chrono::milliseconds(20)));
}

TEST_F(LogStreamTest, AFileIsGoneOnWith) {
    OpenFile();
    Put("first");
    stream.reset();
    OpenFile();
    Put("second");
    stream.reset();
    EXPECT_THAT(Lines(), ElementsAre("first", "second"));
}

TEST_F(LogStreamTest, EqualLinesAreFoldedIntoACount) {
    OpenFile();
    for (int i = 0; i < 42; ++i) {
        Put("again");
    }
    Put("other");
    stream.reset();
    EXPECT_THAT(Lines(), ElementsAre("again", "last line repeated 41 times", "other"));
}

TEST_F(LogStreamTest, TheCountIsWrittenAtTheEnd) {
    OpenFile();
    Put("again");
    Put("again");
    stream.reset();
    EXPECT_THAT(Lines(), ElementsAre("again", "last line repeated 1 time"));
}

TEST_F(LogStreamTest, TheCountIsWrittenAfterASecondThoughNothingElseHappens) {
    OpenFile();
    const auto start = std::chrono::steady_clock::now();
    Put("again");
    Put("again");
    ASSERT_TRUE(Eventually([this] { return Lines().size() == 2; }));
    EXPECT_GE(std::chrono::steady_clock::now() - start, LogStream::repeatedFor);
    EXPECT_EQ(Lines().at(1), "last line repeated 1 time");
    Put("again");
    stream.reset();
    EXPECT_THAT(Lines(), ElementsAre("again", "last line repeated 1 time",  //
                                     "last line repeated 1 time"));
}

TEST_F(LogStreamTest, LinesThatDifferInTheirDurationAloneAreEqual) {
    OpenFile();
    LogEvent event;
    event.operation = "ClearTrack";
    event.outcome = "failed";
    stream->Put(event);
    event.duration = std::chrono::seconds(1);
    stream->Put(event);
    event.trackId = 7;
    stream->Put(event);
    stream.reset();
    EXPECT_THAT(Lines(),
                ElementsAre("ClearTrack failed after 0.000 ms", "last line repeated 1 time",
                            "ClearTrack of track 7 failed after 1000.000 ms"));
}

TEST_F(LogStreamTest, APipeThatNobodyReadsHoldsNobodyUp) {
    OpenPipe();
    ExpectThatNobodyWaitsAndTheLossIsTold();
}

TEST_F(LogStreamTest, ASocketThatNobodyReadsHoldsNobodyUp) {
    OpenSocket();
    ExpectThatNobodyWaitsAndTheLossIsTold();
}

TEST_F(LogStreamTest, ItEndsAlthoughNobodyReads) {
    OpenPipe();
    PutMany();
    const auto start = std::chrono::steady_clock::now();
    stream.reset();
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
}

TEST_F(LogStreamTest, APipeWhoseReaderIsGoneIsNoHarm) {
    OpenPipe();
    close(ends[0]);
    ends[0] = -1;
    EXPECT_NO_THROW(Put("to nobody"));
    EXPECT_NO_THROW(Put("to nobody again"));
    stream.reset();
}

TEST_F(LogStreamTest, ThePipeOfOthersStaysAsItWas) {
    OpenPipe();
    EXPECT_EQ(fcntl(ends[1], F_GETFL) & O_NONBLOCK, 0);
}

TEST_F(LogStreamTest, AFileThatCannotBeOpenedIsRefusedWithItsPath) {
    try {
        const LogOutput output(folder.File("nowhere/log"));
        FAIL() << "it was opened";
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.what(), folder.File("nowhere/log") +
                                    ": the file could not be opened for writing: No such file or "
                                    "directory");
    }
}

}  // namespace
