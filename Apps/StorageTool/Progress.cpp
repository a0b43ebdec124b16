#include "Progress.h"

#include "DurationText.h"
#include "SizeText.h"
#include "Table.h"
#include "Terminal.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <utility>

namespace Brantel::Tool {

namespace {

std::string Amount(std::int64_t value, Progress::Unit unit) {
    if (unit == Progress::Unit::Bytes) {
        return SizeText::Print(value);
    }
    return std::to_string(value) + (unit == Progress::Unit::Percent ? " %" : " chunks");
}

std::string Rate(double perSecond, Progress::Unit unit) {
    if (unit == Progress::Unit::Bytes) {
        return SizeText::PrintRate(perSecond);
    }
    std::array<char, 48> text{};
    const int size = std::snprintf(text.data(), text.size(), "%.1f%s", perSecond,
                                   unit == Progress::Unit::Percent ? " %/s" : " chunks/s");
    return {text.data(), static_cast<std::size_t>(size)};
}

}  // namespace

Progress::Progress(const Context& context, std::string title, Unit unit, std::int64_t total)
    : context(context),
      title(std::move(title)),
      unit(unit),
      total(total),
      onTerminal(isatty(STDERR_FILENO) == 1),
      begin(Clock::now()),
      shown(begin) {}

Progress::~Progress() {
    if (lineIsOpen) {
        std::fputc('\n', stderr);
    }
}

void Progress::Update(std::int64_t done) {
    constexpr std::chrono::milliseconds onTerminalEvery(100);
    constexpr std::chrono::seconds elsewhereFirst(1);
    constexpr std::chrono::seconds elsewhereEvery(5);
    const auto now = Clock::now();
    const Clock::duration pause = onTerminal       ? Clock::duration(onTerminalEvery)
                                  : shown == begin ? Clock::duration(elsewhereFirst)
                                                   : Clock::duration(elsewhereEvery);
    if (!context.Style().quiet && now - shown >= pause) {
        Show(done, now);
    }
}

void Progress::Finish(std::int64_t done) {
    // What was done before anybody could look needs no words.
    constexpr std::chrono::milliseconds noticeable(500);
    const auto now = Clock::now();
    const bool isNoticed = lineIsOpen || shown != begin || now - begin >= noticeable;
    if (!context.Style().quiet && isNoticed) {
        Show(done, now);
    }
}

void Progress::Show(std::int64_t done, Clock::time_point now) {
    shown = now;
    const std::string text = Describe(done, now);
    if (!onTerminal) {
        std::fprintf(stderr, "%s\n", text.c_str());
        return;
    }
    const auto columns = static_cast<std::size_t>(Terminal::SizeOf(STDERR_FILENO).columns);
    const std::string visible(Terminal::Cut(text, columns - 1));
    std::fprintf(stderr, "\r%s\x1b[K", visible.c_str());
    std::fflush(stderr);
    lineIsOpen = true;
}

std::string Progress::Describe(std::int64_t done, Clock::time_point now) const {
    const std::chrono::duration<double> elapsed = now - begin;
    const double perSecond = elapsed.count() > 0 ? static_cast<double>(done) / elapsed.count() : 0;
    std::string text = title + "  ";
    if (total > 0 && onTerminal) {
        // What stands beside the bar takes about 65 columns, and is worth more.
        constexpr int beside = 65;
        constexpr int shortest = 5;
        constexpr int longest = 20;
        const auto columns = static_cast<std::size_t>(
            std::clamp(Terminal::SizeOf(STDERR_FILENO).columns - beside, shortest, longest));
        text += "[" +
                Table::Bar(static_cast<double>(done) / static_cast<double>(total), columns,
                           context.Style().unicode) +
                "] ";
    }
    text += Amount(done, unit);
    if (total > 0 && unit != Unit::Percent) {
        text += " of " + Amount(total, unit);
    }
    text += "  " + Rate(perSecond, unit);
    if (total > done && perSecond > 0) {
        const double left = static_cast<double>(total - done) / perSecond;
        constexpr double nanoseconds = 1e9;
        constexpr double longest = 1e9;
        if (left < longest) {
            text +=
                "  " + DurationText::Round(static_cast<std::int64_t>(left * nanoseconds)) + " left";
        }
    } else {
        text +=
            "  " + DurationText::Round(
                       std::chrono::duration_cast<std::chrono::nanoseconds>(now - begin).count());
    }
    return text;
}

}  // namespace Brantel::Tool
