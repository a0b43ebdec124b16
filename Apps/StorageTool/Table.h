#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace Brantel::Tool {

// Rows of text under titles, the columns as wide as their widest cell. What is given is made
// printable.
class Table {
  public:
    enum class Align : std::uint8_t { Left, Right };
    struct Column {
        std::string title;
        Align align = Align::Left;
    };

    explicit Table(std::vector<Column> columns);

    // As many cells as there are columns.
    void AddRow(std::vector<std::string> cells);

    // All lines, each with its end; the titles in bold when `inColor`; lines that are longer are
    // cut to `width` columns, 0: none is.
    std::string Print(bool inColor, std::size_t width = 0) const;

    // A part from 0 to 1 as a bar: "██████▌   ", or "######    " without block characters.
    static std::string Bar(double part, std::size_t columns, bool unicode);

  private:
    std::string PrintRow(const std::vector<std::string>& cells,
                         const std::vector<std::size_t>& widths, std::size_t width) const;

    std::vector<Column> columns;
    std::vector<std::vector<std::string>> rows;
};

}  // namespace Brantel::Tool
