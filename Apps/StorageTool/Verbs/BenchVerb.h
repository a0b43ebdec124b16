#pragma once

namespace Brantel::Tool {

class VerbList;

// bench: how fast the storage is.
void DeclareBench(VerbList& verbs);

}  // namespace Brantel::Tool
