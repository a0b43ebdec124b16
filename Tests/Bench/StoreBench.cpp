// The storage beside what people use: the server and the facade, a bare exchange of the same bytes,
// and servers of others, measured in turn in one run.
//
//   ask            a small question with an answer of 8 bytes; "one": both ends on one processor
//   memory         append and read of values of 100 B to 8 MiB, kept in memory
//   os, interval,  the same with values in files, which survive the end of the server; a loss of
//     always       power but for the last second; a loss of power
//   walk           the next, and the previous, of 1,000 values of 4 KiB
//   many           small calls of 1, 10, 100 and 1,000 connections at once, a thread for each
//   crowd          the same, one thread for all: whoever can send a call and take its answer later
//   wake           from an append until another connection, which waits for it, goes on
//
// Everyone has a server process and, in this process, a client that keeps its connection open; the
// client is kept on the first processor and the server on the second one, unless the workload says
// otherwise. Rounds of all are in turn, each with fresh connections and a heap scattered in another
// way; a ratio is the median of the rounds' ratios, ours to theirs. Processor times are those of a
// call. The servers are children of this process, in folders of their own below the temporary
// folder (TMPDIR), and end with it.
//
// usage: StoreBench [--workload NAME]... [--peer NAME]... [--seconds S] [--list] [--json]

