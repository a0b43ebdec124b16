// The local engine and the tracks above it beside bare calls of the system for the same bytes, in
// turn, in one run: medians of at least five turns each.
//
//   EngineBench [--data FOLDER] [group...]
//
// Groups: append, small, read, lookup, ring, memory, start; all of them when none is named. The
// files lie in a new folder in FOLDER (/var/tmp when it is not given), which must not be memory.
#include "Bench/Comparison.h"
#include "Bench/EngineRows.h"

#include <linux/magic.h>
#include <sys/statfs.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <iostream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace Brantel::Bench {
namespace {

struct Group {
    std::string_view name;
    void (*measure)(Report& report, const std::string& folder);
};

constexpr std::array<Group, 7> groups{{
    {"append", MeasureAppends},
    {"small", MeasureSmallAppends},
    {"read", MeasureReads},
    {"lookup", MeasureLookups},
    {"ring", MeasureRing},
    {"memory", MeasureMemory},
    {"start", MeasureStart},
}};

struct Arguments {
    std::string data = "/var/tmp";
    std::vector<std::string_view> names;
};

Arguments Parse(int argc, char** argv) {
    Arguments arguments;
    const std::vector<std::string_view> words(argv + 1, argv + argc);
    for (std::size_t i = 0; i < words.size(); ++i) {
        if (words[i] == "--data" && i + 1 < words.size()) {
            arguments.data = words[++i];
            continue;
        }
        const bool isKnown = std::any_of(groups.begin(), groups.end(), [&](const Group& group) {
            return group.name == words[i];
        });
        if (!isKnown) {
            throw std::runtime_error("unknown argument " + std::string(words[i]));
        }
        arguments.names.push_back(words[i]);
    }
    return arguments;
}

// A folder of its own, removed with all it holds at the end.
class WorkFolder {
  public:
    explicit WorkFolder(const std::string& parent) : path(parent + "/brantel-bench-XXXXXX") {
        struct statfs system {};
        if (::mkdtemp(path.data()) == nullptr || ::statfs(path.c_str(), &system) != 0) {
            throw std::runtime_error("no folder can be made in " + parent);
        }
        if (system.f_type == TMPFS_MAGIC || system.f_type == RAMFS_MAGIC) {
            std::filesystem::remove(path);
            throw std::runtime_error(parent + " lies in memory: name a folder on a disk by --data");
        }
    }
    ~WorkFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }
    WorkFolder(const WorkFolder&) = delete;
    WorkFolder& operator=(const WorkFolder&) = delete;

    std::string Make(std::string_view name) const {
        std::string made = path + "/" + std::string(name);
        std::filesystem::create_directory(made);
        return made;
    }

  private:
    std::string path;
};

void Run(const Arguments& arguments) {
    const WorkFolder folder(arguments.data);
    Report report;
    for (const Group& group : groups) {
        const bool isWanted =
            arguments.names.empty() || std::find(arguments.names.begin(), arguments.names.end(),
                                                 group.name) != arguments.names.end();
        if (isWanted) {
            const std::string place = folder.Make(group.name);
            group.measure(report, place);
            std::filesystem::remove_all(place);
        }
    }
    report.End();
}

}  // namespace
}  // namespace Brantel::Bench

int main(int argc, char** argv) {
    try {
        Brantel::Bench::Run(Brantel::Bench::Parse(argc, argv));
    } catch (const std::exception& error) {
        std::cerr << "EngineBench: " << error.what() << '\n';
        return 1;
    }
    return 0;
}
