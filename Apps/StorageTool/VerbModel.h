#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace Brantel::Tool {

// The declared command line as plain data, for whoever writes it down in another form.
struct VerbModel {
    struct Argument {
        // "--rate", "-j"; empty for a positional one.
        std::vector<std::string> names;
        // What stands for the value: "RATE", "TRACK"; empty for a flag.
        std::string value;
        std::string description;
        // All values there are; empty: any.
        std::vector<std::string> choices;
        std::string standard;
        bool required = false;
        bool repeated = false;

        // Whether files are what fits.
        bool IsFile() const;
        bool IsTrack() const;
    };

    static VerbModel Of(const CLI::App& app);

    // The words of the verb, as "track create"; empty for the program itself.
    std::string path;
    std::string description;
    std::string footer;
    std::vector<Argument> options;
    std::vector<Argument> positionals;
    std::vector<VerbModel> verbs;

    // This and all below it, the ones above first.
    std::vector<const VerbModel*> All() const;
    // The last word of the path.
    std::string Name() const;
};

}  // namespace Brantel::Tool
