#pragma once

#include "VerbModel.h"

#include <string>

namespace Brantel::Tool {

// Scripts that complete the words of the command line: verbs, options, their values, files, and the
// numbers of the tracks that the server has.
struct CompletionScript {
    static std::string ForBash(const VerbModel& root);
    static std::string ForZsh(const VerbModel& root);
    static std::string ForFish(const VerbModel& root);
};

}  // namespace Brantel::Tool
