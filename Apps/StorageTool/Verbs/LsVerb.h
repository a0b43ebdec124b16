#pragma once

namespace Brantel::Tool {

class VerbList;

// ls: all tracks, one a row.
void DeclareLs(VerbList& verbs);

}  // namespace Brantel::Tool
