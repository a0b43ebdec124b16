#include "Verbs/ProtectVerb.h"

#include "Context.h"
#include "DurationText.h"
#include "ExitCodes.h"
#include "Table.h"
#include "TimeText.h"
#include "VerbList.h"
#include "Verbs/Arguments.h"

#include <memory>
#include <stdexcept>

namespace Brantel::Tool {

using ProtocolX::StorageClientX;
using Time::TimePoint;
using Protection = StorageClientX::ProtectionInfos;

namespace {

struct AddOptions {
    std::int64_t track = 0;
    std::string range;
    bool dryRun = false;
};

struct ListOptions {
    std::vector<std::int64_t> tracks;
};

struct RemoveOptions {
    std::vector<std::int64_t> protections;
    bool yes = false;
    bool dryRun = false;
};

std::string Stretch(const Context& context, TimePoint in, TimePoint out) {
    return context.TimeOf(in) + ".." + context.TimeOf(out);
}

std::string Describe(const Context& context, const Protection& protection) {
    return std::to_string(protection.handle) + " (track " + std::to_string(protection.trackId) +
           ", " + Stretch(context, protection.tcIn, protection.tcOut) + ")";
}

std::vector<Protection> ReadAll(Context& context) {
    return context.Ask([](StorageClientX& client) { return client.ListProtections(); });
}

int Add(Context& context, const AddOptions& options) {
    const TimeRange range = TimeRange::Parse(options.range);
    const auto [in, out] = range.Resolve(context.BoundsOf(options.track));
    if (in.ToNanoseconds() < 0) {
        throw Misuse("The range begins at " + context.TimeOf(in) + ", before zero");
    }
    context.Note("Range " + Stretch(context, in, out) + " (" +
                 DurationText::Print((out - in).ToNanoseconds()) + ")");
    if (options.dryRun) {
        JsonObject fields;
        fields.Add("track", options.track);
        context.AddTime(fields, "from", in);
        context.AddTime(fields, "to", out);
        context.Would(
            "protect " + Stretch(context, in, out) + " of track " + std::to_string(options.track),
            fields);
        return ExitCodes::done;
    }
    const std::int64_t id = context.Ask([&, first = in, last = out](StorageClientX& client) {
        return client.Protect(options.track, first, last);
    });
    if (context.Style().json) {
        JsonObject object;
        object.Add("protection", id).Add("track", options.track);
        context.AddTime(object, "from", in);
        context.AddTime(object, "to", out);
        context.Out().Line(object.Print());
    } else {
        context.Out().Line(context.Style().quiet ? std::to_string(id)
                                                 : "Protection " + std::to_string(id));
    }
    return ExitCodes::done;
}

bool IsWanted(const ListOptions& options, std::int64_t track) {
    bool wanted = options.tracks.empty();
    for (const std::int64_t one : options.tracks) {
        wanted = wanted || one == track;
    }
    return wanted;
}

int List(Context& context, const ListOptions& options) {
    using Align = Table::Align;
    Table table({{"protection", Align::Right},
                 {"track", Align::Right},
                 {"from"},
                 {"to"},
                 {"duration", Align::Right}});
    for (const std::int64_t track : options.tracks) {
        context.BoundsOf(track);
    }
    bool isEmpty = true;
    for (const Protection& protection : ReadAll(context)) {
        if (!IsWanted(options, protection.trackId)) {
            continue;
        }
        isEmpty = false;
        if (context.Style().json) {
            JsonObject object;
            object.Add("protection", protection.handle).Add("track", protection.trackId);
            context.AddTime(object, "from", protection.tcIn);
            context.AddTime(object, "to", protection.tcOut);
            context.Out().Line(object.Print());
        } else {
            table.AddRow(
                {std::to_string(protection.handle), std::to_string(protection.trackId),
                 context.TimeOf(protection.tcIn), context.TimeOf(protection.tcOut),
                 DurationText::Print((protection.tcOut - protection.tcIn).ToNanoseconds())});
        }
    }
    if (isEmpty) {
        context.Note("No protections");
    } else if (!context.Style().json) {
        context.Out().Write(table.Print(context.Style().colorsOutput));
    }
    return ExitCodes::done;
}

Protection Find(const std::vector<Protection>& protections, std::int64_t id) {
    for (const Protection& protection : protections) {
        if (protection.handle == id) {
            return protection;
        }
    }
    throw std::runtime_error("Protection " + std::to_string(id) + " does not exist");
}

int Remove(Context& context, const RemoveOptions& options) {
    Arguments::RefuseTwice("Protection", options.protections);
    const std::vector<Protection> present = ReadAll(context);
    std::string names;
    for (const std::int64_t id : options.protections) {
        names += (names.empty() ? "" : ", ") + Describe(context, Find(present, id));
    }
    if (options.dryRun) {
        for (const std::int64_t id : options.protections) {
            context.Would("remove protection " + Describe(context, Find(present, id)),
                          JsonObject().Add("protection", id));
        }
        return ExitCodes::done;
    }
    context.Confirm("Without protection " + names + " what it holds may be recycled. Go on?",
                    options.yes);
    for (const std::int64_t id : options.protections) {
        context.Ask([&](StorageClientX& client) {
            client.Unprotect(id);
            return true;
        });
        context.Note("Protection " + std::to_string(id) + " removed");
    }
    return ExitCodes::done;
}

}  // namespace

void DeclareProtect(VerbList& verbs) {
    CLI::App& family = verbs.AddFamily(
        "protect", "Keeps stretches of tracks from being recycled, cleared and deleted");

    const auto add = std::make_shared<AddOptions>();
    CLI::App& addVerb =
        verbs.Add(family, "add",
                  "Protects every chunk that reaches into a range, later ones included, and "
                  "prints the protection's number",
                  [add](Context& context) { return Add(context, *add); });
    Arguments::AddTrack(addVerb, add->track);
    addVerb.add_option("RANGE", add->range, "A..B, A.., ..B, A+DURATION or [A_B), as -10m..now")
        ->required()
        ->type_name("");
    Arguments::AddDryRun(addVerb, add->dryRun);
    VerbList::AddExample(addVerb, "brantel protect add 7 -10m..now", "keep the last ten minutes");

    const auto list = std::make_shared<ListOptions>();
    CLI::App& listVerb = verbs.Add(family, "ls", "Lists protections",
                                   [list](Context& context) { return List(context, *list); });
    Arguments::AddTracks(listVerb, list->tracks, 0)->description("Only those of these tracks");

    const auto remove = std::make_shared<RemoveOptions>();
    CLI::App& removeVerb =
        verbs.Add(family, "rm", "Removes protections: what they hold may then be recycled",
                  [remove](Context& context) { return Remove(context, *remove); });
    removeVerb.add_option("PROTECTION", remove->protections, "The protections' numbers")
        ->required()
        ->type_name("")
        ->check(Arguments::Within(0, Arguments::highest));
    Arguments::AddYes(removeVerb, remove->yes);
    Arguments::AddDryRun(removeVerb, remove->dryRun);
    VerbList::AddExample(removeVerb, "brantel protect rm -y 3", "remove one without being asked");
}

}  // namespace Brantel::Tool
