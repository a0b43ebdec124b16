#pragma once

#include "Support/ProgramRun.h"

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace Brantel::Tests {

// The command line tool, run to its end beside a test.
class ToolRun {
  public:
    using Environment = std::vector<std::pair<std::string, std::string>>;

    // The path of the program.
    static std::string Program();

    // Runs it with these arguments and waits for its end.
    explicit ToolRun(const std::vector<std::string>& arguments,
                     const Environment& environment = {});

    int ExitCode() const { return exitCode; }
    const std::string& Output() const { return output; }
    const std::string& Errors() const { return errors; }

  private:
    int exitCode = -1;
    std::string output;
    std::string errors;
};

}  // namespace Brantel::Tests
