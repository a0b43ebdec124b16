#include "CommandLine.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <stdexcept>

namespace Brantel::Server {

namespace {

constexpr const char* program = "brantel-storaged";
constexpr std::size_t lowestMessageLimit = std::size_t{64} * 1024;
constexpr std::size_t highestMessageLimit = (std::size_t{1} << 31U) - 1;
constexpr std::size_t highestConnections = 1'000'000;
// Below lie the standard descriptors, which are in use.
constexpr int lowestReadyDescriptor = 3;

std::string CheckAddress(const std::string& text) {
    try {
        ListenAddress::Parse(text);
        return {};
    } catch (const std::invalid_argument& error) {
        return error.what();
    }
}

std::string CheckMode(const std::string& text) {
    const bool isOctal = !text.empty() && text.size() <= 4 &&
                         std::all_of(text.begin(), text.end(),
                                     [](char digit) { return digit >= '0' && digit <= '7'; });
    if (!isOctal || std::stoul(text, nullptr, 8) > 0777) {
        return "Mode " + text + " is not an octal number from 0 to 777";
    }
    return {};
}

// Bounds of a number as a check of CLI11, in words.
CLI::Validator Within(std::uint64_t lowest, std::uint64_t highest) {
    const auto check = [lowest, highest](const std::string& text) -> std::string {
        std::uint64_t value = 0;
        if (!CLI::detail::lexical_cast(text, value) || value < lowest || value > highest) {
            return text + " is not within " + std::to_string(lowest) + " to " +
                   std::to_string(highest);
        }
        return {};
    };
    return {check, std::to_string(lowest) + " to " + std::to_string(highest), "within"};
}

struct Texts {
    std::vector<std::string> listen;
    std::string socketMode = "660";
};

void Declare(CLI::App& app, ServerOptions& options, Texts& texts,
             const std::vector<std::string>& engines) {
    constexpr auto highestCapacity =
        static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
    const CLI::AsSizeValue asSize(true);
    app.set_version_flag("--version", std::string(program) + " " + BRANTEL_VERSION);
    app.add_option("--listen", texts.listen,
                   "Where to listen, any number of times: unix:PATH or tcp:HOST:PORT; HOST * is "
                   "every address of this machine, PORT 0 a free one")
        ->required()
        ->take_all()
        ->expected(1)
        ->type_name("ADDRESS")
        ->check(CLI::Validator(&CheckAddress, ""));
    app.add_option("--socket-mode", texts.socketMode,
                   "Access mode of the Unix-domain sockets' files (octal); connecting takes the "
                   "right to write")
        ->capture_default_str()
        ->type_name("MODE")
        ->check(CLI::Validator(&CheckMode, ""));
    app.add_option("--engine", options.engine, "What the tracks are kept on")
        ->required()
        ->type_name("NAME")
        ->check(CLI::IsMember(engines));
    app.add_option("--capacity", options.capacity,
                   "Bytes that all tracks together can reserve; units as in 500MB or 2GiB")
        ->capture_default_str()
        ->type_name("BYTES")
        ->transform(asSize)
        ->check(Within(ServerOptions::lowestCapacity, highestCapacity));
    app.add_option("--message-limit", options.messageLimit, "Bytes of the largest message")
        ->capture_default_str()
        ->type_name("BYTES")
        ->transform(asSize)
        ->check(Within(lowestMessageLimit, highestMessageLimit));
    app.add_option("--max-connections", options.maximumConnections,
                   "So many connections are served at once; one more is closed at once")
        ->capture_default_str()
        ->type_name("NUMBER")
        ->check(Within(1, highestConnections));
    app.add_option("--ready-fd", options.readyDescriptor,
                   "Descriptor that gets the addresses, one a line, and is then closed, once "
                   "clients are served")
        ->type_name("FD")
        ->check(Within(lowestReadyDescriptor, std::numeric_limits<int>::max()));
}

}  // namespace

CommandLine CommandLine::Parse(const std::vector<std::string>& arguments,
                               const std::vector<std::string>& engines) {
    CommandLine result;
    ServerOptions options;
    Texts texts;
    CLI::App app("Serves tracks to clients until SIGINT, SIGTERM or SIGHUP arrives", program);
    Declare(app, options, texts, engines);
    try {
        app.parse(std::vector<std::string>(arguments.rbegin(), arguments.rend()));
    } catch (const CLI::Success& done) {
        result.text =
            done.get_name() == "CallForHelp" ? app.help() : std::string(done.what()) + "\n";
        return result;
    } catch (const CLI::ParseError& error) {
        result.text = std::string(program) + ": " + error.what() + "\n\n" + app.help();
        result.exitCode = misused;
        return result;
    }
    for (const std::string& text : texts.listen) {
        options.listen.push_back(ListenAddress::Parse(text));
    }
    options.socketMode = static_cast<unsigned int>(std::stoul(texts.socketMode, nullptr, 8));
    result.options = std::move(options);
    return result;
}

}  // namespace Brantel::Server
