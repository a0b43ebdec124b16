#include "ManualPage.h"

#include <algorithm>
#include <cctype>
#include <sstream>
#include <string_view>

namespace Brantel::Tool {

namespace {

// Text that no macro and no escape is made of.
std::string Escape(std::string_view text) {
    std::string result;
    bool atStart = true;
    for (const char character : text) {
        if (atStart && (character == '.' || character == '\'')) {
            result += R"(\&)";
        }
        if (character == '\\') {
            result += R"(\e)";
        } else if (character == '-') {
            result += R"(\-)";
        } else {
            result += character;
        }
        atStart = character == '\n';
    }
    return result;
}

std::string Bold(std::string_view text) {
    return R"(\fB)" + Escape(text) + R"(\fR)";
}

std::string Italic(std::string_view text) {
    return R"(\fI)" + Escape(text) + R"(\fR)";
}

std::string Upper(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char character) {
        return static_cast<char>(std::toupper(character));
    });
    return text;
}

std::string Command(const VerbModel& verb) {
    return verb.path.empty() ? "brantel" : "brantel " + verb.path;
}

std::string Synopsis(const VerbModel& verb) {
    std::string text = Bold(Command(verb)) + " [" + Italic("OPTIONS") + "]";
    if (!verb.verbs.empty()) {
        return text + " " + Italic("VERB") + " ...";
    }
    for (const VerbModel::Argument& positional : verb.positionals) {
        const std::string name = Italic(positional.value) + (positional.repeated ? " ..." : "");
        text += positional.required ? " " + name : " [" + name + "]";
    }
    return text;
}

std::string Entry(const VerbModel::Argument& argument) {
    std::string text = ".TP\n";
    for (const std::string& name : argument.names) {
        text += (name == argument.names.front() ? "" : ", ") + Bold(name);
    }
    if (!argument.value.empty()) {
        text += (argument.names.empty() ? "" : " ") + Italic(argument.value);
    }
    text += "\n" + Escape(argument.description) + ".";
    std::string choices;
    for (const std::string& choice : argument.choices) {
        choices += (choices.empty() ? " One of: " : ", ") + Bold(choice);
    }
    text += choices.empty() ? "" : choices + ".";
    text += argument.standard.empty() ? "" : " Default: " + Bold(argument.standard) + ".";
    return text + "\n";
}

std::string Entries(const std::string& title, const std::vector<VerbModel::Argument>& arguments) {
    std::string text = arguments.empty() ? "" : ".SH " + title + "\n";
    for (const VerbModel::Argument& argument : arguments) {
        text += Entry(argument);
    }
    return text;
}

std::string Verbs(const VerbModel& verb) {
    std::string text = verb.verbs.empty() ? "" : ".SH VERBS\n";
    for (const VerbModel& below : verb.verbs) {
        text += ".TP\n" + Bold(below.Name()) + "\n" + Escape(below.description) + ".\n";
    }
    return text;
}

// The examples, two lines each below a title, as help shows them.
std::string Examples(const VerbModel& verb) {
    std::istringstream lines(verb.footer);
    std::string text;
    std::string line;
    if (!std::getline(lines, line) || line != "Examples:") {
        return text;
    }
    text = ".SH EXAMPLES\n";
    for (std::string command; std::getline(lines, command) && std::getline(lines, line);) {
        text += ".TP\n" + Bold(command.substr(command.find_first_not_of(' '))) + "\n" +
                Escape(line.substr(line.find_first_not_of(' '))) + ".\n";
    }
    return text;
}

std::string SeeAlso(const VerbModel& root, const VerbModel& verb) {
    std::string text;
    const auto add = [&](const VerbModel& other) {
        text += (text.empty() ? ".SH SEE ALSO\n" : ",\n") + std::string(".BR ") +
                Escape(ManualPage::NameOf(other)) + " (1)";
    };
    if (&root != &verb) {
        add(root);
    }
    for (const VerbModel& below : verb.verbs) {
        add(below);
    }
    return text.empty() ? text : text + "\n";
}

constexpr std::string_view times = R"(.SH TIMES
Times are written as
.BR now ", " start " and " end
(of the track), each also with an offset as in \fBnow\-90s\fR;
as \fB\-90s\fR, so long ago;
as \fB1h30m\fR, so long after zero, for tracks that count from there;
as RFC 3339, \fB2024\-05\-01T12:30:00.25Z\fR, with up to nine digits, or a date alone;
as a unix time of 10, 13, 16 or 19 digits, which are s, ms, us or ns;
as seconds, \fB12.5\fR, or seconds and nanoseconds, \fB12:500000000\fR.
Ranges are written as
.BR A..B ", " A.. ", " ..B ", " A+DURATION " or " [A_B) ,
from A until before B.
)";

constexpr std::string_view endings = R"(.SH EXIT STATUS
.TP
.B 0
Done.
.TP
.B 1
Failed; the reason is on the standard error.
.TP
.B 2
Wrong usage; nothing was done.
.TP
.B 3
Done, but something was lost or found damaged.
.SH ENVIRONMENT
.TP
.B BRANTEL_SERVER
The storage, as for
.BR \-\-server .
.TP
.B XDG_RUNTIME_DIR
Its folder brantel holds the default socket of a user.
.TP
.B NO_COLOR
When it is set and not empty, there are no colors unless
.B \-\-color always
asks for them.
)";

}  // namespace

std::string ManualPage::NameOf(const VerbModel& verb) {
    std::string name = Command(verb);
    std::replace(name.begin(), name.end(), ' ', '-');
    return name;
}

std::string ManualPage::Of(const VerbModel& root, const VerbModel& verb, const std::string& version,
                           const std::string& date) {
    const std::string name = NameOf(verb);
    std::string text = ".TH " + Escape(Upper(name)) + " 1 " + date + R"( "Brantel )" + version +
                       "\" \"Brantel\"\n.SH NAME\n" + Escape(name) + " \\- " +
                       Escape(verb.description) + "\n.SH SYNOPSIS\n" + Synopsis(verb) +
                       "\n.SH DESCRIPTION\n" + Escape(verb.description) + ".\n";
    const bool isRoot = &root == &verb;
    if (!isRoot) {
        text += "The options of\n.BR brantel (1)\nhold as well.\n";
    }
    text += Verbs(verb);
    text += Entries("ARGUMENTS", verb.positionals);
    text += Entries("OPTIONS", verb.options);
    text += Examples(verb);
    text += isRoot ? std::string(times) + std::string(endings) : std::string();
    return text + SeeAlso(root, verb);
}

}  // namespace Brantel::Tool
