#include "Verbs/KeyValue.h"

#include "ExitCodes.h"

namespace Brantel::Tool {

std::map<std::string, std::string> KeyValue(const std::vector<std::string>& arguments) {
    std::map<std::string, std::string> result;
    for (const std::string& argument : arguments) {
        const std::size_t equals = argument.find('=');
        if (equals == std::string::npos || equals == 0) {
            throw Misuse("Property " + argument + " is not KEY=VALUE");
        }
        if (!result.emplace(argument.substr(0, equals), argument.substr(equals + 1)).second) {
            throw Misuse("Property " + argument.substr(0, equals) + " is given twice");
        }
    }
    return result;
}

}  // namespace Brantel::Tool
