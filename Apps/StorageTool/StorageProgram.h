#pragma once

#include <string>
#include <vector>

namespace Brantel::Tool {

class Context;

// The storage server's program, run to its end for what it does with folders that no server uses.
class StorageProgram {
  public:
    // `path`: of the program; empty: beside this one, or wherever programs are looked for.
    StorageProgram(Context& context, const std::string& path);

    // Its exit code; what it prints goes where the tool's own output goes. A request to end is
    // passed on to it. Throws std::system_error when it can't be run, std::runtime_error when a
    // signal ended it.
    int Run(const std::vector<std::string>& arguments) const;

  private:
    Context& context;
    const std::string path;
};

}  // namespace Brantel::Tool
