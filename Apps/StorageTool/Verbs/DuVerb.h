#pragma once

namespace Brantel::Tool {

class VerbList;

// du: what the tracks take of the storage.
void DeclareDu(VerbList& verbs);

}  // namespace Brantel::Tool
