// What one call costs, free of timing: instructions in user space of both ends together, system
// calls, page faults in steady state. Each figure is the difference of two runs, so that starting
// up does not count.
#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <regex>
#include <string>

namespace Brantel::Bench {
namespace {

// Standard output and error of a command line.
std::string Output(const std::string& command) {
    std::string output;
    FILE* pipe = ::popen((command + " 2>&1").c_str(), "r");
    if (pipe == nullptr) {
        return output;
    }
    std::array<char, 4096> buffer{};
    for (std::size_t got = 0; (got = std::fread(buffer.data(), 1, buffer.size(), pipe)) > 0;) {
        output.append(buffer.data(), got);
    }
    ::pclose(pipe);
    return output;
}

bool Has(const std::string& program) {
    return std::system(("command -v " + program + " > /dev/null").c_str()) == 0;
}

std::string CallCost(const std::string& kind, long calls, std::size_t size) {
    return std::string(CALL_COST) + " " + kind + " " + std::to_string(calls) + " " +
           std::to_string(size);
}

constexpr long fewCalls = 200;
constexpr long manyCalls = 1200;

long CountInstructions(const std::string& kind, long calls, std::size_t size) {
    const std::string output = Output("valgrind --tool=callgrind --callgrind-out-file=/dev/null " +
                                      CallCost(kind, calls, size));
    // One line for each of the two processes.
    const std::regex collected("Collected : ([0-9]+)");
    long sum = 0;
    long processes = 0;
    for (std::sregex_iterator match(output.begin(), output.end(), collected), end; match != end;
         ++match) {
        sum += std::stol((*match)[1]);
        ++processes;
    }
    EXPECT_EQ(processes, 2) << output;
    return sum;
}

void ExpectInstructions(const std::string& kind, std::size_t size, long limit) {
    if (!Has("valgrind")) {
        GTEST_SKIP() << "valgrind is not installed";
    }
    const long perCall =
        (CountInstructions(kind, manyCalls, size) - CountInstructions(kind, fewCalls, size)) /
        (manyCalls - fewCalls);
    std::cout << kind << " of " << size << " bytes: " << perCall << " instructions, limit " << limit
              << '\n';
    EXPECT_GT(perCall, 0);
    EXPECT_LE(perCall, limit);
}

// Measured 3,135, 5,847 and 8,630. About 500 of each are the transport's and the stubs' own; the
// rest is protobuf's and the allocator's.
TEST(CallGatesTest, SmallCallTakesAtMost3000Instructions) {
    ExpectInstructions("ping", 0, 3000);
}

TEST(CallGatesTest, AppendOf100BytesTakesAtMost5800Instructions) {
    ExpectInstructions("append", 100, 5800);
}

TEST(CallGatesTest, ReadOf100BytesTakesAtMost7300Instructions) {
    ExpectInstructions("read", 100, 7300);
}

// How often the program's calls were made, by strace's summary.
long CountSystemCalls(const std::string& kind, long calls) {
    const std::string output =
        Output("strace -f -c -e trace=sendto,sendmsg,recvfrom,recvmsg,poll,futex,read,write " +
               CallCost(kind, calls, 100));
    std::smatch match;
    if (!std::regex_search(output, match, std::regex("100\\.00 +[0-9.]+ +[0-9]+ +([0-9]+)"))) {
        ADD_FAILURE() << output;
        return 0;
    }
    return std::stol(match[1]);
}

TEST(CallGatesTest, SmallCallIsOneSendAndOneReceiveAtEachEnd) {
    if (!Has("strace") || Output("strace -c true").find("total") == std::string::npos) {
        GTEST_SKIP() << "strace is not installed or may not trace here";
    }
    for (const char* kind : {"ping", "append", "read"}) {
        const long more = CountSystemCalls(kind, manyCalls) - CountSystemCalls(kind, fewCalls);
        // Two of each; a waiting mutex or a split message would show as thousands.
        EXPECT_NEAR(static_cast<double>(more) / (manyCalls - fewCalls), 4.0, 0.05) << kind;
    }
}

TEST(CallGatesTest, CallOf1MiBTakesNoPageFaultInSteadyState) {
    constexpr long calls = 400;
    for (const char* kind : {"append", "read"}) {
        const std::string output = Output(CallCost(kind, calls, std::size_t{1} << 20U));
        char* end = nullptr;
        const long faults = std::strtol(output.c_str(), &end, 10);
        ASSERT_NE(end, output.c_str()) << output;
        // Of 200 calls; a fresh buffer for each would be 256 faults a call.
        EXPECT_LT(faults, calls / 20) << kind;
    }
}

}  // namespace
}  // namespace Brantel::Bench
