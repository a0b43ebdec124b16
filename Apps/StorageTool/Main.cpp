// brantel: the command line of a storage.

#include "Output.h"
#include "Program.h"

#include <cstdio>
#include <exception>
#include <string>
#include <vector>

int main(int argc, char** argv) {
    try {
        Brantel::Tool::Output output = Brantel::Tool::Output::TakeStandardOutput();
        return Brantel::Tool::RunProgram(
            std::vector<std::string>(argv + (argc > 0 ? 1 : 0), argv + argc), output);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "brantel: %s\n", error.what());
        return 1;
    }
}
