#include "Screen.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <string_view>
#include <system_error>

namespace Brantel::Tool {

namespace {

constexpr std::string_view enterSequence = "\x1b[?1049h\x1b[?25l\x1b[2J";
constexpr std::string_view leaveSequence = "\x1b[0m\x1b[?25h\x1b[?1049l";
constexpr char controlZ = 0x1A;

// What cannot be written to a terminal is lost with it.
void WriteAll(int descriptor, std::string_view text) {
    while (!text.empty()) {
        const ssize_t size = write(descriptor, text.data(), text.size());
        if (size < 0 && errno != EINTR) {
            return;
        }
        text.remove_prefix(size < 0 ? 0 : static_cast<std::size_t>(size));
    }
}

}  // namespace

Screen::Screen(Interrupts& interrupts, int output) : interrupts(interrupts), output(output) {
    if (tcgetattr(STDIN_FILENO, &before) != 0 || isatty(output) != 1) {
        throw std::system_error(errno, std::generic_category(), "The terminal");
    }
    Enter();
    interrupts.SetRestore([this] { Leave(); });
}

Screen::~Screen() {
    interrupts.SetRestore({});
    Leave();
}

void Screen::Enter() {
    termios raw = before;
    raw.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
    // As a key: a stopped program must give the terminal back first.
    raw.c_cc[VSUSP] = _POSIX_VDISABLE;
    raw.c_cc[VMIN] = 1;
    raw.c_cc[VTIME] = 0;
    tcsetattr(STDIN_FILENO, TCSANOW, &raw);
    WriteAll(output, enterSequence);
    entered.store(true);
}

void Screen::Leave() {
    if (entered.exchange(false)) {
        WriteAll(output, leaveSequence);
        tcsetattr(STDIN_FILENO, TCSANOW, &before);
    }
}

void Screen::Stop() {
    Leave();
    kill(getpid(), SIGSTOP);
    Enter();
}

void Screen::Draw(const std::vector<std::string>& lines) {
    drawn = Size();
    const auto rows = static_cast<std::size_t>(drawn.rows);
    const bool fits = lines.size() <= rows;
    const std::size_t shown = fits ? lines.size() : rows - 1;
    std::string picture = "\x1b[H";
    for (std::size_t i = 0; i < shown; ++i) {
        picture += (i == 0 ? "" : "\r\n") + lines[i] + "\x1b[0m\x1b[K";
    }
    if (!fits) {
        picture += "\r\n... " + std::to_string(lines.size() - shown) + " more\x1b[K";
    }
    WriteAll(output, picture + "\x1b[J");
}

Screen::Event Screen::Wait(std::chrono::nanoseconds time, char& key) {
    using Clock = Interrupts::Clock;
    constexpr std::chrono::milliseconds look(100);
    const auto deadline = Clock::now() + time;
    while (!interrupts.Requested()) {
        const Terminal::Size size = Size();
        if (size.columns != drawn.columns || size.rows != drawn.rows) {
            return Event::Resized;
        }
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
        if (left.count() <= 0) {
            return Event::TimeOut;
        }
        std::array<pollfd, 2> watched{
            {{STDIN_FILENO, POLLIN, 0}, {interrupts.Descriptor(), POLLIN, 0}}};
        poll(watched.data(), watched.size(), static_cast<int>(std::min(left, look).count()));
        if (watched[0].revents == 0) {
            continue;
        }
        if (read(STDIN_FILENO, &key, 1) != 1) {
            return Event::Ended;
        }
        if (key != controlZ) {
            return Event::Key;
        }
        Stop();
        return Event::Resized;
    }
    return Event::Ended;
}

}  // namespace Brantel::Tool
