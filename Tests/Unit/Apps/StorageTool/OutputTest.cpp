#include <gtest/gtest.h>

#include <StorageTool/Output.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <iostream>
#include <string>
#include <system_error>

namespace Brantel::Tool {
namespace {

std::string Contents(int file) {
    std::array<char, 256> text{};
    const ssize_t size = pread(file, text.data(), text.size(), 0);
    return {text.data(), static_cast<std::size_t>(size)};
}

// The test's own standard descriptors, led into files meanwhile.
class OutputTest : public testing::Test {
  protected:
    void SetUp() override {
        std::cout.flush();
        dup2(output, STDOUT_FILENO);
        dup2(errors, STDERR_FILENO);
    }
    void TearDown() override {
        std::cout.flush();
        dup2(standardOutput, STDOUT_FILENO);
        dup2(standardErrors, STDERR_FILENO);
        for (const int descriptor : {output, errors, standardOutput, standardErrors}) {
            close(descriptor);
        }
    }

    const int output = memfd_create("output", MFD_CLOEXEC);
    const int errors = memfd_create("errors", MFD_CLOEXEC);
    const int standardOutput = dup(STDOUT_FILENO);
    const int standardErrors = dup(STDERR_FILENO);
};

TEST_F(OutputTest, WhatTheLibraryPrintsDoesNotComeBetweenTheToolsOwnLines) {
    Output own = Output::TakeStandardOutput();
    own.Line("{\"a\":1}");
    std::cout << "Storage seems disconnected: a diagnostic" << std::endl;
    own.Line("{\"b\":2}");
    own.Flush();
    EXPECT_EQ(Contents(output), "{\"a\":1}\n{\"b\":2}\n");
    EXPECT_EQ(Contents(errors), "Storage seems disconnected: a diagnostic\n");
}

TEST_F(OutputTest, NobodyWhoReadsIsReported) {
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
    close(ends[0]);
    Output output(ends[1]);
    const auto before = std::signal(SIGPIPE, SIG_IGN);
    output.Write("text");
    EXPECT_THROW(output.Flush(), OutputClosed);
    std::signal(SIGPIPE, before);
}

TEST_F(OutputTest, AFullDeviceIsReported) {
    Output output(open("/dev/full", O_WRONLY | O_CLOEXEC));
    output.Write("text");
    EXPECT_THROW(output.Flush(), std::system_error);
}

}  // namespace
}  // namespace Brantel::Tool
