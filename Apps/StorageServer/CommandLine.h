#pragma once

#include "Configuration.h"
#include "EngineName.h"
#include "ServerOptions.h"
#include "StoreJob.h"
#include "Surroundings.h"

#include <optional>
#include <string>
#include <vector>

namespace Brantel::Server {

// What the command line of the server says: options to serve with, a job on a store that nobody
// serves, or a text to end with.
struct CommandLine {
    // Begins with the options; the program's name is not among the arguments. `engines`: at least
    // one, the first of which is the default. The settings that no argument gives are those of the
    // surroundings. Never throws for what the arguments, the environment or the file hold.
    static CommandLine Parse(const std::vector<std::string>& arguments,
                             const std::vector<EngineName>& engines,
                             const Surroundings& surroundings = {});

    // Neither this nor the job is set: print `text`, to the standard output when the exit code is 0
    // and to the standard error otherwise, and end.
    std::optional<ServerOptions> options;
    // Set with the options: reads them again.
    std::optional<Configuration> configuration;
    std::optional<StoreJob> job;
    std::string text;
    int exitCode = 0;

    // Of this program: "2.1.5".
    static std::string Version();

    // Of a program whose arguments are wrong.
    static constexpr int misused = 2;
    // Of a program whose environment or file of settings is wrong.
    static constexpr int failed = 1;
};

}  // namespace Brantel::Server
