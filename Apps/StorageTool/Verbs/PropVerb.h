#pragma once

namespace Brantel::Tool {

class VerbList;

// prop get, set, rm: the properties of a track.
void DeclareProp(VerbList& verbs);

}  // namespace Brantel::Tool
