#include "Setting.h"

namespace Brantel::Server {

std::string Setting::FlagName() const {
    return "--" + key;
}

std::string Setting::VariableName() const {
    std::string name = "BRANTEL_";
    for (const char letter : key) {
        if (letter == '-') {
            name += '_';
        } else {
            const bool isLower = letter >= 'a' && letter <= 'z';
            name += isLower ? static_cast<char>(letter - 'a' + 'A') : letter;
        }
    }
    return name;
}

}  // namespace Brantel::Server
