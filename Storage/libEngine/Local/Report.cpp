#include "Local/Report.h"

#include <exception>

namespace Brantel::Engine {

void Tell(const LocalReport& report, const char* text) noexcept {
    try {
        report(text);
    } catch (const std::exception&) {
        return;
    }
}

}  // namespace Brantel::Engine
