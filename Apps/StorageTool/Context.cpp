#include "Context.h"

#include "ExitCodes.h"
#include "Terminal.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string_view>
#include <vector>

namespace Brantel::Tool {

using ProtocolX::StorageClientX;
using Time::TimePoint;

namespace {

std::string Variable(const char* name) {
    const char* const value = std::getenv(name);
    return value == nullptr ? std::string() : std::string(value);
}

// One line of the terminal; empty at its end or when the end was requested.
std::string ReadAnswer(const Interrupts& interrupts) {
    std::string line;
    for (;;) {
        std::array<pollfd, 2> watched{
            {{STDIN_FILENO, POLLIN, 0}, {interrupts.Descriptor(), POLLIN, 0}}};
        poll(watched.data(), watched.size(), -1);
        char character = 0;
        if (watched[1].revents != 0 ||
            (watched[0].revents != 0 && read(STDIN_FILENO, &character, 1) != 1)) {
            return {};
        }
        if (character == '\n') {
            return line;
        }
        line += character;
    }
}

}  // namespace

Context::Context(const CommonOptions& options, Output& output)
    : style(options.Style(output.IsTerminal())),
      server(options.server),
      timeout(options.Timeout()),
      output(output),
      interrupts(timeout) {
    output.SetInterrupts(&interrupts);
}

Context::~Context() {
    output.SetInterrupts(nullptr);
    Disconnect();
}

const ServerAddress& Context::Address() {
    if (!address) {
        address = ServerAddress::Choose(server, Variable("BRANTEL_SERVER"));
        interrupts.SetName("The server at " + address->text);
    }
    return *address;
}

StorageClientX& Context::Client() {
    if (!client) {
        client = Connect();
    }
    return *client;
}

std::unique_ptr<StorageClientX> Context::Connect() {
    const ServerAddress& where = Address();
    const Interrupts::Call call(interrupts);
    auto made = std::make_unique<StorageClientX>();
    where.Connect(*made, ConnectMilliseconds());
    Detail("Connected to " + where.text);
    return made;
}

void Context::Disconnect() {
    const Interrupts::Call call(interrupts);
    client.reset();
}

// Over TCP nobody may ever answer, so there is always a limit.
unsigned int Context::ConnectMilliseconds() const {
    constexpr unsigned int usual = 10'000;
    const auto wanted = std::chrono::ceil<std::chrono::milliseconds>(timeout).count();
    return wanted == 0 ? usual : static_cast<unsigned int>(wanted);
}

void Context::CheckInterrupt(const std::string& text) {
    if (interrupts.Requested()) {
        throw Interrupted(text);
    }
}

void Context::Note(const std::string& text) const {
    if (!style.quiet) {
        Warn(text);
    }
}

void Context::Detail(const std::string& text) const {
    if (style.verbose) {
        Warn(text);
    }
}

void Context::Warn(const std::string& text) {
    std::fprintf(stderr, "%s\n", text.c_str());
}

std::string Context::TimeOf(TimePoint timePoint) const {
    return timePoint.ToNanoseconds() == -1 ? "-" : TimeText::Print(timePoint, style.timeFormat);
}

void Context::AddTime(JsonObject& object, std::string_view key, TimePoint timePoint) const {
    if (timePoint.ToNanoseconds() == -1) {
        object.AddNull(key);
    } else if (style.timeFormat == TimeFormat::Nanoseconds) {
        object.Add(key, timePoint.ToNanoseconds());
    } else {
        object.Add(key, std::string_view(TimeText::Print(timePoint, style.timeFormat)));
    }
}

void Context::RefuseOnTerminal(std::string_view bytes) const {
    if (output.IsTerminal() && !Terminal::IsText(bytes)) {
        throw Misuse(
            "The data are no text, and a terminal can't show them: send them to a file or a "
            "program (> FILE, | PROGRAM) or give -o");
    }
}

void Context::Would(const std::string& text, JsonObject fields) {
    if (style.json) {
        fields.Add("dryRun", true).Add("would", std::string_view(text));
        output.Line(fields.Print());
    } else {
        output.Line("Would " + text);
    }
}

TimeBounds Context::BoundsOf(std::int64_t track) {
    const auto infos = Ask([&](StorageClientX& server) { return server.GetTrackInfos({track}); });
    if (infos.empty()) {
        throw std::runtime_error("Track " + std::to_string(track) + " does not exist");
    }
    return TimeBounds::FromNow(infos.front().tpIn, infos.front().tpOut);
}

void Context::Confirm(const std::string& question, bool sure) {
    if (sure) {
        return;
    }
    if (isatty(STDIN_FILENO) != 1 || isatty(STDERR_FILENO) != 1) {
        throw Misuse(question + " Nobody can be asked here: give -y to agree");
    }
    std::fprintf(stderr, "%s [y/N] ", question.c_str());
    std::fflush(stderr);
    const std::string answer = ReadAnswer(interrupts);
    CheckInterrupt("Interrupted; nothing was changed");
    constexpr std::array<std::string_view, 4> agreements{"y", "Y", "yes", "Yes"};
    if (std::find(agreements.begin(), agreements.end(), answer) == agreements.end()) {
        throw std::runtime_error("Not agreed; nothing was changed");
    }
}

}  // namespace Brantel::Tool
