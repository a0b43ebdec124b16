// Clients of the real server behind proxies that split, hold, cut, swallow and repeat what passes:
// no call gets another call's answer, what was answered is there, what was not is there at most
// once, and whoever lost a connection goes on over the next one.

#include "FaultProxy.h"
#include "ProxiedClient.h"
#include "Support/ProofSize.h"
#include "Support/ServerProcess.h"
#include "Support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <chrono>
#include <iomanip>
#include <iostream>
#include <map>
#include <memory>
#include <sstream>
#include <streambuf>
#include <string>
#include <thread>
#include <vector>

namespace Brantel::Tests {
namespace {

using ProtocolX::StorageClientX;

// The client library says on the standard output whom it could not tell of the end: not here.
class QuietOutput {
  public:
    QuietOutput() : former(std::cout.rdbuf(&nowhere)) {}
    ~QuietOutput() { std::cout.rdbuf(former); }
    QuietOutput(const QuietOutput&) = delete;
    QuietOutput& operator=(const QuietOutput&) = delete;

  private:
    class Nowhere : public std::streambuf {
        int overflow(int letter) override { return letter; }
        std::streamsize xsputn(const char* /*text*/, std::streamsize size) override { return size; }
    };

    Nowhere nowhere;
    std::streambuf* const former;
};

// Most pieces pass unharmed or in other pieces; about one exchange in a hundred ends its
// connection.
ProxyRates Harmful() {
    ProxyRates rates{};
    const auto set = [&](ProxyFault fault, unsigned oneIn) {
        rates.at(static_cast<std::size_t>(fault)) = oneIn;
    };
    set(ProxyFault::Split, 4);
    set(ProxyFault::ByteByByte, 50);
    set(ProxyFault::Delayed, 300);
    set(ProxyFault::Stalled, 2000);
    set(ProxyFault::Swallowed, 800);
    set(ProxyFault::Truncated, 800);
    set(ProxyFault::Reset, 800);
    set(ProxyFault::Doubled, 1000);
    set(ProxyFault::DoubledLate, 800);
    return rates;
}

ProxyRates Lying(ProxyFault lie) {
    constexpr unsigned oneAnswerIn = 20;
    constexpr unsigned oneAppendIn = 5;
    ProxyRates rates{};
    rates.at(static_cast<std::size_t>(lie)) =
        lie == ProxyFault::AppendForged ? oneAppendIn : oneAnswerIn;
    return rates;
}

class FaultProxyTest : public testing::Test {
  protected:
    struct Pair {
        std::unique_ptr<FaultProxy> proxy;
        std::unique_ptr<ProxiedClient> client;
    };

    FaultProxyTest() : direct(server.ConnectOverUnix()) {}

