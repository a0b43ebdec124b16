#pragma once

namespace Brantel::Tool {

class VerbList;

// graph: rate, gaps and protections of a track over time.
void DeclareGraph(VerbList& verbs);

}  // namespace Brantel::Tool
