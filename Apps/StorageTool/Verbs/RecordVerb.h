#pragma once

namespace Brantel::Tool {

class VerbList;

// record: appends chunks from files or the standard input to a track.
void DeclareRecord(VerbList& verbs);

}  // namespace Brantel::Tool
