#pragma once

#include "ServerOptions.h"
#include "StoreJob.h"

#include <optional>
#include <string>
#include <vector>

namespace Brantel::Server {

// What --engine takes.
struct EngineName {
    std::string name;
    bool keepsFiles = false;  // it needs --data
};

// What the command line of the server says: options to serve with, a job on a store that nobody
// serves, or a text to end with.
struct CommandLine {
    // Begins with the options; the program's name is not among the arguments. `engines`: at least
    // one, the first of which is the default. Never throws for what the arguments hold.
    static CommandLine Parse(const std::vector<std::string>& arguments,
                             const std::vector<EngineName>& engines);

    // Neither this nor the job is set: print `text`, to the standard output when the exit code is 0
    // and to the standard error otherwise, and end.
    std::optional<ServerOptions> options;
    std::optional<StoreJob> job;
    std::string text;
    int exitCode = 0;

    // Of a program whose arguments are wrong.
    static constexpr int misused = 2;
};

}  // namespace Brantel::Server
