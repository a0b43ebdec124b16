#pragma once

#include <string>
#include <vector>

namespace Brantel::Tool {

class Output;

// Runs the program with these arguments (without its name) and returns its exit code. Whatever goes
// wrong is said on the standard error.
int RunProgram(const std::vector<std::string>& arguments, Output& output);

}  // namespace Brantel::Tool
