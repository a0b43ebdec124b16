#pragma once

namespace Brantel::Tool {

class VerbList;

// tail: the last chunks of a track, and those that come.
void DeclareTail(VerbList& verbs);

}  // namespace Brantel::Tool