    // So many clients, each behind a proxy, half of them over TCP.
    void Make(std::size_t count, const ProxyRates& rates) {
        constexpr long mebibyte = 1L << 20U;
        constexpr long smallest = 24;
        for (std::size_t i = 0; i < count; ++i) {
            // Tracks differ in size.
            ProxiedTrack track;
            track.id = CreateTrack(*direct, (smallest + static_cast<long>(i)) * mebibyte);
            track.size = direct->GetTrackSize(track.id);
            direct->SetTrackProperties(track.id, {{"name", TrackName(track.id)}});
            tracks.push_back(track);
        }
        for (std::size_t i = 0; i < count; ++i) {
            const std::uint64_t seed = ProofSeed() * 1000 + i;
            Pair& pair = pairs.emplace_back();
            pair.proxy = std::make_unique<FaultProxy>(
                server, i % 2 == 0 ? Transport::Unix : Transport::Tcp, seed, rates);
            pair.client = std::make_unique<ProxiedClient>(*pair.proxy, tracks, i, seed);
        }
    }
    // All at once, so many calls together.
    void Run(std::uint64_t calls) {
        const QuietOutput quiet;
        std::vector<std::thread> threads;
        threads.reserve(pairs.size());
        for (Pair& pair : pairs) {
            threads.emplace_back([&] { pair.client->Run(calls / pairs.size()); });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        for (Pair& pair : pairs) {
            pair.client->CheckTrack(*direct);
        }
    }

    std::uint64_t Sum(std::uint64_t (ProxiedClient::*number)() const) const {
        std::uint64_t sum = 0;
        for (const Pair& pair : pairs) {
            sum += (*pair.client.*number)();
        }
        return sum;
    }
    std::uint64_t CountOf(ProxyFault fault) const {
        std::uint64_t sum = 0;
        for (const Pair& pair : pairs) {
            sum += pair.proxy->CountOf(fault);
        }
        return sum;
    }
    std::string Violations() const {
        std::string text;
        for (const Pair& pair : pairs) {
            for (const std::string& violation : pair.client->Violations()) {
                text += violation + "\n";
            }
        }
        return text;
    }

    void Print(std::chrono::duration<double> time) const {
        constexpr int width = 12;
        std::ostringstream text;
        text << "\nWhat became of the bytes that passed the proxies\n";
        for (std::size_t i = 0; i < static_cast<std::size_t>(ProxyFault::AnswerRepeated); ++i) {
            const auto fault = static_cast<ProxyFault>(i);
            text << std::setw(width) << CountOf(fault) << "  " << NameOf(fault) << '\n';
        }
        std::map<std::string, std::uint64_t> failures;
        for (const Pair& pair : pairs) {
            for (const auto& [failure, count] : pair.client->Failures()) {
                failures[failure] += count;
            }
        }
        text << "\nWhat became of the calls\n"
             << std::setw(width) << Sum(&ProxiedClient::Answered) << "  answered, each its own\n";
        for (const auto& [failure, count] : failures) {
            text << std::setw(width) << count << "  " << failure << '\n';
        }
        text << '\n'
             << std::setw(width) << Sum(&ProxiedClient::Connections) << "  connections\n"
             << std::setw(width) << Sum(&ProxiedClient::Appended)
             << "  appends answered, all there\n"
             << std::setw(width) << Sum(&ProxiedClient::FoundUnanswered)
             << "  appends not answered, yet there, once\n"
             << std::setw(width) << Sum(&ProxiedClient::ViolationCount) << "  violations\n"
             << std::setw(width) << std::fixed << std::setprecision(1) << time.count()
             << "  seconds, seed " << ProofSeed() << '\n';
        std::cout << text.str() << std::endl;
    }

    TemporaryFolder folder;
    ServerProcess server{folder.File("storage.sock")};
    std::unique_ptr<StorageClientX> direct;
    std::vector<ProxiedTrack> tracks;
    std::vector<Pair> pairs;
};

TEST_F(FaultProxyTest, NoCallGetsTheAnswerOfAnotherOneAndNothingAnsweredIsLost) {
    constexpr std::size_t clients = 8;
    constexpr std::uint64_t usual = 20'000;
    constexpr std::uint64_t proof = 1'000'000;
    Make(clients, Harmful());
    const auto start = std::chrono::steady_clock::now();
    Run(ProofSize(usual, proof));
    Print(std::chrono::steady_clock::now() - start);
    RecordProperty("cycles", std::to_string(Sum(&ProxiedClient::Answered)));
    EXPECT_EQ(Violations(), "") << "seed " << ProofSeed();
    EXPECT_GE(Sum(&ProxiedClient::Answered), ProofSize(usual, proof));
    for (std::size_t i = 0; i < static_cast<std::size_t>(ProxyFault::AnswerRepeated); ++i) {
        EXPECT_GT(CountOf(static_cast<ProxyFault>(i)), 0U) << NameOf(static_cast<ProxyFault>(i));
    }
    EXPECT_GT(Sum(&ProxiedClient::Connections), clients);
    EXPECT_EQ(server.Stop(), 0);
}

TEST_F(FaultProxyTest, WithoutFaultsNothingIsLostAndOneConnectionIsEnough) {
    Make(2, ProxyRates{});
    Run(500);
    EXPECT_EQ(Violations(), "");
    EXPECT_EQ(Sum(&ProxiedClient::Connections), 2U);
    EXPECT_EQ(Sum(&ProxiedClient::FoundUnanswered), 0U);
}

// A proxy that lies is noticed: the checks above can fail.
class LyingProxyTest : public FaultProxyTest {
  protected:
    void ExpectNoticed(ProxyFault lie) {
        Make(2, Lying(lie));
        Run(500);
        EXPECT_GT(CountOf(lie), 0U);
        EXPECT_GT(Sum(&ProxiedClient::ViolationCount), 0U);
    }
};

TEST_F(LyingProxyTest, AnAnswerThatComesTwiceIsNoticed) {
    ExpectNoticed(ProxyFault::AnswerRepeated);
}

TEST_F(LyingProxyTest, AnAnswerInThePlaceOfAnotherIsNoticed) {
    ExpectNoticed(ProxyFault::AnswerStale);
}

TEST_F(LyingProxyTest, AnAppendThatNobodyTookIsNoticed) {
    ExpectNoticed(ProxyFault::AppendForged);
}

}  // namespace
}  // namespace Brantel::Tests
