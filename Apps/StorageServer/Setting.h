#pragma once

#include "ServerOptions.h"

#include <functional>
#include <string>
#include <vector>

namespace Brantel::Server {

// One thing that an operator chooses, described once: the file, the environment, the flags, the
// help and the example are all made of this. A value.
struct Setting {
    // How it is written in the file; a flag and the environment always give texts.
    enum class Kind {
        Text,    // "..."
        Number,  // 17
        Size,    // 17 or "17MiB"
        Flag,    // true or false
        List,    // ["...", "..."], or a single "..."; with commas between in the environment
    };
    using Texts = std::vector<std::string>;

    // In the file as it is ("socket-mode"); its flag and its variable follow from it.
    std::string key;
    Kind kind = Kind::Text;
    // What stands for the value in the help.
    std::string placeholder;
    // Sentences without the final point.
    std::string help;
    // Whether a running server takes a new value over.
    bool reloads = false;
    // Only the command line can say it, because it means nothing but to whoever starts the server.
    bool isFlagOnly = false;
    // What the example file shows when the default is nothing that could be written down.
    Texts example;
    // Takes the value over: one text, any number for a list. Throws std::invalid_argument that says
    // what is wrong with it, the value and its limits included.
    std::function<void(ServerOptions& options, const Texts& texts)> take;
    // The value in the form that `take` reads; empty when it is not set.
    std::function<Texts(const ServerOptions& options)> show;

    // "--socket-mode"
    std::string FlagName() const;
    // "BRANTEL_SOCKET_MODE"
    std::string VariableName() const;
};

}  // namespace Brantel::Server
