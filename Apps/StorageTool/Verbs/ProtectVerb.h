#pragma once

namespace Brantel::Tool {

class VerbList;

// protect add, ls, rm: stretches that are never recycled.
void DeclareProtect(VerbList& verbs);

}  // namespace Brantel::Tool
