#include "CompletionScript.h"

#include <string_view>
#include <vector>

namespace Brantel::Tool {

namespace {

using Argument = VerbModel::Argument;

// The tracks' numbers, one a line; nothing when no server answers soon.
constexpr std::string_view listTracks =
    R"(brantel ls -j --timeout 500ms 2>/dev/null | sed -n 's/^{"track":"\{0,1\}\([0-9]*\).*/\1/p')";

std::string Join(const std::vector<std::string>& words, std::string_view separator) {
    std::string text;
    for (const std::string& word : words) {
        text += (text.empty() ? "" : std::string(separator)) + word;
    }
    return text;
}

// For the inside of single quotes of a shell.
std::string Quoted(std::string_view text) {
    std::string result = "'";
    for (const char character : text) {
        result += character == '\'' ? std::string(R"('\'')") : std::string(1, character);
    }
    return result + "'";
}

// Fish knows \' and \\ between single quotes, and nothing else.
std::string QuotedForFish(std::string_view text) {
    std::string result = "'";
    for (const char character : text) {
        result += character == '\'' || character == '\\' ? R"(\)" : "";
        result += character;
    }
    return result + "'";
}

std::string FirstSentence(const std::string& description) {
    return description.substr(0, description.find_first_of("\n;:"));
}

// The options of the verb and those of the program itself, which every verb takes.
std::vector<Argument> OptionsOf(const VerbModel& root, const VerbModel& verb) {
    std::vector<Argument> options = verb.options;
    for (const Argument& option : root.options) {
        const bool isOwn =
            &root == &verb || option.names.back() == "--version" || option.names.back() == "--help";
        if (!isOwn) {
            options.push_back(option);
        }
    }
    return options;
}

std::vector<std::string> PathsOf(const VerbModel& root) {
    std::vector<std::string> paths;
    for (const VerbModel* const verb : root.All()) {
        if (!verb->path.empty()) {
            paths.push_back(Quoted(verb->path));
        }
    }
    return paths;
}

// Whether a positional argument of the verb satisfies `what`.
bool Takes(const VerbModel& verb, bool (Argument::*what)() const) {
    for (const Argument& positional : verb.positionals) {
        if ((positional.*what)()) {
            return true;
        }
    }
    return false;
}

std::string WordsOf(const VerbModel& root, const VerbModel& verb) {
    std::vector<std::string> words;
    for (const VerbModel& below : verb.verbs) {
        words.push_back(below.Name());
    }
    for (const Argument& positional : verb.positionals) {
        words.insert(words.end(), positional.choices.begin(), positional.choices.end());
    }
    for (const Argument& option : OptionsOf(root, verb)) {
        words.insert(words.end(), option.names.begin(), option.names.end());
    }
    return Join(words, " ");
}

// The shell's case for the value of an option: what completes it.
std::string BashValue(const Argument& option) {
    if (!option.choices.empty()) {
        return "words=" + Quoted(Join(option.choices, " "));
    }
    if (option.IsFile()) {
        return "files=1";
    }
    return option.IsTrack() ? "words=$(" + std::string(listTracks) + ")" : ":";
}

std::string BashCases(const VerbModel& root, bool values) {
    std::string text;
    for (const VerbModel* const verb : root.All()) {
        if (!values) {
            text += "        " + Quoted(verb->path) +
                    ")\n            words=" + Quoted(WordsOf(root, *verb)) + "\n";
            text += Takes(*verb, &Argument::IsTrack)
                        ? R"x(            [[ $cur == -* ]] || words+=" $()x" +
                              std::string(listTracks) + ")\"\n"
                        : std::string();
            text += Takes(*verb, &Argument::IsFile) ? "            files=1\n" : "";
            text += "            ;;\n";
            continue;
        }
        for (const Argument& option : OptionsOf(root, *verb)) {
            for (const std::string& name :
                 option.value.empty() ? std::vector<std::string>() : option.names) {
                text += "        " + Quoted(verb->path + " " + name) + ") " + BashValue(option) +
                        " ;;\n";
            }
        }
    }
    return text;
}

std::string ZshDescribed(const std::string& word, const std::string& description) {
    return "            " + Quoted(word + ":" + FirstSentence(description)) + "\n";
}

std::string ZshCase(const VerbModel& root, const VerbModel& verb) {
    std::string text = "        " + Quoted(verb.path) + ")\n        words_=(\n";
    for (const VerbModel& below : verb.verbs) {
        text += ZshDescribed(below.Name(), below.description);
    }
    for (const Argument& positional : verb.positionals) {
        for (const std::string& choice : positional.choices) {
            text += ZshDescribed(choice, positional.description);
        }
    }
    for (const Argument& option : OptionsOf(root, verb)) {
        for (const std::string& name : option.names) {
            text += ZshDescribed(name, option.description);
        }
    }
    text += "        )\n";
    text += Takes(verb, &Argument::IsTrack)
                ? "        words_+=(${(f)\"$(" + std::string(listTracks) + ")\"})\n"
                : std::string();
    text += Takes(verb, &Argument::IsFile) ? "        files=1\n" : "";
    return text + "        ;;\n";
}

std::string ZshValues(const VerbModel& root) {
    std::string text;
    for (const VerbModel* const verb : root.All()) {
        for (const Argument& option : OptionsOf(root, *verb)) {
            for (const std::string& name :
                 option.value.empty() ? std::vector<std::string>() : option.names) {
                text += "        " + Quoted(verb->path + " " + name) + ") ";
                if (!option.choices.empty()) {
                    text += "compadd -- " + Join(option.choices, " ");
                } else if (option.IsTrack()) {
                    text += R"x(compadd -- ${(f)"$()x" + std::string(listTracks) + R"x()"})x";
                } else {
                    text += option.IsFile() ? "_files" : "_message " + Quoted(option.value);
                }
                text += "; return ;;\n";
            }
        }
    }
    return text;
}

std::string FishOption(const VerbModel& verb, const Argument& option) {
    std::string text = "complete -c brantel -n " +
                       QuotedForFish(verb.path.empty() ? "true" : "__brantel_at " + verb.path);
    for (const std::string& name : option.names) {
        text += name.starts_with("--") ? " -l " + name.substr(2) : " -s " + name.substr(1);
    }
    if (!option.choices.empty()) {
        text += " -x -a " + QuotedForFish(Join(option.choices, " "));
    } else if (option.IsTrack()) {
        text += " -x -a '(__brantel_tracks)'";
    } else if (!option.value.empty()) {
        text += option.IsFile() ? " -r -F" : " -x";
    }
    return text + " -d " + QuotedForFish(FirstSentence(option.description)) + "\n";
}

std::string FishVerb(const VerbModel& verb) {
    const std::string at =
        "complete -c brantel -n " +
        QuotedForFish("__brantel_at" + (verb.path.empty() ? "" : " " + verb.path));
    std::string text;
    for (const VerbModel& below : verb.verbs) {
        text += at + " -a " + below.Name() + " -d " +
                QuotedForFish(FirstSentence(below.description)) + "\n";
    }
    for (const Argument& positional : verb.positionals) {
        if (!positional.choices.empty()) {
            text += at + " -a " + QuotedForFish(Join(positional.choices, " ")) + "\n";
        }
    }
    text += Takes(verb, &Argument::IsTrack) ? at + " -a '(__brantel_tracks)' -d Track\n" : "";
    text += Takes(verb, &Argument::IsFile) ? at + " -F\n" : "";
    for (const Argument& option : verb.options) {
        text += FishOption(verb, option);
    }
    return text;
}

}  // namespace

std::string CompletionScript::ForBash(const VerbModel& root) {
    return R"(# Completion of brantel for bash: source <(brantel completion bash)
_brantel() {
    local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD - 1]}
    local path= words= files= word i
    for ((i = 1; i < COMP_CWORD; i++)); do
        word="${path:+$path }${COMP_WORDS[i]}"
        case $word in
        )" +
           Join(PathsOf(root), "|") +
           R"() path=$word ;;
        esac
    done
    case "$path $prev" in
)" + BashCases(root, true) +
           R"(        *)
        case $path in
)" + BashCases(root, false) +
           R"(        esac
        ;;
    esac
    mapfile -t COMPREPLY < <(compgen -W "$words" -- "$cur")
    if [[ $files ]]; then
        compopt -o filenames 2>/dev/null
        mapfile -t -O "${#COMPREPLY[@]}" COMPREPLY < <(compgen -f -- "$cur")
    fi
}
complete -F _brantel brantel
)";
}

