#pragma once

namespace Brantel::Tool {

class VerbList;

// import: an export file into a track.
void DeclareImport(VerbList& verbs);

}  // namespace Brantel::Tool
