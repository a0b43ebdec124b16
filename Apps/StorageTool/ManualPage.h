#pragma once

#include "VerbModel.h"

#include <string>

namespace Brantel::Tool {

// Pages of the manual, section 1, in the macros of man(7).
struct ManualPage {
    // The page of one verb, or of the whole program for the root. `version` and `date` stand in
    // the margins.
    static std::string Of(const VerbModel& root, const VerbModel& verb, const std::string& version,
                          const std::string& date);

    // Without the section: "brantel", "brantel-track-create".
    static std::string NameOf(const VerbModel& verb);
};

}  // namespace Brantel::Tool
