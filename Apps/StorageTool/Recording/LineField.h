#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace Brantel::Tool {

// One field of a line of text: the n-th of those that blanks divide, or a member of the JSON object
// that the line is.
class LineField {
  public:
    // A number from 1, or the name of a member.
    explicit LineField(std::string text);

    // The text of the field, of a number as it is written; not set when the line has no such field
    // or it is neither text nor number.
    std::optional<std::string> Find(std::string_view line) const;

    const std::string& Text() const { return text; }

  private:
    const std::string text;
    std::size_t column = 0;  // from 1; 0: a member
};

}  // namespace Brantel::Tool
