#pragma once

#include <string>

namespace Brantel::Tool {

// What an answered append survives, as the server reads it: always, interval:200ms or os.
struct DurabilityText {
    // Throws Misuse for anything else; empty stands for that of the server.
    static void Check(const std::string& text);
};

}  // namespace Brantel::Tool
