#pragma once

namespace Brantel::Tool {

class VerbList;

// play: writes the data of a track's chunks back out.
void DeclarePlay(VerbList& verbs);

}  // namespace Brantel::Tool
