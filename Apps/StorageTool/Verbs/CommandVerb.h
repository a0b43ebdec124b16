#pragma once

namespace Brantel::Tool {

class VerbList;

// command ls, watch: what the server works on.
void DeclareCommand(VerbList& verbs);

}  // namespace Brantel::Tool
