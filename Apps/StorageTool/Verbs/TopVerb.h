#pragma once

namespace Brantel::Tool {

class VerbList;

// top: tracks, workers and commands on the whole terminal.
void DeclareTop(VerbList& verbs);

}  // namespace Brantel::Tool
