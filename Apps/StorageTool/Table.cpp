#include "Table.h"

#include "Terminal.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

namespace Brantel::Tool {

Table::Table(std::vector<Column> columns) : columns(std::move(columns)) {}

void Table::AddRow(std::vector<std::string> cells) {
    for (std::string& cell : cells) {
        cell = Terminal::Printable(cell);
    }
    cells.resize(columns.size());
    rows.push_back(std::move(cells));
}

std::string Table::Print(bool inColor, std::size_t width) const {
    std::vector<std::string> titles;
    std::vector<std::size_t> widths;
    for (const Column& column : columns) {
        titles.push_back(column.title);
        widths.push_back(Terminal::Width(column.title));
    }
    for (const auto& row : rows) {
        for (std::size_t i = 0; i < row.size(); ++i) {
            widths[i] = std::max(widths[i], Terminal::Width(row[i]));
        }
    }
    std::string text = Terminal::Bold(PrintRow(titles, widths, width), inColor) + "\n";
    for (const auto& row : rows) {
        text += PrintRow(row, widths, width) + "\n";
    }
    return text;
}

std::string Table::PrintRow(const std::vector<std::string>& cells,
                            const std::vector<std::size_t>& widths, std::size_t width) const {
    constexpr std::size_t gap = 2;
    std::string line;
    for (std::size_t i = 0; i < cells.size(); ++i) {
        const std::string blanks(widths[i] - std::min(widths[i], Terminal::Width(cells[i])), ' ');
        line += i == 0 ? "" : std::string(gap, ' ');
        line += columns[i].align == Align::Right ? blanks + cells[i] : cells[i] + blanks;
    }
    line.erase(line.find_last_not_of(' ') + 1);
    return width == 0 ? line : std::string(Terminal::Cut(line, width));
}

std::string Table::Bar(double part, std::size_t columns, bool unicode) {
    constexpr std::size_t eighths = 8;
    constexpr std::array<const char*, eighths> blocks{"", "▏", "▎", "▍", "▌", "▋", "▊", "▉"};
    const double clamped = std::isfinite(part) ? std::clamp(part, 0.0, 1.0) : 0.0;
    const auto filled =
        static_cast<std::size_t>(std::floor(clamped * static_cast<double>(columns * eighths)));
    const std::size_t whole = filled / eighths;
    const std::size_t rest = unicode ? filled % eighths : 0;
    std::string text;
    for (std::size_t i = 0; i < whole; ++i) {
        text += unicode ? "█" : "#";
    }
    text += blocks.at(rest);
    return text + std::string(columns - whole - (rest > 0 ? 1 : 0), unicode ? ' ' : '.');
}

}  // namespace Brantel::Tool
