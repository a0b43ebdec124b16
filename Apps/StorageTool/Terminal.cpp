#include "Terminal.h"

#include <langinfo.h>
#include <sys/ioctl.h>

#include <array>
#include <clocale>

namespace Brantel::Tool {

namespace {

bool Continues(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U;
}

// The bytes of the character at the start; 0 when they are no UTF-8 or a control character.
std::size_t PrintableSize(std::string_view text) {
    const auto first = static_cast<unsigned char>(text.front());
    if (first < 0x80) {
        return first >= 0x20 && first != 0x7F ? 1 : 0;
    }
    const std::size_t size = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
    if (first < 0xC2 || first > 0xF4 || text.size() < size) {
        return 0;
    }
    for (std::size_t i = 1; i < size; ++i) {
        if (!Continues(text[i])) {
            return 0;
        }
    }
    const auto second = static_cast<unsigned char>(text[1]);
    const bool isControl = first == 0xC2 && second < 0xA0;
    const bool isOverlong = (first == 0xE0 && second < 0xA0) || (first == 0xF0 && second < 0x90);
    const bool isOutside = (first == 0xED && second > 0x9F) || (first == 0xF4 && second > 0x8F);
    return isControl || isOverlong || isOutside ? 0 : size;
}

std::string Escape(char byte) {
    if (byte == '\n') {
        return R"(\n)";
    }
    if (byte == '\t') {
        return R"(\t)";
    }
    constexpr std::string_view digits = "0123456789abcdef";
    const auto value = static_cast<unsigned char>(byte);
    return {'\\', 'x', digits[value >> 4U], digits[value & 15U]};
}

std::string Wrapped(const char* begin, const std::string& text, bool on) {
    return on ? begin + text + "\x1b[0m" : text;
}

}  // namespace

Terminal::Size Terminal::SizeOf(int descriptor) {
    winsize size{};
    if (ioctl(descriptor, TIOCGWINSZ, &size) != 0 || size.ws_col == 0 || size.ws_row == 0) {
        constexpr Size usual{80, 24};
        return usual;
    }
    return {size.ws_col, size.ws_row};
}

bool Terminal::ShowsUnicode() {
    const locale_t locale = newlocale(LC_CTYPE_MASK, "", nullptr);
    if (locale == nullptr) {
        return false;
    }
    const bool isUtf8 = std::string_view(nl_langinfo_l(CODESET, locale)) == "UTF-8";
    freelocale(locale);
    return isUtf8;
}

std::string Terminal::Printable(std::string_view text) {
    std::string result;
    while (!text.empty()) {
        const std::size_t size = PrintableSize(text);
        if (size == 0) {
            result += Escape(text.front());
        } else {
            result += text.substr(0, size);
        }
        text.remove_prefix(size == 0 ? 1 : size);
    }
    return result;
}

bool Terminal::IsText(std::string_view bytes) {
    constexpr std::string_view blanks = "\n\r\t";
    while (!bytes.empty()) {
        const std::size_t size =
            blanks.find(bytes.front()) != std::string_view::npos ? 1 : PrintableSize(bytes);
        if (size == 0) {
            return false;
        }
        bytes.remove_prefix(size);
    }
    return true;
}

std::size_t Terminal::Width(std::string_view text) {
    std::size_t width = 0;
    for (const char byte : text) {
        width += Continues(byte) ? 0 : 1;
    }
    return width;
}

std::string_view Terminal::Cut(std::string_view text, std::size_t columns) {
    std::size_t width = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        width += Continues(text[i]) ? 0 : 1;
        if (width > columns) {
            return text.substr(0, i);
        }
    }
    return text;
}

std::string Terminal::Bold(const std::string& text, bool on) {
    return Wrapped("\x1b[1m", text, on);
}

std::string Terminal::Dim(const std::string& text, bool on) {
    return Wrapped("\x1b[2m", text, on);
}

std::string Terminal::Green(const std::string& text, bool on) {
    return Wrapped("\x1b[32m", text, on);
}

std::string Terminal::Red(const std::string& text, bool on) {
    return Wrapped("\x1b[31m", text, on);
}

}  // namespace Brantel::Tool
