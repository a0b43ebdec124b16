// brantel-storaged: reads the options, builds engine, storage and listeners, and serves until a
// signal asks for the end.

#include "Announcement.h"
#include "CommandLine.h"
#include "StopSignals.h"
#include "StorageServer.h"

#include <libEngine/IEngine.h>
#include <libEngine/Memory/MemoryEngine.h>

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <exception>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using Brantel::Server::ServerOptions;

struct EngineChoice {
    const char* name;
    std::unique_ptr<Brantel::Engine::IEngine> (*make)(const ServerOptions& options);
};

// The one place that names concrete engines.
constexpr std::array engines{
    EngineChoice{"memory",
                 [](const ServerOptions& options) -> std::unique_ptr<Brantel::Engine::IEngine> {
                     return std::make_unique<Brantel::Engine::MemoryEngine>(options.capacity);
                 }},
};

std::vector<std::string> EngineNames() {
    std::vector<std::string> names;
    names.reserve(engines.size());
    for (const EngineChoice& choice : engines) {
        names.emplace_back(choice.name);
    }
    return names;
}

std::unique_ptr<Brantel::Engine::IEngine> MakeEngine(const ServerOptions& options) {
    for (const EngineChoice& choice : engines) {
        if (options.engine == choice.name) {
            return choice.make(options);
        }
    }
    throw std::runtime_error("Unknown engine " + options.engine);
}

// A socket that took the number of a closed standard descriptor would get what is printed.
void OpenStandardDescriptors() {
    int descriptor = -1;
    do {
        descriptor = open("/dev/null", O_RDWR);
    } while (descriptor >= 0 && descriptor <= STDERR_FILENO);
    if (descriptor >= 0) {
        close(descriptor);
    }
}

void Log(const std::string& line) {
    std::fprintf(stderr, "brantel-storaged: %s\n", line.c_str());
}

void Serve(const ServerOptions& options) {
    const Brantel::Server::StopSignals signals;
    Brantel::Server::Announcement announcement(options.readyDescriptor);
    const std::unique_ptr<Brantel::Engine::IEngine> engine = MakeEngine(options);
    Brantel::Server::StorageServer server(*engine, options, &Log);
    server.Start();
    announcement.Announce(server.Addresses());
    signals.Wait();
    server.Stop();
}

}  // namespace

int main(int argc, char** argv) {
    OpenStandardDescriptors();
    try {
        const auto commandLine = Brantel::Server::CommandLine::Parse(
            std::vector<std::string>(argv + (argc > 0 ? 1 : 0), argv + argc), EngineNames());
        if (!commandLine.options) {
            std::fputs(commandLine.text.c_str(), commandLine.exitCode == 0 ? stdout : stderr);
            return commandLine.exitCode;
        }
        Serve(*commandLine.options);
        return 0;
    } catch (const std::exception& error) {
        Log(error.what());
        return 1;
    }
}
