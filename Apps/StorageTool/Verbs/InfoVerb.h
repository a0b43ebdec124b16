#pragma once

namespace Brantel::Tool {

class VerbList;

// info: all that is known of single tracks.
void DeclareInfo(VerbList& verbs);

}  // namespace Brantel::Tool
