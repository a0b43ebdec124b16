#pragma once

namespace Brantel::Tool {

class VerbList;

// check: whether a storage, a folder or an export file is whole.
void DeclareCheck(VerbList& verbs);

}  // namespace Brantel::Tool
