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
    // The same, but what it prints comes into `text`.
    int Run(const std::vector<std::string>& arguments, std::string& text) const;
    // The same, and with --json each line that it prints becomes an object: what it found in
    // "problem", and its last line, the verdict, in "result" beside the number of the others.
    int RunForFolder(const std::string& job, const std::string& folder,
                     const std::vector<std::string>& more) const;

    class Pipe;

  private:
    int Run(const std::vector<std::string>& arguments, Pipe* pipe, std::string& text) const;

    Context& context;
    const std::string path;
};

}  // namespace Brantel::Tool
