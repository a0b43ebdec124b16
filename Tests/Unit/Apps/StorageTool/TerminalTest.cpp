#include <gtest/gtest.h>

#include <StorageTool/Terminal.h>

#include <string>

namespace Brantel::Tool {
namespace {

TEST(TerminalTest, WhatMovesATerminalIsEscaped) {
    EXPECT_EQ(Terminal::Printable("a\x1b[2J\n\t\x7f"), "a\\x1b[2J\\n\\t\\x7f");
    EXPECT_EQ(Terminal::Printable("\xc2\x9b"
                                  "1A"),
              "\\xc2\\x9b1A");
}

TEST(TerminalTest, TextsOfAllAlphabetsStay) {
    EXPECT_EQ(Terminal::Printable("Käse, кадр, 画面, 🎥"), "Käse, кадр, 画面, 🎥");
}

TEST(TerminalTest, BytesThatAreNoTextAreEscaped) {
    EXPECT_EQ(Terminal::Printable("\xff\xc3"), "\\xff\\xc3");
    EXPECT_EQ(Terminal::Printable("\xed\xa0\x80"), "\\xed\\xa0\\x80");
    EXPECT_EQ(Terminal::Printable("\xc0\xaf"), "\\xc0\\xaf");
}

TEST(TerminalTest, WidthsAreThoseOfCharacters) {
    EXPECT_EQ(Terminal::Width("Käse"), 4U);
    EXPECT_EQ(Terminal::Cut("Käse", 2), "Kä");
    EXPECT_EQ(Terminal::Cut("Käse", 9), "Käse");
}

}  // namespace
}  // namespace Brantel::Tool
