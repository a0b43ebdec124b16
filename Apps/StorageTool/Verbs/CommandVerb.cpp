#include "Verbs/CommandVerb.h"

#include "CommandWatch.h"
#include "Context.h"
#include "ExitCodes.h"
#include "Table.h"
#include "VerbList.h"
#include "Verbs/Arguments.h"

#include <memory>
#include <vector>

namespace Brantel::Tool {

using ProtocolX::StorageClientX;

namespace {

struct WatchOptions {
    std::vector<std::int64_t> commands;
};

int List(Context& context) {
    using Align = Table::Align;
    Table table({{"command", Align::Right}, {"state"}, {"done"}, {"", Align::Right}});
    const std::vector<long> commands =
        context.Ask([](StorageClientX& client) { return client.GetOngoingCommands(); });
    for (const long command : commands) {
        const StorageClientX::CommandInfo info =
            context.Ask([&](StorageClientX& client) { return client.GetCommandInfo(command); });
        const std::string state = CommandWatch::NameOf(info.type);
        if (context.Style().json) {
            JsonObject object;
            object.Add("command", command)
                .Add("state", std::string_view(state))
                .Add("percent", info.progression);
            context.Out().Line(object.Print());
        } else {
            constexpr std::size_t columns = 20;
            constexpr double whole = 100;
            table.AddRow({std::to_string(command), state,
                          Table::Bar(static_cast<double>(info.progression) / whole, columns,
                                     context.Style().unicode),
                          std::to_string(info.progression) + "%"});
        }
    }
    if (commands.empty()) {
        context.Note("The server works on no command");
    } else if (!context.Style().json) {
        context.Out().Write(table.Print(context.Style().colorsOutput));
    }
    return ExitCodes::done;
}

int Watch(Context& context, const WatchOptions& options) {
    std::vector<long> commands(options.commands.begin(), options.commands.end());
    if (commands.empty()) {
        commands = context.Ask([](StorageClientX& client) { return client.GetOngoingCommands(); });
    }
    if (commands.empty()) {
        context.Note("The server works on no command");
    }
    for (const long command : commands) {
        const std::string name = "Command " + std::to_string(command);
        CommandWatch(context, name, 0).Follow(command);
        if (context.Style().json) {
            JsonObject object;
            context.Out().Line(object.Add("command", command).Add("state", "finished").Print());
        } else {
            context.Out().Line(name + " finished");
        }
    }
    return ExitCodes::done;
}

}  // namespace

void DeclareCommand(VerbList& verbs) {
    CLI::App& family = verbs.AddFamily(
        "command", "Shows what the server works on: creating, growing and deleting tracks");
    CLI::App& listVerb = verbs.Add(family, "ls", "Lists the commands that have not ended", &List);
    VerbList::AddExample(listVerb, "brantel command ls", "what is under way");

    const auto options = std::make_shared<WatchOptions>();
    CLI::App& watchVerb =
        verbs.Add(family, "watch", "Follows commands to their end; fails when one is cancelled",
                  [options](Context& context) { return Watch(context, *options); });
    watchVerb
        .add_option("COMMAND", options->commands,
                    "The commands' numbers; by default all that have not ended")
        ->type_name("")
        ->check(Arguments::Within(0, Arguments::highest));
    VerbList::AddExample(watchVerb, "brantel command watch 12", "wait for one command");
}

}  // namespace Brantel::Tool
