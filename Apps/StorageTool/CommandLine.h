#pragma once

#include "OutputStyle.h"
#include "VerbList.h"

#include <memory>
#include <string>
#include <vector>

namespace CLI {
class App;
class ParseError;
}  // namespace CLI

namespace Brantel::Tool {

// The whole command line: the options of all verbs, and every verb with its own.
class CommandLine {
  public:
    CommandLine();
    CommandLine(const CommandLine&) = delete;
    CommandLine& operator=(const CommandLine&) = delete;
    ~CommandLine();

    // What to print, and the exit code, when there is nothing to run.
    struct Answer {
        bool isComplete = false;
        int exitCode = 0;
        std::string text;
    };

    // The arguments without the program's name.
    Answer Parse(const std::vector<std::string>& arguments);

    const CommonOptions& Options() const { return options; }
    const VerbList& Verbs() const { return *verbs; }
    CLI::App& Root() { return *root; }

  private:
    void DeclareCommonOptions();
    void DeclareVerbs();
    std::string Describe(const CLI::ParseError& error) const;

    CommonOptions options;
    std::unique_ptr<CLI::App> root;
    std::unique_ptr<VerbList> verbs;
};

}  // namespace Brantel::Tool
