// The settings of the server, from any file, environment and arguments: they are right or a text
// says what is wrong with them; and what is in force, written down as a file, is the same when that
// file is read.
#include "Support/FuzzCheck.h"

#include <StorageServer/CommandLine.h>
#include <StorageServer/Configuration.h>
#include <StorageServer/Surroundings.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace {

using Brantel::Server::CommandLine;
using Brantel::Server::Configuration;
using Brantel::Server::EngineName;
using Brantel::Server::Surroundings;
using Brantel::Tests::Require;

const std::vector<EngineName>& Engines() {
    static const std::vector<EngineName> engines{{"local", true}, {"memory", false}};
    return engines;
}

// A file in memory that others open by its path.
class MemoryFile {
  public:
    MemoryFile() : descriptor(::memfd_create("settings", MFD_CLOEXEC)) {
        Require(descriptor >= 0, "there is a file in memory");
    }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;
    ~MemoryFile() { ::close(descriptor); }

    void Write(std::string_view bytes) const {
        Require(::ftruncate(descriptor, 0) == 0, "the file is emptied");
        const ssize_t size = ::pwrite(descriptor, bytes.data(), bytes.size(), 0);
        Require(size == static_cast<ssize_t>(bytes.size()), "the file is written");
    }
    std::string Path() const { return "/proc/self/fd/" + std::to_string(descriptor); }

  private:
    const int descriptor;
};

std::vector<std::string> LinesOf(std::string_view text) {
    std::vector<std::string> lines;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        lines.emplace_back(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return lines;
}

bool IsAscii(std::string_view text) {
    return std::all_of(text.begin(), text.end(),
                       [](char byte) { return byte >= 0 && byte != '\x7f'; });
}

struct Input {
    std::string_view file;
    std::string_view environment;
    std::string_view arguments;

    // The three, with a zero byte behind each.
    explicit Input(std::string_view bytes) {
        for (std::string_view* part : {&file, &environment, &arguments}) {
            const std::size_t end = std::min(bytes.find('\0'), bytes.size());
            *part = bytes.substr(0, end);
            bytes.remove_prefix(std::min(end + 1, bytes.size()));
        }
    }
};

Surroundings MakeSurroundings(const Input& input, const std::string& file) {
    Surroundings surroundings;
    for (const std::string& line : LinesOf(input.environment)) {
        const std::size_t equals = std::min(line.find('='), line.size());
        const std::string value = line.substr(std::min(equals + 1, line.size()));
        surroundings.environment["BRANTEL_" + line.substr(0, equals)] = value;
    }
    // It would name another file than this one.
    surroundings.environment.erase("BRANTEL_CONFIG");
    surroundings.isRoot = true;
    surroundings.user = "root";
    surroundings.settingsFile = file;
    return surroundings;
}

// What is shown as in force, read as a file, is what was in force.
void CheckShown(const Configuration& configuration, const Configuration::Chosen& chosen,
                const MemoryFile& file) {
    if (chosen.origins.contains("ready-fd")) {
        return;  // which only the command line can say
    }
    const std::string shown = configuration.Describe(chosen);
    file.Write(shown);
    Surroundings bare;
    bare.isRoot = true;
    const Configuration again(Engines(), bare, {}, file.Path());
    try {
        const Configuration::Chosen read = again.Read();
        auto expected = chosen.options;
        if (expected.listen.empty()) {
            expected.listen = read.options.listen;
        }
        Require(again.Compare(expected, read.options).empty(), "what is shown is what was chosen");
    } catch (const std::exception& error) {
        Require(false, "what is shown can be read: " + std::string(error.what()) + "\n" + shown);
    }
}

void ReadWithoutArguments(const Input& input, const MemoryFile& file) {
    const Configuration configuration(Engines(), MakeSurroundings(input, file.Path()), {},
                                      std::nullopt);
    std::optional<Configuration::Chosen> chosen;
    try {
        chosen = configuration.Read();
    } catch (const std::runtime_error& error) {
        Require(*error.what() != '\0', "a refusal has a reason");
        return;
    }
    if (IsAscii(input.environment)) {
        CheckShown(configuration, *chosen, file);
    }
}

void ReadWithArguments(const Input& input, const MemoryFile& file) {
    const std::vector<std::string> arguments = LinesOf(input.arguments);
    for (const std::string& argument : arguments) {
        if (argument.starts_with("--config")) {
            return;  // any file of this machine
        }
    }
    const CommandLine line =
        CommandLine::Parse(arguments, Engines(), MakeSurroundings(input, file.Path()));
    const bool isText = !line.options && !line.job;
    Require(!line.options || !line.job, "it serves or has a job");
    Require(!isText || !line.text.empty(), "who does nothing else says something");
    Require(isText || line.exitCode == 0, "what is to be done is no failure");
    Require(line.exitCode >= 0 && line.exitCode <= CommandLine::misused, "the exit code is known");
    if (line.options && IsAscii(input.environment) && IsAscii(input.arguments)) {
        CheckShown(*line.configuration, line.configuration->Read(), file);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const MemoryFile file;
    const Input input(std::string_view(reinterpret_cast<const char*>(data), size));
    file.Write(input.file);
    if (input.arguments.empty()) {
        ReadWithoutArguments(input, file);
    } else {
        ReadWithArguments(input, file);
    }
    return 0;
}
