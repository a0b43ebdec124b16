#include "Recording/LineField.h"

#include <charconv>
#include <nlohmann/json.hpp>
#include <utility>

namespace Brantel::Tool {

namespace {

// Hears of everything in a JSON text and keeps one member of the outermost object.
class MemberFinder : public nlohmann::json_sax<nlohmann::json> {
  public:
    explicit MemberFinder(const std::string& wanted) : wanted(wanted) {}

    std::optional<std::string> found;

    bool null() override { return Pass(); }
    bool boolean(bool /*value*/) override { return Pass(); }
    bool number_integer(number_integer_t value) override { return Keep(std::to_string(value)); }
    bool number_unsigned(number_unsigned_t value) override { return Keep(std::to_string(value)); }
    bool number_float(number_float_t /*value*/, const string_t& digits) override {
        return Keep(digits);
    }
    bool string(string_t& value) override { return Keep(value); }
    bool binary(binary_t& /*value*/) override { return Pass(); }
    bool start_object(std::size_t /*elements*/) override { return Enter(); }
    bool key(string_t& name) override {
        isNext = depth == 1 && name == wanted;
        return true;
    }
    bool end_object() override { return Leave(); }
    bool start_array(std::size_t /*elements*/) override { return Enter(); }
    bool end_array() override { return Leave(); }
    bool parse_error(std::size_t /*position*/, const std::string& /*token*/,
                     const nlohmann::detail::exception& /*error*/) override {
        return false;
    }

  private:
    bool Pass() {
        isNext = false;
        return true;
    }
    bool Keep(std::string value) {
        if (isNext) {
            found = std::move(value);
        }
        return Pass();
    }
    bool Enter() {
        ++depth;
        return Pass();
    }
    bool Leave() {
        --depth;
        return Pass();
    }

    const std::string& wanted;
    int depth = 0;
    bool isNext = false;
};

std::optional<std::string> FindColumn(std::string_view line, std::size_t column) {
    constexpr std::string_view blanks = " \t\r\n";
    for (std::size_t place = line.find_first_not_of(blanks); place != std::string_view::npos;
         place = line.find_first_not_of(blanks, place)) {
        const std::size_t end = std::min(line.find_first_of(blanks, place), line.size());
        if (--column == 0) {
            return std::string(line.substr(place, end - place));
        }
        place = end;
    }
    return std::nullopt;
}

}  // namespace

LineField::LineField(std::string text) : text(std::move(text)) {
    const char* const end = this->text.data() + this->text.size();
    const auto [rest, error] = std::from_chars(this->text.data(), end, column);
    if (error != std::errc() || rest != end) {
        column = 0;
    }
}

std::optional<std::string> LineField::Find(std::string_view line) const {
    if (column != 0) {
        return FindColumn(line, column);
    }
    MemberFinder finder(text);
    nlohmann::json::sax_parse(line, &finder);
    return finder.found;
}

}  // namespace Brantel::Tool
