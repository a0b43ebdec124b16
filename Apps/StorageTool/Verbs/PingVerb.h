#pragma once

namespace Brantel::Tool {

class VerbList;

// ping: how long the server takes to answer.
void DeclarePing(VerbList& verbs);

}  // namespace Brantel::Tool
