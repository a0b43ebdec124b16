#include "CommandLine.h"

#include "ExitCodes.h"
#include "Verbs/CommandVerb.h"
#include "Verbs/CompletionVerb.h"
#include "Verbs/InfoVerb.h"
#include "Verbs/LsVerb.h"
#include "Verbs/PingVerb.h"
#include "Verbs/PropVerb.h"
#include "Verbs/ProtectVerb.h"
#include "Verbs/StreamVerbs.h"
#include "Verbs/TopVerb.h"
#include "Verbs/TrackVerb.h"
#include "Verbs/WorkerVerb.h"

#include <CLI/CLI.hpp>

namespace Brantel::Tool {

CommandLine::CommandLine()
    : root(std::make_unique<CLI::App>("Records, plays and looks after the tracks of a storage",
                                      "brantel")),
      verbs(std::make_unique<VerbList>(*root)) {
    // Exactly one verb: then the name of another one may be a value, and options of all verbs may
    // stand behind the verb too.
    root->require_subcommand(1);
    root->fallthrough();
    root->set_help_flag("-h,--help", "Print this help and end");
    root->set_version_flag("--version", std::string("brantel ") + BRANTEL_VERSION,
                           "Print the version and end");
    DeclareCommonOptions();
    DeclareVerbs();
    // Last: verbs would take it over.
    root->footer(
        "Exit codes: 0 done, 1 failed, 2 wrong usage, 3 done, but something was lost or damaged.\n"
        "brantel VERB --help says more about a verb");
}

CommandLine::~CommandLine() = default;

void CommandLine::DeclareCommonOptions() {
    root->add_option("--server", options.server,
                     "The storage: unix:PATH or tcp:HOST:PORT. Default: the variable "
                     "BRANTEL_SERVER, then the socket /run/brantel/storage.sock, for another user "
                     "than root $XDG_RUNTIME_DIR/brantel/storage.sock")
        ->type_name("ADDRESS");
    root->add_flag("-j,--json", options.json,
                   "One JSON object a line; whole numbers beyond 2^53 as strings");
    root->add_flag("-q,--quiet", options.quiet, "No messages but failures, no progress");
    root->add_flag("-v,--verbose", options.verbose, "Say more about what is done");
    root->add_option("--color", options.color,
                     "When to use colors: auto is on a terminal, unless "
                     "the variable NO_COLOR is set")
        ->type_name("WHEN")
        ->check(CLI::IsMember({"auto", "always", "never"}))
        ->capture_default_str();
    root->add_option("--time-format", options.timeFormat,
                     "How times are printed: auto is RFC 3339 from 2000 to 2199, else seconds")
        ->type_name("FORMAT")
        ->check(CLI::IsMember({"auto", "rfc3339", "seconds", "nanoseconds"}))
        ->capture_default_str();
    root->add_option("--timeout", options.timeout,
                     "How long connecting and each call to the server may take, as in 5s; without "
                     "it connecting may take 10s, calls as long as they do")
        ->type_name("DURATION");
}

void CommandLine::DeclareVerbs() {
    DeclareLs(*verbs);
    DeclareInfo(*verbs);
    DeclareTop(*verbs);
    DeclareTrack(*verbs);
    DeclareProp(*verbs);
    DeclareProtect(*verbs);
    DeclareWorker(*verbs);
    DeclareCommand(*verbs);
    DeclarePing(*verbs);
    DeclareStreams(*verbs);
    DeclareCompletion(*verbs);
}

// Where a verb is missing, a word that is none is more to the point.
std::string CommandLine::Describe(const CLI::ParseError& error) const {
    const std::vector<std::string> unknown = root->remaining(true);
    if (unknown.empty() || dynamic_cast<const CLI::RequiredError*>(&error) == nullptr) {
        return error.what();
    }
    const std::string family = verbs->ChosenName();
    const std::string& word = unknown.front();
    return word.starts_with('-')
               ? "There is no option " + word
               : "There is no verb " + family + (family.empty() ? "" : " ") + word;
}

CommandLine::Answer CommandLine::Parse(const std::vector<std::string>& arguments) {
    Answer answer;
    try {
        root->parse(std::vector<std::string>(arguments.rbegin(), arguments.rend()));
        return answer;
    } catch (const CLI::CallForHelp&) {
        answer.text = root->help();
    } catch (const CLI::Success& done) {
        answer.text = std::string(done.what()) + "\n";
    } catch (const CLI::ParseError& error) {
        const std::string name = verbs->ChosenName();
        answer.exitCode = ExitCodes::misused;
        answer.text = arguments.empty() ? root->help()
                                        : "brantel: " + Describe(error) + "\nTry: brantel " + name +
                                              (name.empty() ? "" : " ") + "--help\n";
    }
    answer.isComplete = true;
    return answer;
}

}  // namespace Brantel::Tool
