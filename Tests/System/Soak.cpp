// Soak [seconds]: mixed load on a server with the local engine for so long, 600 by default. Prints
// how it fares and ends with 0 when
//
// - every answer was right,
// - its memory is flat: the median of the last third of the time is at most 5 % and 4 MiB above
//   that of the second third (the first is to warm up),
// - nothing is left of the clients: when they have gone, it has as many sockets as before they
//   came, and no more threads than those and the few that flush,
// - its other descriptors don't grow: at most 8 more in the last third than in the second.
//
// Under sanitizers memory is kept back on purpose and is not judged.

#include "SoakLoad.h"
#include "Support/ServerProcess.h"
#include "Support/TemporaryFolder.h"
#include "Support/Waiting.h"

#include <libProtocolX/StorageClientX.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <limits>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

namespace {

using Brantel::Tests::SoakLoad;
using Seconds = std::chrono::duration<double>;

constexpr double mebibyte = 1 << 20;

// What a process takes of the machine.
struct Sample {
    double residentBytes = 0;
    double sockets = 0;
    double otherDescriptors = 0;
    double threads = 0;
};

double NumberBehind(const std::string& path, const std::string& name) {
    std::ifstream file(path);
    for (std::string word; file >> word;) {
        if (word == name) {
            double number = 0;
            file >> number;
            return number;
        }
        file.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
    }
    return 0;
}

Sample Look(pid_t process) {
    constexpr double kibibyte = 1024;
    const std::string folder = "/proc/" + std::to_string(process);
    Sample sample;
    sample.residentBytes = NumberBehind(folder + "/status", "VmRSS:") * kibibyte;
    sample.threads = NumberBehind(folder + "/status", "Threads:");
    for (const auto& entry : std::filesystem::directory_iterator(folder + "/fd")) {
        std::error_code gone;
        const std::string target = std::filesystem::read_symlink(entry.path(), gone).string();
        ++(target.starts_with("socket:") ? sample.sockets : sample.otherDescriptors);
    }
    return sample;
}

class Soak {
  public:
    explicit Soak(std::chrono::seconds duration)
        : duration(duration),
          server(folder.File("storage.sock"),
                 {"--data", folder.File("data"), "--keep-free", "0", "--prepare", "allocate",
                  "--durability", "interval:100ms"}) {}

    int Run() {
        const Sample before = Look(server.Process().Id());
        const std::vector<long> tracks = MakeTracks();
        SoakLoad load(server, tracks);
        Watch(load);
        load.End();
        JudgeEnd(before);
        for (const std::string& error : load.Errors()) {
            Say("WRONG: " + error);
        }
        for (int count = 0; count < SoakLoad::Counts; ++count) {
            const auto which = static_cast<SoakLoad::Count>(count);
            std::printf("%s: %llu\n", SoakLoad::NameOf(which),
                        static_cast<unsigned long long>(load.GetCount(which)));
            if (load.GetCount(which) == 0) {
                Say(std::string("WRONG: nothing was done: ") + SoakLoad::NameOf(which));
            }
        }
        JudgeMemory();
        JudgeDescriptors();
        if (server.Stop() != 0) {
            Say("WRONG: the server did not end well: " + server.Process().Errors());
        }
        std::printf("%s\n", isGood ? "soak: good" : "soak: FAILED");
        return isGood ? 0 : 1;
    }

  private:
    void Say(const std::string& text) {
        std::printf("%s\n", text.c_str());
        isGood = isGood && !text.starts_with("WRONG");
    }

    std::vector<long> MakeTracks() {
        constexpr long size = 24L << 20U;
        const auto client = server.ConnectOverUnix();
        std::vector<long> tracks;
        for (const char* durability : {"interval:100ms", "os", "always"}) {
            tracks.push_back(Brantel::Tests::CreateTrack(*client, size));
            client->SetTrackProperties(tracks.back(), {{"storage.durability", durability}});
        }
        return tracks;
    }

