#include "Verbs/StreamVerbs.h"

#include "Verbs/BenchVerb.h"
#include "Verbs/CheckVerb.h"
#include "Verbs/DuVerb.h"
#include "Verbs/ExportVerb.h"
#include "Verbs/GapsVerb.h"
#include "Verbs/GetVerb.h"
#include "Verbs/GraphVerb.h"
#include "Verbs/ImportVerb.h"
#include "Verbs/PlayVerb.h"
#include "Verbs/RecordVerb.h"
#include "Verbs/RecoverVerb.h"
#include "Verbs/TailVerb.h"

namespace Brantel::Tool {

void DeclareStreams(VerbList& verbs) {
    DeclareRecord(verbs);
    DeclarePlay(verbs);
    DeclareGet(verbs);
    DeclareTail(verbs);
    DeclareExport(verbs);
    DeclareImport(verbs);
    DeclareGaps(verbs);
    DeclareGraph(verbs);
    DeclareDu(verbs);
    DeclareCheck(verbs);
    DeclareRecover(verbs);
    DeclareBench(verbs);
}

}  // namespace Brantel::Tool