std::string CompletionScript::ForZsh(const VerbModel& root) {
    std::string cases;
    for (const VerbModel* const verb : root.All()) {
        cases += ZshCase(root, *verb);
    }
    return R"(#compdef brantel
# Completion of brantel for zsh: brantel completion zsh > a folder of $fpath/_brantel
_brantel() {
    local verb= word files= i
    local -a words_
    for ((i = 2; i < CURRENT; i++)); do
        word="${verb:+$verb }${words[i]}"
        case $word in
        )" +
           Join(PathsOf(root), "|") +
           R"() verb=$word ;;
        esac
    done
    case "$verb ${words[CURRENT - 1]}" in
)" + ZshValues(root) +
           R"(    esac
    case $verb in
)" + cases +
           R"(    esac
    _describe 'brantel' words_
    [[ -z $files ]] || _files
}
if [[ ${funcstack[1]-} == _brantel ]]; then
    _brantel "$@"
else
    compdef _brantel brantel
fi
)";
}

std::string CompletionScript::ForFish(const VerbModel& root) {
    std::string text = R"fish(# Completion of brantel for fish: brantel completion fish | source
function __brantel_path
    set -l path
    for word in (commandline -opc)[2..]
        switch "$path $word"
            case )fish";
    std::vector<std::string> paths;
    for (const VerbModel* const verb : root.All()) {
        if (!verb->path.empty()) {
            const std::size_t blank = verb->path.rfind(' ');
            const std::string above = blank == std::string::npos ? "" : verb->path.substr(0, blank);
            paths.push_back(QuotedForFish(above + " " + verb->Name()));
        }
    }
    text += Join(paths, " ") + R"fish(
                set -a path $word
        end
    end
    echo "$path"
end
function __brantel_at
    test "$(__brantel_path)" = "$argv"
end
function __brantel_tracks
    )fish" + std::string(listTracks) +
            R"(
end
complete -c brantel -f
)";
    for (const VerbModel* const verb : root.All()) {
        text += FishVerb(*verb);
    }
    return text;
}

}  // namespace Brantel::Tool
