#pragma once

namespace Brantel::Tool {

class VerbList;

// recover: saves what is whole of a damaged folder or export file.
void DeclareRecover(VerbList& verbs);

}  // namespace Brantel::Tool
