// A small call costs one sending and one receiving system call, and no other.
#include "Support/Frames.h"
#include "Support/SocketPair.h"

#include <libServices/FileDescriptorServiceConnection.h>

#include <google/protobuf/wrappers.pb.h>
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>

#include <map>
#include <thread>

namespace Brantel::Services {
namespace {

using Tests::MessageOfSize;
using Tests::SocketPair;

constexpr int calls = 200;

// The child's side: one call to have the buffers, then `calls` of them between two marks.
[[noreturn]] void MakeCalls(int fd, std::size_t size) {
    if (::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) {
        ::_exit(2);
    }
    SpinGovernor governor(std::chrono::nanoseconds(0));
    FileDescriptorServiceConnection connection(
        fd, FileDescriptorServiceConnection::defaultMessageLimit, governor);
    const google::protobuf::BytesValue message = MessageOfSize(size);
    google::protobuf::BytesValue answer;
    connection.Send(message);
    connection.Receive(answer);
    ::raise(SIGSTOP);
    for (int i = 0; i < calls; ++i) {
        connection.Send(message);
        connection.Receive(answer);
    }
    ::_exit(answer.value() == message.value() ? 0 : 1);
}

// How often the child enters which system call from its stop to its end; nothing when no process
// may be traced.
std::map<std::uint64_t, int> CountCalls(pid_t child) {
    std::map<std::uint64_t, int> counts;
    int status = 0;
    ::waitpid(child, &status, 0);
    if (!WIFSTOPPED(status)) {
        return counts;
    }
    ::ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
    while (WIFSTOPPED(status)) {
        if (WSTOPSIG(status) == (SIGTRAP | 0x80)) {
            __ptrace_syscall_info info{};
            ::ptrace(PTRACE_GET_SYSCALL_INFO, child, sizeof(info), &info);
            if (info.op == PTRACE_SYSCALL_INFO_ENTRY) {
                ++counts[info.entry.nr];
            }
        }
        ::ptrace(PTRACE_SYSCALL, child, nullptr, nullptr);
        ::waitpid(child, &status, 0);
    }
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
    return counts;
}

class FileDescriptorServiceConnectionGateTest : public ::testing::TestWithParam<std::size_t> {};

TEST_P(FileDescriptorServiceConnectionGateTest, ASmallCallIsOneSendAndOneReceive) {
    SocketPair pair;
    const pid_t child = ::fork();
    if (child == 0) {
        pair.far.Close();
        MakeCalls(pair.near.Take(), GetParam());
    }
    pair.near.Close();
    const std::size_t size = Tests::Frame(MessageOfSize(GetParam())).size();
    std::thread echoing([&] {
        for (int i = 0; i <= calls; ++i) {
            pair.far.Write(pair.far.Read(size));
        }
    });
    const std::map<std::uint64_t, int> counts = CountCalls(child);
    pair.far.FinishWriting();
    echoing.join();
    if (counts.empty()) {
        GTEST_SKIP() << "SKIPPED: no process may be traced here, so no system calls were counted";
    }
    const std::map<std::uint64_t, int> expected{
        {SYS_sendto, calls}, {SYS_recvfrom, calls}, {SYS_exit_group, 1}};
    EXPECT_EQ(counts, expected);
}

INSTANTIATE_TEST_SUITE_P(Sizes, FileDescriptorServiceConnectionGateTest,
                         ::testing::Values(0, 100, 4096, 16'000));

}  // namespace
}  // namespace Brantel::Services
