#pragma once

namespace Brantel::Tool {

class VerbList;

// worker ls: who reads and writes.
void DeclareWorker(VerbList& verbs);

}  // namespace Brantel::Tool
