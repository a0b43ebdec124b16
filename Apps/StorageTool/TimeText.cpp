#include "TimeText.h"

#include "DurationText.h"
#include "ExitCodes.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <optional>
#include <stdexcept>
#include <utility>

namespace Brantel::Tool {

using Time::TimePoint;

namespace {

constexpr std::int64_t second = 1'000'000'000;
constexpr std::size_t fractionDigits = 9;

[[noreturn]] void RefuseBounds(std::string_view text) {
    throw Misuse("Time " + std::string(text) +
                 " lies outside of the years 1677 to 2262, which is all that 64 bits of "
                 "nanoseconds hold");
}

bool AllDigits(std::string_view text) {
    return !text.empty() && std::all_of(text.begin(), text.end(), [](char character) {
        return character >= '0' && character <= '9';
    });
}

// Digits alone; not set when there are other characters or too many digits.
std::optional<std::int64_t> Number(std::string_view text) {
    std::int64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (!AllDigits(text) || error != std::errc()) {
        return std::nullopt;
    }
    return value;
}

// Seconds and a part of a second that is not negative; not set when it overflows.
std::optional<std::int64_t> Join(std::int64_t seconds, std::int64_t nanoseconds) {
    if (seconds < 0 && nanoseconds > 0) {
        ++seconds;
        nanoseconds -= second;
    }
    std::int64_t result = 0;
    if (__builtin_mul_overflow(seconds, second, &result) ||
        __builtin_add_overflow(result, nanoseconds, &result)) {
        return std::nullopt;
    }
    return result;
}

// One to nine digits after a point, as nanoseconds.
std::optional<std::int64_t> Fraction(std::string_view digits) {
    if (digits.size() > fractionDigits) {
        return std::nullopt;
    }
    std::string padded(digits);
    padded.resize(fractionDigits, '0');
    return digits.empty() ? std::nullopt : Number(padded);
}

// Takes `count` digits and, when it is not 0, the character behind them; false: they are not there.
bool Take(std::string_view& text, std::size_t count, char behind, int& value) {
    const std::optional<std::int64_t> number = Number(text.substr(0, count));
    const std::size_t size = count + (behind == 0 ? 0 : 1);
    if (!number || text.size() < size || (behind != 0 && text[count] != behind)) {
        return false;
    }
    value = static_cast<int>(*number);
    text.remove_prefix(size);
    return true;
}

struct CalendarTime {
    int year = 0;
    int month = 0;
    int day = 0;
    int hour = 0;
    int minute = 0;
    int second = 0;
    std::int64_t nanoseconds = 0;
    int zoneMinutes = 0;
};

bool TakeDate(std::string_view& text, CalendarTime& time) {
    constexpr std::size_t yearDigits = 4;
    return Take(text, yearDigits, '-', time.year) && Take(text, 2, '-', time.month) &&
           Take(text, 2, 0, time.day);
}

bool TakeFraction(std::string_view& text, CalendarTime& time) {
    if (!text.starts_with('.')) {
        return true;
    }
    const std::size_t end = text.find_first_not_of("0123456789", 1);
    const std::optional<std::int64_t> fraction = Fraction(text.substr(1, end - 1));
    text = end == std::string_view::npos ? std::string_view() : text.substr(end);
    time.nanoseconds = fraction.value_or(0);
    return fraction.has_value();
}

bool TakeZone(std::string_view text, CalendarTime& time) {
    if (text.empty() || text == "Z" || text == "z") {
        return true;
    }
    const bool isBehind = text.front() == '-';
    if (!isBehind && text.front() != '+') {
        return false;
    }
    text.remove_prefix(1);
    int hours = 0;
    int minutes = 0;
    if (!Take(text, 2, ':', hours) || !Take(text, 2, 0, minutes) || !text.empty() || hours > 23 ||
        minutes > 59) {
        return false;
    }
    constexpr int minutesPerHour = 60;
    time.zoneMinutes = (hours * minutesPerHour + minutes) * (isBehind ? -1 : 1);
    return true;
}

bool TakeClock(std::string_view text, CalendarTime& time) {
    if (text.empty()) {
        return true;
    }
    if (text.front() != 'T' && text.front() != 't' && text.front() != ' ') {
        return false;
    }
    text.remove_prefix(1);
    return Take(text, 2, ':', time.hour) && Take(text, 2, ':', time.minute) &&
           Take(text, 2, 0, time.second) && TakeFraction(text, time) && TakeZone(text, time) &&
           time.hour <= 23 && time.minute <= 59 && time.second <= 59;
}

// Not set when it is not written like a date; throws when there is no such time.
std::optional<std::int64_t> ParseCalendar(std::string_view text) {
    namespace chrono = std::chrono;
    CalendarTime time;
    std::string_view rest = text;
    if (!TakeDate(rest, time)) {
        return std::nullopt;
    }
    const chrono::year_month_day date(chrono::year(time.year),
                                      chrono::month(static_cast<unsigned int>(time.month)),
                                      chrono::day(static_cast<unsigned int>(time.day)));
    if (!TakeClock(rest, time) || !date.ok()) {
        throw Misuse("Time " + std::string(text) +
                     " is no date and time as 2024-05-01T12:30:00.123456789Z, with at most 9 "
                     "digits of a second");
    }
    const auto seconds =
        chrono::seconds(chrono::sys_days(date).time_since_epoch()) + chrono::hours(time.hour) +
        chrono::minutes(time.minute - time.zoneMinutes) + chrono::seconds(time.second);
    const std::optional<std::int64_t> result = Join(seconds.count(), time.nanoseconds);
    if (!result) {
        RefuseBounds(text);
    }
    return result;
}

// Not set when the number of digits says nothing about the unit.
std::optional<std::int64_t> ParseUnixTime(std::string_view text) {
    constexpr std::array<std::pair<std::size_t, std::int64_t>, 4> units{
        {{10, second}, {13, 1'000'000}, {16, 1'000}, {19, 1}}};
    for (const auto& [digits, unit] : units) {
        if (text.size() != digits) {
            continue;
        }
        const std::optional<std::int64_t> count = Number(text);
        std::int64_t result = 0;
        if (!count || __builtin_mul_overflow(*count, unit, &result)) {
            RefuseBounds(text);
        }
        return result;
    }
    if (text == "0") {
        return 0;
    }
    throw Misuse("Time " + std::string(text) + " has " + std::to_string(text.size()) +
                 " digits: a unix time has 10 (s), 13 (ms), 16 (us) or 19 (ns); for a time since "
                 "zero give a unit, as in " +
                 std::string(text) + "s or " + std::string(text) + "ns");
}

// Seconds, a separator, and a part of a second.
std::optional<std::int64_t> ParseSeconds(std::string_view text) {
    const std::size_t separator = text.find_first_of(".:");
    if (separator == std::string_view::npos || !AllDigits(text.substr(0, separator)) ||
        !AllDigits(text.substr(separator + 1))) {
        return std::nullopt;
    }
    const std::string_view part = text.substr(separator + 1);
    const std::optional<std::int64_t> seconds = Number(text.substr(0, separator));
    const std::optional<std::int64_t> nanoseconds =
        text[separator] == '.' ? Fraction(part) : Number(part);
    if (!nanoseconds || *nanoseconds >= second) {
        throw Misuse("Time " + std::string(text) +
                     (text[separator] == '.' ? " has more than 9 digits of a second"
                                             : " has more than 999999999 ns"));
    }
    const std::optional<std::int64_t> result =
        seconds ? Join(*seconds, *nanoseconds) : std::nullopt;
    if (!result) {
        RefuseBounds(text);
    }
    return result;
}

std::optional<TimeText::Base> TakeBase(std::string_view& text) {
    constexpr std::array<std::pair<std::string_view, TimeText::Base>, 3> bases{
        {{"now", TimeText::Base::Now},
         {"start", TimeText::Base::Start},
         {"end", TimeText::Base::End}}};
    for (const auto& [name, base] : bases) {
        if (text.starts_with(name)) {
            text.remove_prefix(name.size());
            return base;
        }
    }
    if (text.starts_with('-')) {
        return TimeText::Base::Now;
    }
    return std::nullopt;
}

std::string TwoDigits(std::int64_t value) {
    return std::to_string(100 + value).substr(1);
}

// Nothing, three, six or nine digits.
std::string PrintFraction(std::int64_t nanoseconds) {
    std::string digits = std::to_string(second + nanoseconds).substr(1);
    constexpr std::size_t group = 3;
    while (digits.size() >= group && digits.compare(digits.size() - group, group, "000") == 0) {
        digits.resize(digits.size() - group);
    }
    return digits.empty() ? digits : "." + digits;
}

std::string PrintCalendar(TimePoint timePoint) {
    namespace chrono = std::chrono;
    // The second in which the lowest time points lie begins outside of 64 bits of nanoseconds.
    const std::int64_t count = timePoint.ToNanoseconds();
    const std::int64_t fraction = (count % second + second) % second;
    const chrono::seconds seconds(count / second - (count < 0 && fraction != 0 ? 1 : 0));
    const auto days = chrono::floor<chrono::days>(seconds);
    const chrono::year_month_day date{chrono::sys_days(days)};
    const chrono::hh_mm_ss<chrono::seconds> clock(seconds - days);
    return std::to_string(static_cast<int>(date.year())) + "-" +
           TwoDigits(static_cast<unsigned int>(date.month())) + "-" +
           TwoDigits(static_cast<unsigned int>(date.day())) + "T" +
           TwoDigits(clock.hours().count()) + ":" + TwoDigits(clock.minutes().count()) + ":" +
           TwoDigits(clock.seconds().count()) + PrintFraction(fraction) + "Z";
}

bool LooksLikeWallTime(TimePoint timePoint) {
    constexpr TimePoint year2000 = TimePoint::Nanoseconds(946'684'800 * second);
    constexpr TimePoint year2200 = TimePoint::Nanoseconds(7'258'118'400 * second);
    return timePoint >= year2000 && timePoint < year2200;
}

// Where the range is cut into two times, and how many characters are between them.
struct Cut {
    std::size_t position = std::string_view::npos;
    std::size_t size = 0;
};

Cut FindCut(std::string_view text, std::string_view separator) {
    return {text.find(separator), separator.size()};
}

}  // namespace

TimeBounds TimeBounds::FromNow(TimePoint start, TimePoint end) {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return {
        TimePoint::Nanoseconds(std::chrono::duration_cast<std::chrono::nanoseconds>(now).count()),
        start, end};
}

TimeText TimeText::Parse(std::string_view text) {
    std::string_view rest = text;
    if (const std::optional<Base> base = TakeBase(rest)) {
        if (rest.empty()) {
            return {*base, 0};
        }
        const std::optional<std::int64_t> offset = rest.starts_with('-') || rest.starts_with('+')
                                                       ? DurationText::TryParse(rest.substr(1))
                                                       : std::nullopt;
        if (!offset) {
            throw Misuse("Time " + std::string(text) + " is not a word and a duration, as now-90s");
        }
        return {*base, rest.starts_with('-') ? -*offset : *offset};
    }
    if (AllDigits(text)) {
        return {Base::Zero, *ParseUnixTime(text)};
    }
    std::optional<std::int64_t> value = ParseSeconds(text);
    if (!value) {
        value = ParseCalendar(text);
    }
    if (!value) {
        value = DurationText::TryParse(text);
    }
    if (!value) {
        throw Misuse("Time " + std::string(text) +
                     " is none of: now, start, end, -90s, 1h30m, 2024-05-01T12:30:00Z, "
                     "2024-05-01, 1714566600, 12.5, 12:500000000");
    }
    return {Base::Zero, *value};
}

TimePoint TimeText::Resolve(const TimeBounds& bounds) const {
    std::int64_t origin = 0;
    if (base == Base::Now) {
        origin = bounds.now.ToNanoseconds();
    } else if (base != Base::Zero) {
        const bool isStart = base == Base::Start;
        origin = (isStart ? bounds.start : bounds.end).ToNanoseconds();
        if (origin < 0) {
            throw std::runtime_error(std::string("The track is empty: it has no ") +
                                     (isStart ? "start" : "end"));
        }
    }
    std::int64_t result = 0;
    if (__builtin_add_overflow(origin, offset, &result)) {
        throw Misuse("The time " + DurationText::Print(offset) + " from " + std::to_string(origin) +
                     " ns is outside of 64 bits");
    }
    return TimePoint::Nanoseconds(result);
}

std::string TimeText::Print(TimePoint timePoint, TimeFormat format) {
    if (format == TimeFormat::Nanoseconds) {
        return std::to_string(timePoint.ToNanoseconds());
    }
    const bool isCalendar = format == TimeFormat::Rfc3339 ||
                            (format == TimeFormat::Auto && LooksLikeWallTime(timePoint));
    return isCalendar ? PrintCalendar(timePoint) : timePoint.ToString();
}

TimeRange TimeRange::Parse(const std::string& text) {
    std::string_view view = text;
    TimeRange range;
    Cut cut = FindCut(view, "..");
    if (view.starts_with('[') && view.ends_with(')')) {
        view = view.substr(1, view.size() - 2);
        cut = FindCut(view, "_");
    }
    if (cut.position != std::string_view::npos) {
        const std::string_view from = view.substr(0, cut.position);
        const std::string_view to = view.substr(cut.position + cut.size);
        range.from = from.empty() ? range.from : TimeText::Parse(from);
        range.to = to.empty() ? range.to : TimeText::Parse(to);
        return range;
    }
    const std::size_t plus = view.rfind('+');
    const std::optional<std::int64_t> duration =
        plus == std::string_view::npos ? std::nullopt
                                       : DurationText::TryParse(view.substr(plus + 1));
    if (!duration) {
        throw Misuse("Range " + text +
                     " is none of: A..B, A.., ..B, A+DURATION, [A_B), as in -10m..now");
    }
    range.from = TimeText::Parse(view.substr(0, plus));
    range.to = range.from;
    if (__builtin_add_overflow(range.to.offset, *duration, &range.to.offset)) {
        RefuseBounds(text);
    }
    return range;
}

TimeRange::Resolved TimeRange::Resolve(const TimeBounds& bounds) const {
    const Resolved range{from.Resolve(bounds), to.Resolve(bounds)};
    if (range.out < range.in) {
        throw Misuse("The range ends at " + TimeText::Print(range.out, TimeFormat::Auto) +
                     ", before it begins at " + TimeText::Print(range.in, TimeFormat::Auto));
    }
    return range;
}

}  // namespace Brantel::Tool
