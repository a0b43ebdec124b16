#pragma once

namespace Brantel::Tool {

class VerbList;

// completion: scripts for shells; manual: the pages of the manual, for the installation.
void DeclareCompletion(VerbList& verbs);

}  // namespace Brantel::Tool
