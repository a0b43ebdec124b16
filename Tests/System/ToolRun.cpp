#include "ToolRun.h"

namespace Brantel::Tests {

std::string ToolRun::Program() {
    return BRANTEL_TOOL;
}

ToolRun::ToolRun(const std::vector<std::string>& arguments, const Environment& environment) {
    std::vector<std::string> command = {Program()};
    command.insert(command.end(), arguments.begin(), arguments.end());
    ProgramRun run(command, environment);
    exitCode = run.Wait();
    output = run.Output();
    errors = run.Errors();
}

}  // namespace Brantel::Tests
