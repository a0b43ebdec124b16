#include "DurabilityText.h"

#include "ExitCodes.h"

#include <string_view>

namespace Brantel::Tool {

void DurabilityText::Check(const std::string& text) {
    constexpr std::string_view before = "interval:";
    constexpr std::string_view behind = "ms";
    if (text.empty() || text == "always" || text == "os") {
        return;
    }
    const std::string_view view = text;
    std::string_view digits;
    if (view.size() > before.size() + behind.size() && view.starts_with(before) &&
        view.ends_with(behind)) {
        digits = view.substr(before.size(), view.size() - before.size() - behind.size());
    }
    if (digits.empty() || digits.find_first_not_of("0123456789") != std::string_view::npos ||
        digits.find_first_not_of('0') == std::string_view::npos) {
        throw Misuse("Durability " + text + " is none of: always, interval:200ms, os");
    }
}

}  // namespace Brantel::Tool
