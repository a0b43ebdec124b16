#include <gtest/gtest.h>

#include <StorageTool/Table.h>
#include <StorageTool/Terminal.h>

#include <limits>
#include <string>

namespace Brantel::Tool {
namespace {

TEST(TableTest, ColumnsAreAsWideAsTheirWidestCell) {
    Table table({{"n", Table::Align::Right}, {"name"}});
    table.AddRow({"1", "é"});
    table.AddRow({"100", "b"});
    EXPECT_EQ(table.Print(false), "  n  name\n  1  é\n100  b\n");
}

TEST(TableTest, RowsAreCutToAWidth) {
    Table table({{"name"}});
    table.AddRow({"abcdefgh"});
    EXPECT_EQ(table.Print(false, 5), "name\nabcde\n");
}

TEST(TableTest, CellsCannotMoveTheTerminal) {
    Table table({{"name"}});
    table.AddRow({"\x1b[2J"});
    EXPECT_EQ(table.Print(false), "name\n\\x1b[2J\n");
}

TEST(TableTest, ABarIsFilledInEighthsOfAColumn) {
    EXPECT_EQ(Table::Bar(0.5, 4, true), "██  ");
    EXPECT_EQ(Table::Bar(0.28125, 4, true), "█▏  ");
    EXPECT_EQ(Table::Bar(0.5, 4, false), "##..");
}

TEST(TableTest, ABarHasItsWidthForEveryPart) {
    for (const double part :
         {-1.0, 0.0, 0.999, 1.0, 7.0, std::numeric_limits<double>::quiet_NaN()}) {
        EXPECT_EQ(Terminal::Width(Table::Bar(part, 7, true)), 7U) << part;
    }
}

}  // namespace
}  // namespace Brantel::Tool
