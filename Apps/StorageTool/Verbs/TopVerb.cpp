#include "Verbs/TopVerb.h"

#include "CommandWatch.h"
#include "Context.h"
#include "DurationText.h"
#include "ExitCodes.h"
#include "Screen.h"
#include "SizeText.h"
#include "Table.h"
#include "Terminal.h"
#include "TrackOverview.h"
#include "TrackTable.h"
#include "VerbList.h"
#include "Verbs/Arguments.h"
#include "WorkerList.h"

#include <unistd.h>

#include <memory>
#include <sstream>
#include <utility>
#include <vector>

namespace Brantel::Tool {

using ProtocolX::StorageClientX;
using Time::TimePoint;

namespace {

struct TopOptions {
    std::string interval = "1s";
};

struct Command {
    long id = 0;
    StorageClientX::CommandInfo info;
};

// All of it at about one time.
struct Snapshot {
    TimePoint now;
    std::vector<TrackOverview> tracks;
    std::vector<WorkerList::Worker> workers;
    std::vector<Command> commands;
};

Snapshot Read(Context& context) {
    Snapshot snapshot;
    snapshot.tracks = TrackOverview::Read(context, {}, false);
    context.Ask([&](StorageClientX& client) {
        snapshot.workers = WorkerList::Read(client);
        for (const long id : client.GetOngoingCommands()) {
            snapshot.commands.push_back({id, client.GetCommandInfo(id)});
        }
        return true;
    });
    snapshot.now = TimeBounds::FromNow({}, {}).now;
    return snapshot;
}

// How far the end of a writer's track is behind the present. Where a reader stands is known to
// nobody but its client, and tracks that do not count wall time have no present.
std::string LagOf(const Snapshot& snapshot, const WorkerList::Worker& worker) {
    if (worker.type != StorageClientX::WRITER) {
        return "-";
    }
    constexpr std::int64_t longest = std::int64_t{7} * 24 * 3600 * 1'000'000'000;
    for (const TrackOverview& track : snapshot.tracks) {
        const std::int64_t lag = (snapshot.now - track.info.tpOut).ToNanoseconds();
        if (track.info.trackId == worker.trackId && lag > -longest && lag < longest) {
            return DurationText::Round(lag);
        }
    }
    return "-";
}

std::string WorkerTable(const Context& context, const Snapshot& snapshot, std::size_t width) {
    using Align = Table::Align;
    Table table({{"worker", Align::Right},
                 {"type"},
                 {"track", Align::Right},
                 {"throughput", Align::Right},
                 {"lag", Align::Right},
                 {"client"}});
    for (const WorkerList::Worker& worker : snapshot.workers) {
        table.AddRow({std::to_string(worker.workerId), WorkerList::TypeOf(worker),
                      std::to_string(worker.trackId),
                      SizeText::PrintRate(static_cast<double>(worker.throughput)),
                      LagOf(snapshot, worker),
                      worker.clientIpV4Address.empty() ? "-" : worker.clientIpV4Address});
    }
    return table.Print(context.Style().colorsOutput, width);
}

std::string CommandTable(const Context& context, const Snapshot& snapshot, std::size_t width) {
    using Align = Table::Align;
    constexpr std::size_t columns = 20;
    constexpr double whole = 100;
    Table table({{"command", Align::Right}, {"state"}, {"done"}, {"", Align::Right}});
    for (const Command& command : snapshot.commands) {
        table.AddRow({std::to_string(command.id), CommandWatch::NameOf(command.info.type),
                      Table::Bar(static_cast<double>(command.info.progression) / whole, columns,
                                 context.Style().unicode),
                      std::to_string(command.info.progression) + "%"});
    }
    return table.Print(context.Style().colorsOutput, width);
}

void Append(std::vector<std::string>& lines, const std::string& text) {
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
}

std::string Count(std::size_t number, const char* thing) {
    return std::to_string(number) + " " + thing + (number == 1 ? "" : "s");
}

std::vector<std::string> Compose(Context& context, const Snapshot& snapshot,
                                 const Terminal::Size& size) {
    const auto width = static_cast<std::size_t>(size.columns);
    const std::string title = "brantel top  " + Terminal::Printable(context.Address().text) + "  " +
                              Count(snapshot.tracks.size(), "track") + ", " +
                              Count(snapshot.workers.size(), "worker") + ", " +
                              Count(snapshot.commands.size(), "command") + "  (q quits)";
    std::vector<std::string> lines{std::string(Terminal::Cut(title, width)), ""};
    Append(lines, TrackTable(context, snapshot.tracks, width));
    if (!snapshot.workers.empty()) {
        lines.emplace_back();
        Append(lines, WorkerTable(context, snapshot, width));
    }
    if (!snapshot.commands.empty()) {
        lines.emplace_back();
        Append(lines, CommandTable(context, snapshot, width));
    }
    return lines;
}

int Top(Context& context, const TopOptions& options) {
    const std::chrono::nanoseconds interval = Arguments::Interval(options.interval);
    if (context.Style().json || !context.Out().IsTerminal() || isatty(STDIN_FILENO) != 1) {
        throw Misuse("top needs a terminal; brantel ls -w and brantel worker ls suit elsewhere");
    }
    // Before the screen is taken: nobody reads there why it failed.
    Snapshot snapshot = Read(context);
    Screen screen(context.Ends(), context.Out().Descriptor());
    for (;;) {
        screen.Draw(Compose(context, snapshot, screen.Size()));
        char key = 0;
        const Screen::Event event = screen.Wait(interval, key);
        if (event == Screen::Event::Ended ||
            (event == Screen::Event::Key && (key == 'q' || key == 'Q'))) {
            return ExitCodes::done;
        }
        if (event != Screen::Event::Resized) {
            snapshot = Read(context);
        }
    }
}

}  // namespace

void DeclareTop(VerbList& verbs) {
    const auto options = std::make_shared<TopOptions>();
    CLI::App& verb = verbs.Add(
        "top",
        "Shows tracks, readers and writers, and commands on the whole terminal, and keeps them "
        "fresh; q quits",
        [options](Context& context) { return Top(context, *options); });
    Arguments::AddInterval(verb, options->interval);
    VerbList::AddExample(verb, "brantel top -i 200ms", "a look five times a second");
}

}  // namespace Brantel::Tool
