#pragma once

namespace Brantel::Tool {

class VerbList;

// get: one chunk by its time.
void DeclareGet(VerbList& verbs);

}  // namespace Brantel::Tool
