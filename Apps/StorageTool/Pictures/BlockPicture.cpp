#include "Pictures/BlockPicture.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <string_view>

namespace Brantel::Tool {

namespace {

struct Color {
    int red = 0;
    int green = 0;
    int blue = 0;
};

// The mean of the pixels that fall into one field of a grid.
Color MeanOf(const Picture& picture, int column, int columns, int row, int rows) {
    const auto at = [](int index, int fields, int pixels) {
        return static_cast<int>(static_cast<std::int64_t>(index) * pixels / fields);
    };
    const int left = at(column, columns, picture.width);
    const int right = std::max(left + 1, at(column + 1, columns, picture.width));
    const int top = at(row, rows, picture.height);
    const int bottom = std::max(top + 1, at(row + 1, rows, picture.height));
    std::array<std::int64_t, 3> sums{};
    for (int y = top; y < bottom; ++y) {
        for (int x = left; x < right; ++x) {
            const unsigned char* const pixel = picture.At(x, y);
            for (std::size_t i = 0; i < sums.size(); ++i) {
                sums[i] += pixel[i];
            }
        }
    }
    const std::int64_t count = static_cast<std::int64_t>(right - left) * (bottom - top);
    return {static_cast<int>(sums[0] / count), static_cast<int>(sums[1] / count),
            static_cast<int>(sums[2] / count)};
}

void AddColor(std::string& text, const char* kind, const Color& color) {
    text += "\x1b[";
    text += kind;
    text += ";2;" + std::to_string(color.red) + ";" + std::to_string(color.green) + ";" +
            std::to_string(color.blue) + "m";
}

}  // namespace

// A character is twice as high as wide.
BlockPicture::Size BlockPicture::Fit(int width, int height, Size room) {
    constexpr std::int64_t shape = 2;
    const std::int64_t columns = std::max(1, room.columns);
    const std::int64_t rows = std::max(1, room.rows);
    const std::int64_t wide = std::max(1, width);
    const std::int64_t high = std::max(1, height);
    const std::int64_t rowsOfAllColumns = columns * high / (wide * shape);
    if (rowsOfAllColumns <= rows) {
        return {static_cast<int>(columns),
                static_cast<int>(std::max<std::int64_t>(1, rowsOfAllColumns))};
    }
    return {static_cast<int>(std::max<std::int64_t>(1, rows * shape * wide / high)),
            static_cast<int>(rows)};
}

std::string BlockPicture::Blocks(const Picture& picture, Size size) {
    constexpr const char* foreground = "38";
    constexpr const char* background = "48";
    std::string text;
    for (int row = 0; row < size.rows; ++row) {
        for (int column = 0; column < size.columns; ++column) {
            AddColor(text, foreground,
                     MeanOf(picture, column, size.columns, 2 * row, 2 * size.rows));
            AddColor(text, background,
                     MeanOf(picture, column, size.columns, 2 * row + 1, 2 * size.rows));
            text += "▀";
        }
        text += "\x1b[0m\n";
    }
    return text;
}

std::string BlockPicture::Letters(const Picture& picture, Size size) {
    constexpr std::string_view greys = " .:-=+*#%@";
    constexpr int brightest = 255;
    constexpr int weights = 10;
    std::string text;
    for (int row = 0; row < size.rows; ++row) {
        for (int column = 0; column < size.columns; ++column) {
            const Color color = MeanOf(picture, column, size.columns, row, size.rows);
            const int grey = (3 * color.red + 6 * color.green + color.blue) / weights;
            text += greys[static_cast<std::size_t>(grey) * (greys.size() - 1) / brightest];
        }
        text += '\n';
    }
    return text;
}

}  // namespace Brantel::Tool