    void Watch(const SoakLoad& load) {
        constexpr int lines = 60;
        const auto interval = std::max<Seconds>(Seconds(duration) / lines, Seconds(0.5));
        const auto begin = std::chrono::steady_clock::now();
        std::printf("%8s %12s %8s %8s %8s %12s %12s %12s\n", "seconds", "memory MiB", "sockets",
                    "others", "threads", "appended/s", "read/s", "connected/s");
        std::uint64_t appended = 0;
        std::uint64_t read = 0;
        std::uint64_t connected = 0;
        for (int line = 1; Seconds(std::chrono::steady_clock::now() - begin) < duration; ++line) {
            std::this_thread::sleep_until(
                begin + std::chrono::duration_cast<std::chrono::nanoseconds>(interval * line));
            const Sample sample = Look(server.Process().Id());
            samples.push_back(sample);
            const auto rate = [&](SoakLoad::Count count, std::uint64_t& last) {
                const std::uint64_t now = load.GetCount(count);
                const std::uint64_t more = now - last;
                last = now;
                return static_cast<double>(more) / interval.count();
            };
            std::printf("%8.1f %12.1f %8.0f %8.0f %8.0f %12.0f %12.0f %12.0f\n",
                        (interval * line).count(), sample.residentBytes / mebibyte, sample.sockets,
                        sample.otherDescriptors, sample.threads, rate(SoakLoad::Appended, appended),
                        rate(SoakLoad::Read, read), rate(SoakLoad::Connected, connected));
            std::fflush(stdout);
        }
    }

    // Of the samples in the n-th third.
    std::vector<double> Third(std::size_t n, double Sample::*value) const {
        std::vector<double> values;
        for (std::size_t i = samples.size() * n / 3; i < samples.size() * (n + 1) / 3; ++i) {
            values.push_back(samples.at(i).*value);
        }
        std::sort(values.begin(), values.end());
        return values;
    }

    void JudgeEnd(const Sample& before) {
        constexpr double flushingThreads = 8;
        Sample after;
        const bool isBack = Brantel::Tests::Eventually([&] {
            after = Look(server.Process().Id());
            return after.sockets <= before.sockets &&
                   after.threads <= before.threads + flushingThreads;
        });
        std::printf("before the clients and after them: sockets %.0f %.0f, threads %.0f %.0f\n",
                    before.sockets, after.sockets, before.threads, after.threads);
        if (!isBack) {
            Say("WRONG: something is left of clients that have gone");
        }
    }

    void JudgeMemory() {
        const std::vector<double> second = Third(1, &Sample::residentBytes);
        const std::vector<double> last = Third(2, &Sample::residentBytes);
        if (second.empty() || last.empty()) {
            Say("WRONG: too few samples");
            return;
        }
        const double early = second.at(second.size() / 2) / mebibyte;
        const double late = last.at(last.size() / 2) / mebibyte;
        std::printf("memory, median of the second and the last third: %.1f, %.1f MiB\n", early,
                    late);
#ifdef BRANTEL_SOAK_IGNORES_MEMORY
        Say("SKIPPED: memory is not judged, this build has sanitizers or counts its lines");
#else
        constexpr double most = 1.05;
        if (late > early * most + 4) {
            Say("WRONG: memory grows");
        }
#endif
    }

    void JudgeDescriptors() {
        const double early = Third(1, &Sample::otherDescriptors).back();
        const double late = Third(2, &Sample::otherDescriptors).back();
        std::printf(
            "descriptors but for sockets, most in the second and the last third: %.0f, "
            "%.0f\n",
            early, late);
        if (late > early + 8) {
            Say("WRONG: descriptors are not closed");
        }
    }

    const std::chrono::seconds duration;
    Brantel::Tests::TemporaryFolder folder;
    Brantel::Tests::ServerProcess server;
    std::vector<Sample> samples;
    bool isGood = true;
};

}  // namespace

int main(int argc, char** argv) {
    constexpr int defaultSeconds = 600;
    try {
        const int seconds = argc > 1 ? std::stoi(argv[1]) : defaultSeconds;
        if (seconds < 3) {
            std::fprintf(stderr, "usage: Soak [seconds, at least 3]\n");
            return 2;
        }
        return Soak(std::chrono::seconds(seconds)).Run();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "Soak: %s\n", error.what());
        return 1;
    }
}
