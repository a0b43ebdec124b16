#pragma once

namespace Brantel::Tool {

class VerbList;

// track create, grow, clear, delete.
void DeclareTrack(VerbList& verbs);

}  // namespace Brantel::Tool
