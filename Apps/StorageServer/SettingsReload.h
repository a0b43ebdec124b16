#pragma once

#include "Configuration.h"
#include "ServerLog.h"
#include "ServerOptions.h"

#include <functional>

namespace Brantel::Server {

// Lets a running server take over what has changed in its settings, as far as it can. Used by one
// thread.
class SettingsReload {
  public:
    // The configuration and the log are borrowed. `apply` gives the rest of the server the options
    // that are in force from now on.
    SettingsReload(const Configuration& configuration, ServerLog& log, ServerOptions running,
                   std::function<void(const ServerOptions&)> apply);

    // Reads the settings again and logs what has changed and what needs a restart. Whatever is
    // wrong with them is logged, and everything stays as it was. Never throws.
    void Run() noexcept;

  private:
    void Take();

    const Configuration& configuration;
    ServerLog& log;
    ServerOptions running;
    const std::function<void(const ServerOptions&)> apply;
};

}  // namespace Brantel::Server
