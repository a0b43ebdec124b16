#pragma once

namespace Brantel::Tool {

class VerbList;

// export: a track, or a part of one, into a file.
void DeclareExport(VerbList& verbs);

}  // namespace Brantel::Tool
