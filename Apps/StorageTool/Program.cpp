#include "Program.h"

#include "CommandLine.h"
#include "Context.h"
#include "ExitCodes.h"
#include "Output.h"

#include <libServices/SocketDisconnected.h>

#include <cstdio>
#include <exception>
#include <string_view>

namespace Brantel::Tool {

namespace {

int Fail(const std::string& text) {
    std::fprintf(stderr, "brantel: %s\n", text.c_str());
    return ExitCodes::failed;
}

// What the server refused stands for itself: who asked knows that it was the server.
std::string WithoutOrigin(const std::string& text) {
    constexpr std::string_view origin = "Exception from server: ";
    return text.starts_with(origin) ? text.substr(origin.size()) : text;
}

int RunVerb(const CommandLine& commandLine, Output& output) {
    commandLine.Verbs().RefuseEmptyValues();
    Context context(commandLine.Options(), output);
    try {
        const int exitCode = commandLine.Verbs().RunChosen(context);
        output.Flush();
        return exitCode;
    } catch (const OutputClosed&) {
        throw;
    } catch (const SocketDisconnected& error) {
        output.Flush();
        return Fail("The connection to " + context.Address().text + " was lost: " + error.what());
    } catch (const std::exception&) {
        // What was done and printed before stands.
        output.Flush();
        throw;
    }
}

}  // namespace

int RunProgram(const std::vector<std::string>& arguments, Output& output) {
    CommandLine commandLine;
    const CommandLine::Answer answer = commandLine.Parse(arguments);
    try {
        if (answer.isComplete) {
            if (answer.exitCode == ExitCodes::done) {
                output.Write(answer.text);
                output.Flush();
            } else {
                std::fputs(answer.text.c_str(), stderr);
            }
            return answer.exitCode;
        }
        return RunVerb(commandLine, output);
    } catch (const Misuse& error) {
        Fail(error.what());
        std::fprintf(stderr, "Try: brantel %s --help\n", commandLine.Verbs().ChosenName().c_str());
        return ExitCodes::misused;
    } catch (const OutputClosed&) {
        return ExitCodes::failed;
    } catch (const std::exception& error) {
        return Fail(WithoutOrigin(error.what()));
    }
}

}  // namespace Brantel::Tool
