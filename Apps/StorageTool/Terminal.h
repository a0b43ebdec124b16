#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace Brantel::Tool {

// What is known about terminals, and how text is made fit for one.
struct Terminal {
    struct Size {
        int columns = 0;
        int rows = 0;
    };

    // Of the terminal behind the descriptor; 80 by 24 when there is none, or it does not know.
    static Size SizeOf(int descriptor);

    // Whether the user's locale has a character set with block characters (UTF-8).
    static bool ShowsUnicode();

    // The text without anything that moves a terminal: control characters become \n, \t or \x1b,
    // and so do bytes that are no UTF-8.
    static std::string Printable(std::string_view text);

    // Whether a terminal shows these bytes as text and is not moved by them but by their lines.
    static bool IsText(std::string_view bytes);

    // How many columns a printable text takes: one for each character.
    static std::size_t Width(std::string_view text);

    // The beginning of a printable text that fits in so many columns.
    static std::string_view Cut(std::string_view text, std::size_t columns);

    // In bold, dimmed, or a colour, when `on`.
    static std::string Bold(const std::string& text, bool on);
    static std::string Dim(const std::string& text, bool on);
    static std::string Green(const std::string& text, bool on);
    static std::string Red(const std::string& text, bool on);
};

}  // namespace Brantel::Tool
