// brantel-storaged: reads the options, builds engine, storage and listeners, and serves until a
// signal asks for the end; or checks or recovers a store that nobody serves.

#include "Announcement.h"
#include "CommandLine.h"
#include "DefaultSocket.h"
#include "DescriptorLimit.h"
#include "HttpServer.h"
#include "Monitor.h"
#include "ServerLog.h"
#include "ServerSignals.h"
#include "ServiceManager.h"
#include "SettingsReload.h"
#include "SignalWatch.h"
#include "StorageServer.h"
#include "StoreJob.h"
#include "Supervision.h"
#include "Surroundings.h"

#include <libEngine/IEngine.h>
#include <libEngine/Local/LocalEngine.h>
#include <libEngine/Local/LocalOptions.h>
#include <libEngine/Memory/MemoryEngine.h>
#include <libEngine/ReadOnlyEngine.h>
#include <libTracks/StoreFindings.h>

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

namespace {

using Brantel::Server::ServerOptions;

using Brantel::Server::LogLevel;
using Brantel::Server::ServerLog;
using Brantel::Server::ServiceManager;
using Brantel::Server::SignalWatch;

void Print(const std::string& line) {
    std::fprintf(stderr, "brantel-storaged: %s\n", line.c_str());
}

using EnginePointer = std::unique_ptr<Brantel::Engine::IEngine>;

EnginePointer MakeLocal(const ServerOptions& options, ServerLog& log) {
    using Preparation = Brantel::Engine::LocalOptions::Preparation;
    Brantel::Engine::LocalOptions local;
    local.directory = options.dataFolder;
    local.limit = options.capacity.value_or(0);
    local.keepFree = options.keepFree;
    local.preparation = options.writesNewSpace ? Preparation::Write : Preparation::Allocate;
    local.report = [&log](const std::string& text) { log.Say(LogLevel::Warning, text); };
    local.note = [&log](const std::string& text) { log.Say(LogLevel::Info, text); };
    return std::make_unique<Brantel::Engine::LocalEngine>(local);
}

EnginePointer MakeMemory(const ServerOptions& options, ServerLog&) {
    constexpr std::uint64_t defaultCapacity = std::uint64_t{1} << 30U;
    return std::make_unique<Brantel::Engine::MemoryEngine>(
        options.capacity.value_or(defaultCapacity));
}

struct EngineChoice {
    const char* name;
    bool keepsFiles;
    EnginePointer (*make)(const ServerOptions& options, ServerLog& log);
};

// The one place that names concrete engines.
constexpr std::array engines{
    EngineChoice{"local", true, &MakeLocal},
    EngineChoice{"memory", false, &MakeMemory},
};

std::vector<Brantel::Server::EngineName> EngineNames() {
    std::vector<Brantel::Server::EngineName> names;
    names.reserve(engines.size());
    for (const EngineChoice& choice : engines) {
        names.push_back({choice.name, choice.keepsFiles});
    }
    return names;
}

EnginePointer MakeEngine(const ServerOptions& options, ServerLog& log) {
    for (const EngineChoice& choice : engines) {
        if (options.engine == choice.name && !choice.keepsFiles) {
            return choice.make(options, log);
        }
        if (options.engine == choice.name) {
            try {
                return choice.make(options, log);
            } catch (const std::runtime_error& error) {
                throw std::runtime_error(std::string(error.what()) +
                                         "; mend that, or choose another folder by --data");
            }
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

// Where to listen and where to keep the tracks, when nobody has said so.
ServerOptions Complete(ServerOptions options) {
    using Brantel::Server::DefaultSocket;
    const auto surroundings = Brantel::Server::Surroundings::OfProcess();
    options.passedSockets = Brantel::Server::ServiceManager::TakeSockets();
    if (options.listen.empty() && options.passedSockets.empty()) {
        options.listen = {DefaultSocket::Find(surroundings.isRoot,
                                              surroundings.Find("XDG_RUNTIME_DIR").value_or(""))};
        DefaultSocket::MakeFolder(options.listen.front());
    }
    if (!options.dataFolder.empty() && options.dataFolder == surroundings.DataFolder()) {
        // The engine makes the last folder alone, so that a slip of the pen makes no tree.
        const std::filesystem::path above = std::filesystem::path(options.dataFolder).parent_path();
        std::error_code error;
        std::filesystem::create_directories(above, error);
        if (error) {
            throw std::runtime_error(above.string() + ": making the folder of the tracks failed: " +
                                     error.message() + "; choose another one by --data");
        }
    }
    return options;
}

using HttpPointer = std::unique_ptr<Brantel::Server::HttpServer>;

// Null when there is none. A second server on a machine need not be told to use another port than
// the usual one: it does without.
HttpPointer ServeHttp(const ServerOptions& options, Brantel::Server::Monitor& monitor,
                      ServerLog& log) {
    if (!options.http) {
        return nullptr;
    }
    try {
        auto http = std::make_unique<Brantel::Server::HttpServer>(
            *options.http, [&monitor](const std::string& path) { return monitor.Answer(path); });
        log.Say(LogLevel::Info, "Health and metrics: http://" + http->GetAddress() + "/");
        return http;
    } catch (const std::runtime_error& error) {
        if (!options.http->IsDefaultHttp()) {
            throw;
        }
        log.Say(LogLevel::Warning, std::string(error.what()) + "; there are no health and metrics");
        return nullptr;
    }
}

std::string ServingStatus(const Brantel::Server::StorageServer& server) {
    const std::uint64_t connections = server.Counters().active;
    std::string text = "Serving " + std::to_string(connections) +
                       (connections == 1 ? " connection on " : " connections on ");
    for (const std::string& address : server.Addresses()) {
        text += (address == server.Addresses().front() ? "" : ", ") + address;
    }
    return text;
}

// Returns when the end is asked for.
void Heed(SignalWatch& signals, Brantel::Server::SettingsReload& reload,
          const Brantel::Server::StorageServer& server) {
    while (signals.Wait() == SIGHUP) {
        ServiceManager::TellReloading();
        reload.Run();
        ServiceManager::TellReady(ServingStatus(server));
    }
}

void Serve(const Brantel::Server::Configuration& configuration, const ServerOptions& chosen,
           const ServerOptions& options, SignalWatch& signals, ServerLog& log) {
    using Brantel::Server::Monitor;
    Brantel::Server::Announcement announcement(options.readyDescriptor, options.addressFile);
    const std::string shortage = Brantel::Server::RaiseDescriptorLimit(options.limits.connections);
    if (!shortage.empty()) {
        log.Say(LogLevel::Warning, shortage);
    }
    Monitor monitor(Brantel::Server::CommandLine::Version());
    // First, so that it can be asked how things are while the store is opened.
    const HttpPointer http = ServeHttp(options, monitor, log);
    ServiceManager::TellStatus("Opening the tracks, recovering what an earlier run left");
    const EnginePointer engine = MakeEngine(options, log);
    Brantel::Server::StorageServer server(*engine, options, log, {&log, &monitor.GetOperations()});
    const Monitor::Shown shown = monitor.Show([&server] { return server.GetStatus(); });
    Brantel::Server::SettingsReload reload(configuration, log, chosen,
                                           [&server](const ServerOptions& changed) {
                                               server.SetAccess(changed.access);
                                               server.SetLimits(changed.limits);
                                           });
    signals.Started();
    server.Start();
    monitor.SetPhase(Monitor::Phase::Ready);
    announcement.Announce(server.Addresses());
    for (const std::string& address : server.Addresses()) {
        log.Say(LogLevel::Info, "Listening on " + address);
    }
    ServiceManager::TellReady(ServingStatus(server));
    const Brantel::Server::Supervision supervision(
        log, {[&server] { server.AskStorage(); }, [&server] { return ServingStatus(server); }},
        ServiceManager::AliveInterval());
    Heed(signals, reload, server);
    monitor.SetPhase(Monitor::Phase::Stopping);
    ServiceManager::TellStopping();
    log.Say(LogLevel::Info, "Stopping");
    server.Stop();
}

// Returns the exit code.
int Run(const Brantel::Server::Configuration& configuration, const ServerOptions& options) {
    const Brantel::Server::ServerSignals signals;
    const ServerOptions completed = Complete(options);
    ServerLog log(options.log);
    try {
        SignalWatch watch(signals, log);
        Serve(configuration, options, completed, watch, log);
        log.Say(LogLevel::Info, "Stopped");
        return 0;
    } catch (const std::exception& error) {
        log.Say(LogLevel::Error, error.what());
        return 1;
    }
}

// The jobs are for the engine that keeps files.
int Run(const Brantel::Server::StoreJob& job) {
    using Brantel::Engine::LocalEngine;
    using Brantel::Engine::LocalOptions;
    Brantel::Tracks::StoreFindings findings(
        [](const std::string& text) { std::printf("%s\n", text.c_str()); });
    if (job.kind == Brantel::Server::StoreJob::Kind::Recover) {
        job.CheckTarget();
    }
    LocalOptions local;
    local.directory = job.folder;
    local.readOnly = true;
    local.report = [&findings](const std::string& text) { findings.Add(text); };
    LocalEngine store(local);
    Brantel::Engine::ReadOnlyEngine source(store);
    if (job.kind == Brantel::Server::StoreJob::Kind::Check) {
        return job.Check(source, findings);
    }
    LocalOptions made;
    made.directory = job.target;
    made.keepFree = 0;
    made.preparation = LocalOptions::Preparation::Allocate;
    made.report = &Print;
    LocalEngine target(made);
    return job.Recover(source, target, findings);
}

}  // namespace

int main(int argc, char** argv) {
    OpenStandardDescriptors();
    try {
        const auto commandLine = Brantel::Server::CommandLine::Parse(
            std::vector<std::string>(argv + (argc > 0 ? 1 : 0), argv + argc), EngineNames(),
            Brantel::Server::Surroundings::OfProcess());
        if (commandLine.job) {
            return Run(*commandLine.job);
        }
        if (!commandLine.options) {
            std::fputs(commandLine.text.c_str(), commandLine.exitCode == 0 ? stdout : stderr);
            return commandLine.exitCode;
        }
        return Run(*commandLine.configuration, *commandLine.options);
    } catch (const std::exception& error) {
        Print(error.what());
        return 1;
    }
}