#include "Bench/Peers/Kinds.h"
#include "Bench/StoreTable.h"
#include "Support/TemporaryFolder.h"

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Brantel::Bench {
namespace {

constexpr double usualSeconds = 0.8;
constexpr int rounds = 8;
constexpr int crowdRounds = 3;
// Until a thousand threads have each called a few times.
constexpr double leastCrowdSeconds = 0.4;
constexpr int readyDescriptor = 3;

struct Options {
    std::vector<std::string> workloads;
    std::vector<std::string> peers;
    double seconds = usualSeconds;
    bool lists = false;
    bool asJson = false;
    std::string serves;
    std::string folder;
};

Options Parse(const std::vector<std::string>& words) {
    Options options;
    for (std::size_t i = 0; i < words.size(); ++i) {
        const auto value = [&]() -> const std::string& {
            if (++i == words.size()) {
                throw std::runtime_error(words[i - 1] + " needs a value");
            }
            return words[i];
        };
        if (words[i] == "--workload") {
            options.workloads.push_back(value());
        } else if (words[i] == "--peer") {
            options.peers.push_back(value());
        } else if (words[i] == "--seconds") {
            options.seconds = std::atof(value().c_str());
        } else if (words[i] == "--list") {
            options.lists = true;
        } else if (words[i] == "--json") {
            options.asJson = true;
        } else if (words[i] == "--serve") {
            options.serves = value();
            options.folder = value();
        } else {
            throw std::runtime_error("unknown argument " + words[i]);
        }
    }
    constexpr double longest = 3600;
    if (!(options.seconds > 0 && options.seconds <= longest)) {
        throw std::runtime_error("--seconds takes a number over 0, 3600 at most");
    }
    return options;
}

bool IsChosen(const std::vector<std::string>& chosen, const std::string& name) {
    const auto isMeant = [&name](const std::string& one) {
        return name == one || name.starts_with(one + "/");
    };
    return chosen.empty() || std::any_of(chosen.begin(), chosen.end(), isMeant);
}

template <typename Named>
void CheckNames(const std::vector<std::string>& chosen, const std::vector<Named>& all,
                const std::string& what) {
    for (const std::string& name : chosen) {
        if (std::none_of(all.begin(), all.end(),
                         [&](const Named& one) { return IsChosen({name}, one.name); })) {
            throw std::runtime_error("there is no " + what + " " + name + ": see --list");
        }
    }
}

void List(const std::vector<Workload>& workloads, const std::vector<PeerKind>& kinds) {
    for (const Workload& workload : workloads) {
        std::printf("%-28s %s\n", workload.name.c_str(), workload.about.c_str());
    }
    std::printf("\n");
    for (const PeerKind& kind : kinds) {
        std::printf("%-28s %s\n", kind.name.c_str(),
                    kind.missing.empty() ? kind.about.c_str() : ("SKIP: " + kind.missing).c_str());
    }
}

// One that takes part in a workload.
struct Competitor {
    std::string name;
    IPeer* peer = nullptr;
    std::size_t connections = 1;
};

class StoreBench {
  public:
    StoreBench(const Options& options, const std::string& folder)
        : options(options), folder(folder), kinds(AllKinds()), table(options.asJson) {
        CheckNames(options.peers, kinds, "peer");
    }

    void Run() {
        const std::vector<Workload> workloads = AllWorkloads();
        CheckNames(options.workloads, workloads, "workload");
        for (const Workload& workload : workloads) {
            if (IsChosen(options.workloads, workload.name)) {
                Measure(workload);
            }
        }
        table.End();
    }

  private:
    using Skips = std::vector<std::pair<std::string, std::string>>;

    // Ours and the bare exchange are in every run.
    bool TakesPart(const PeerKind& kind, const Workload& workload) const {
        Task task = workload.task;
        if (workload.kind == Workload::Kind::Wake) {
            task.work = Work::Wait;
        }
        return (!kind.does || kind.does(task, workload.keeping)) &&
               workload.connections <= kind.mostConnections &&
               (kind.hasHalves || !workload.task.inHalves) &&
               (kind.name == "brantel" || kind.name.starts_with("bare") ||
                IsChosen(options.peers, kind.name));
    }
    std::vector<Competitor> CompetitorsOf(const Workload& workload, Skips& skips) {
        if (keeping != workload.keeping) {
            running.clear();
            keeping = workload.keeping;
        }
        std::vector<Competitor> all;
        for (const PeerKind& kind : kinds) {
            if (!TakesPart(kind, workload)) {
                continue;
            }
            if (!kind.missing.empty()) {
                skips.emplace_back(kind.name, kind.missing);
                continue;
            }
            std::unique_ptr<IPeer>& peer = running[kind.name];
            if (!peer) {
                const std::string own = folder + "/" + std::to_string(started++) + kind.name;
                std::filesystem::create_directory(own);
                peer = kind.start(own, keeping);
            }
            all.push_back({kind.name, peer.get(), workload.connections});
        }
        if (workload.besideConnections != 0) {
            const Competitor ours{"brantel/" + std::to_string(workload.besideConnections),
                                  all.front().peer, workload.besideConnections};
            all.insert(all.begin() + 1, ours);
        }
        return all;
    }
    void Measure(const Workload& workload) {
        Skips skips;
        const std::vector<Competitor> all = CompetitorsOf(workload, skips);
        const bool isCrowd = workload.kind == Workload::Kind::ManyConnections;
        const int count = workload.kind == Workload::Kind::OneConnection ? rounds : crowdRounds;
        const double seconds = std::max(options.seconds / count, isCrowd ? leastCrowdSeconds : 0.0);
        std::vector<Measured> measured;
        for (const Competitor& one : all) {
            measured.push_back({one.name, {}});
        }
        for (int round = 0; round < count; ++round) {
            for (std::size_t i = 0; i < all.size(); ++i) {
                PlaceFor(workload, *all[i].peer);
                measured[i].rounds.push_back(MeasureRound(*all[i].peer, workload,
                                                          all[i].connections, seconds,
                                                          static_cast<unsigned>(round)));
            }
        }
        table.Add(workload, measured, skips);
    }
    static void PlaceFor(const Workload& workload, const IPeer& peer) {
        const Placing placing = workload.kind == Workload::Kind::Wake ? Placing::Free
                                : workload.oneProcessor               ? Placing::One
                                                                      : Placing::Two;
        Place(peer.Process(), placing);
    }

    const Options options;
    const std::string folder;
    const std::vector<PeerKind> kinds;
    StoreTable table;
    Keeping keeping = Keeping::Memory;
    std::map<std::string, std::unique_ptr<IPeer>> running;  // all with this keeping
    int started = 0;
};

int Serve(const Options& options) {
    for (const PeerKind& kind : AllKinds()) {
        if (kind.name == options.serves && kind.serve) {
            kind.serve(options.folder, [](int port) {
                const std::string text = std::to_string(port);
                if (::write(readyDescriptor, text.data(), text.size()) < 0) {
                    std::exit(EXIT_FAILURE);
                }
                ::close(readyDescriptor);
            });
            return EXIT_SUCCESS;
        }
    }
    throw std::runtime_error("nobody serves " + options.serves);
}

// Runs the work in a child and waits for it: whatever ends that, the folder is removed, and what
// ends this process ends the child and its servers.
int InFolder(const std::function<void(const std::string&)>& work) {
    constexpr std::array<int, 3> endings{SIGINT, SIGTERM, SIGHUP};
    struct sigaction interrupts {};
    interrupts.sa_handler = [](int) {};
    for (const int number : endings) {
        ::sigaction(number, &interrupts, nullptr);
    }
    // Servers that outlive the child become children of this process.
    ::prctl(PR_SET_CHILD_SUBREAPER, 1);
    const Tests::TemporaryFolder folder;
    // A server that runs as another user passes through it.
    std::filesystem::permissions(
        folder.Path(), std::filesystem::perms::group_exec | std::filesystem::perms::others_exec,
        std::filesystem::perm_options::add);
    const pid_t parent = ::getpid();
    const pid_t child = ::fork();
    if (child == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        for (const int number : endings) {
            std::signal(number, SIG_DFL);
        }
        int result = ::getppid() == parent ? EXIT_SUCCESS : EXIT_FAILURE;
        try {
            work(folder.Path());
        } catch (const std::exception& error) {
            std::fprintf(stderr, "StoreBench: %s\n", error.what());
            result = EXIT_FAILURE;
        }
        std::fflush(nullptr);
        // The folder is the parent's to remove.
        ::_exit(result);
    }
    int status = EXIT_FAILURE;
    if (::waitpid(child, &status, 0) != child) {
        ::kill(child, SIGKILL);
        ::waitpid(child, &status, 0);
    }
    while (::waitpid(-1, nullptr, 0) > 0) {
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : EXIT_FAILURE;
}

int Main(const std::vector<std::string>& words) {
    const Options options = Parse(words);
    if (!options.serves.empty()) {
        return Serve(options);
    }
    if (options.lists) {
        List(AllWorkloads(), AllKinds());
        return EXIT_SUCCESS;
    }
    return InFolder([&](const std::string& folder) { StoreBench(options, folder).Run(); });
}

}  // namespace
}  // namespace Brantel::Bench

int main(int argc, char** argv) {
    try {
        return Brantel::Bench::Main({argv + 1, argv + argc});
    } catch (const std::exception& error) {
        std::fprintf(stderr, "StoreBench: %s\n", error.what());
        return EXIT_FAILURE;
    }
}
