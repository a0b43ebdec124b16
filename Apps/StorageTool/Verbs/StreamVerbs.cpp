#include "Verbs/StreamVerbs.h"

#include "Verbs/PlayVerb.h"
#include "Verbs/RecordVerb.h"

namespace Brantel::Tool {

void DeclareStreams(VerbList& verbs) {
    DeclareRecord(verbs);
    DeclarePlay(verbs);
}

}  // namespace Brantel::Tool
