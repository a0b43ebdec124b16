#pragma once

#include "Context.h"

#include <functional>
#include <string>
#include <unordered_map>

namespace CLI {
class App;
}

namespace Brantel::Tool {

// The verbs of the command line. A verb, or a family of verbs, is a pair of files in Verbs with one
// function, `void Declare...(VerbList&)`, that names its options and what runs it. Help, completion
// and manual are made from the same declarations.
class VerbList {
  public:
    // Returns the exit code; throws Misuse for what the options' own checks can't see, anything
    // else to fail.
    using Run = std::function<int(Context&)>;

    // Borrows the application.
    explicit VerbList(CLI::App& root);

    // A verb of this name and description; its options are added to what is returned.
    CLI::App& Add(const std::string& name, const std::string& description, Run run);
    // A word before verbs, as "track" in "track create".
    CLI::App& AddFamily(const std::string& name, const std::string& description);
    CLI::App& Add(CLI::App& family, const std::string& name, const std::string& description,
                  Run run);

    // An example that help and manual show: the command, and what it does.
    static void AddExample(CLI::App& verb, const std::string& command, const std::string& says);

    CLI::App& Root() { return root; }

    // The verb that was parsed, its words as "track create"; null and empty when there was none.
    const CLI::App* Chosen() const;
    std::string ChosenName() const;
    int RunChosen(Context& context) const;
    // Throws Misuse for an option or argument of the verb, or of all verbs, that is the empty text:
    // mostly a variable of a script that was not set, and never what is meant.
    void RefuseEmptyValues() const;

  private:
    CLI::App& root;
    std::unordered_map<const CLI::App*, Run> runs;
};

}  // namespace Brantel::Tool
