#pragma once

#include "TrackOverview.h"

#include <string>
#include <vector>

namespace Brantel::Tool {

class Context;

// Tracks as rows: how full they are, what they hold, who writes. `width`: columns that a row may
// take, 0: any number.
std::string TrackTable(const Context& context, const std::vector<TrackOverview>& tracks,
                       std::size_t width);

}  // namespace Brantel::Tool
