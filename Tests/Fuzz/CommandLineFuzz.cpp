// What a user types to the tool: times, ranges, sizes, spans, rates, fields and addresses, which
// are read back when they are printed, and whole command lines, which name a verb or say what is
// wrong with them.
#include "Support/FuzzCheck.h"

#include <libTime/TimePoint.h>

#include <StorageTool/CommandLine.h>
#include <StorageTool/DurationText.h>
#include <StorageTool/ExitCodes.h>
#include <StorageTool/Media/Rate.h>
#include <StorageTool/Recording/LineField.h>
#include <StorageTool/ServerAddress.h>
#include <StorageTool/SizeText.h>
#include <StorageTool/TimeText.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace {

using namespace Brantel::Tool;
using Brantel::Tests::Require;
using Brantel::Time::TimePoint;

// Of a track that lies before now.
TimeBounds Bounds() {
    constexpr std::int64_t now = 1'714'566'600'000'000'001;
    constexpr std::int64_t hour = 3'600'000'000'000;
    return {TimePoint::Nanoseconds(now), TimePoint::Nanoseconds(now - hour),
            TimePoint::Nanoseconds(now - 1)};
}

void CheckTime(const std::string& text) {
    const TimePoint time = TimeText::Parse(text).Resolve(Bounds());
    Require(TimeText::Print(time, TimeFormat::Nanoseconds) == std::to_string(time.ToNanoseconds()),
            "nanoseconds are the count");
    for (const TimeFormat format : {TimeFormat::Auto, TimeFormat::Rfc3339, TimeFormat::Seconds}) {
        const std::string printed = TimeText::Print(time, format);
        // Seconds with a sign in front are so long before now.
        if (!printed.starts_with('-')) {
            Require(TimeText::Parse(printed).Resolve(Bounds()) == time,
                    "a time that is printed is read back: " + printed);
        }
    }
}

void CheckRange(const std::string& text) {
    const TimeRange::Resolved range = TimeRange::Parse(text).Resolve(Bounds());
    Require(range.in <= range.out, "a range does not end before it begins");
}

void CheckDuration(const std::string& text) {
    const std::int64_t duration = DurationText::Parse(text);
    Require(duration >= 0, "a span is not below zero");
    Require(DurationText::Parse(DurationText::Print(duration)) == duration,
            "a span that is printed is read back");
    Require(!DurationText::Round(duration).empty(), "a span can be rounded");
}

void CheckSize(const std::string& text) {
    const std::int64_t size = SizeText::Parse(text);
    Require(size >= 0, "a size is not below zero");
    Require(!SizeText::Print(size).empty(), "a size can be printed");
    Require(SizeText::Parse(std::to_string(size)) == size, "a bare number is bytes");
}

void CheckBitRate(const std::string& text) {
    const std::int64_t rate = RateText::Parse(text);
    Require(rate >= 0, "a rate is not below zero");
    Require(!RateText::Print(static_cast<double>(rate)).empty(), "a rate can be printed");
}

void CheckRate(const std::string& text) {
    const Rate rate = Rate::Parse(text);
    const Rate again = Rate::Parse(rate.Text());
    Require(rate.Numerator() == again.Numerator() && rate.Denominator() == again.Denominator(),
            "a rate that is printed is read back");
}

// The first line names the field, the others are looked at.
void CheckField(const std::string& text) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    const LineField field(text.substr(0, end));
    const std::string_view line = std::string_view(text).substr(std::min(end + 1, text.size()));
    const auto found = field.Find(line);
    Require(found == field.Find(line), "a field is what it was");
}

void CheckAddress(const std::string& text) {
    const ServerAddress address = ServerAddress::Parse(text);
    Require(address.text == text, "an address stays as it was given");
    Require(address.path.empty() != address.host.empty(), "an address is a path or a host");
}

// One word a line.
void CheckArguments(const std::string& text) {
    std::vector<std::string> words;
    for (std::size_t begin = 0; begin < text.size();) {
        const std::size_t end = std::min(text.find('\n', begin), text.size());
        words.push_back(text.substr(begin, end - begin));
        begin = end + 1;
    }
    // Declared once: a program parses once, but what it declares takes longer than what it parses.
    static CommandLine line;
    const CommandLine::Answer answer = line.Parse(words);
    Require(answer.isComplete || line.Verbs().Chosen() != nullptr, "a verb was chosen");
    Require(!answer.isComplete || !answer.text.empty(), "who does nothing else says something");
    Require(answer.exitCode == ExitCodes::done || answer.exitCode == ExitCodes::misused,
            "a command line is right or misuse");
    if (!answer.isComplete) {
        line.Options().Style(false);
        line.Options().Timeout();
    }
}

using Check = void (*)(const std::string& text);
constexpr std::array<Check, 10> checks{CheckTime,      CheckRange,    CheckDuration, CheckSize,
                                       CheckBitRate,   CheckRate,     CheckField,    CheckAddress,
                                       CheckArguments, CheckArguments};

}  // namespace

// The first byte says what the others are.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
    try {
        checks.at(data[0] % checks.size())(text);
    } catch (const std::runtime_error& error) {
        // Misuse is one of them.
        Require(*error.what() != '\0', "a refusal has a reason");
    }
    return 0;
}
