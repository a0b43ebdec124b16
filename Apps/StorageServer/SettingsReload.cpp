#include "SettingsReload.h"

#include <exception>
#include <string>
#include <utility>

namespace Brantel::Server {

SettingsReload::SettingsReload(const Configuration& configuration, ServerLog& log,
                               ServerOptions running,
                               std::function<void(const ServerOptions&)> apply)
    : configuration(configuration),
      log(log),
      running(std::move(running)),
      apply(std::move(apply)) {}

void SettingsReload::Run() noexcept {
    try {
        Take();
    } catch (const std::exception& error) {
        log.Say(LogLevel::Error, std::string("The settings stay as they were: ") + error.what());
    }
}

void SettingsReload::Take() {
    const Configuration::Chosen wanted = configuration.Read();
    const ServerOptions next = configuration.Reload(running, wanted);
    log.Reload(next.log);
    apply(next);
    const std::string from = wanted.file.empty() ? "without a file" : "from " + wanted.file;
    log.Say(LogLevel::Info, "The settings were read again, " + from);
    for (const Configuration::Change& change : configuration.Compare(running, next)) {
        log.Say(LogLevel::Info, change.key + " is now " + change.after + ", was " + change.before);
    }
    for (const Configuration::Change& change : configuration.Compare(next, wanted.options)) {
        log.Say(LogLevel::Warning, change.key + " stays " + change.before +
                                       " until a restart, then it is " + change.after);
    }
    running = next;
}

}  // namespace Brantel::Server
