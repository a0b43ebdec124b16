#pragma once

namespace Brantel::Tool {

class VerbList;

// The verbs that move chunks or look at them: record, play and their relatives.
void DeclareStreams(VerbList& verbs);

}  // namespace Brantel::Tool
