#pragma once

namespace Brantel::Tool {

class VerbList;

// gaps: the stretches of a track that no chunk covers.
void DeclareGaps(VerbList& verbs);

}  // namespace Brantel::Tool
