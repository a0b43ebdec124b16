#include "Verbs/TrackVerb.h"

#include "CommandWatch.h"
#include "Context.h"
#include "DurabilityText.h"
#include "DurationText.h"
#include "ExitCodes.h"
#include "SizeText.h"
#include "TrackOverview.h"
#include "VerbList.h"
#include "Verbs/Arguments.h"
#include "Verbs/KeyValue.h"

#include <libServices/SocketDisconnected.h>

#include <memory>
#include <stdexcept>
#include <utility>

namespace Brantel::Tool {

using ProtocolX::StorageClientX;

namespace {

struct CreateOptions {
    std::string size;
    std::int64_t id = 0;
    std::string rate;
    std::vector<std::string> properties;
    std::string retention;
    std::string durability;
    bool noWait = false;
    bool dryRun = false;
};

struct GrowOptions {
    std::int64_t track = 0;
    std::string size;
    std::string rate;
    bool noWait = false;
    bool dryRun = false;
};

struct EndOptions {
    std::vector<std::int64_t> tracks;
    bool yes = false;
    bool noWait = false;
    bool dryRun = false;
};

std::string NameOf(std::int64_t track) {
    return "Track " + std::to_string(track);
}

std::int64_t ParseCapacity(const std::string& text) {
    const std::int64_t size = SizeText::Parse(text);
    if (size == 0) {
        throw Misuse("Size " + text + ": a track has at least 1 byte");
    }
    return size;
}

// Not set without a rate; throws for one of 0.
std::int64_t ParseRate(const std::string& text) {
    const std::int64_t rate = text.empty() ? 0 : RateText::Parse(text);
    if (!text.empty() && rate == 0) {
        throw Misuse("Rate " + text + ": nothing would ever be recorded");
    }
    return rate;
}

// "10.0 GiB", and what it holds: "10.0 GiB: 2 h 46 min at 8.00 Mbit/s".
std::string Holding(std::int64_t bytes, std::int64_t bitsPerSecond) {
    std::string text = SizeText::Print(bytes);
    if (bitsPerSecond > 0) {
        constexpr double bitsPerByte = 8;
        constexpr double nanoseconds = 1e9;
        constexpr double longest = 9e18;
        const double time = static_cast<double>(bytes) * bitsPerByte /
                            static_cast<double>(bitsPerSecond) * nanoseconds;
        text += ": " +
                (time < longest ? DurationText::Round(static_cast<std::int64_t>(time))
                                : std::string("more than 292 years")) +
                " at " + RateText::Print(static_cast<double>(bitsPerSecond));
    }
    return text;
}

void PrintCommand(Context& context, const StorageClientX::TrackParameters& answer,
                  const std::string& state, const std::string& text) {
    if (context.Style().json) {
        JsonObject object;
        object.Add("track", answer.id)
            .Add("capacity", answer.size)
            .Add("command", answer.commandId)
            .Add("state", std::string_view(state));
        context.Out().Line(object.Print());
    } else {
        context.Out().Line(text);
    }
}

// Follows the command unless nobody wants to wait; `text` is printed when it has finished, `done`
// stands for it with --quiet.
void Conclude(Context& context, const StorageClientX::TrackParameters& answer, bool noWait,
              const std::string& title, const std::string& text, std::int64_t bytes) {
    const bool quiet = context.Style().quiet;
    if (noWait) {
        const std::string command = std::to_string(answer.commandId);
        PrintCommand(context, answer, "queued",
                     quiet ? command : "Command " + command + ": " + title);
        return;
    }
    CommandWatch(context, title, bytes).Follow(answer.commandId);
    PrintCommand(context, answer, "finished", quiet ? std::to_string(answer.id) : text);
}

// Properties are the last step: a track without them is not what was wanted, and goes again.
void SetProperties(Context& context, std::int64_t track,
                   const StorageClientX::Properties& properties) {
    std::string reason;
    try {
        context.Ask([&](StorageClientX& client) { client.SetTrackProperties(track, properties); });
        return;
    } catch (const SocketDisconnected&) {
        Context::Warn(NameOf(track) + " was created, but perhaps without its properties");
        throw;
    } catch (const std::runtime_error& error) {
        reason = error.what();
    }
    const auto deleted =
        context.Ask([&](StorageClientX& client) { return client.DeleteTrack(track); });
    CommandWatch(context, "Deleting track " + std::to_string(track), 0).Follow(deleted.commandId);
    throw std::runtime_error(reason + "; the track was deleted again");
}

void CheckSpace(Context& context, std::int64_t wanted, const std::string& what) {
    const std::int64_t left =
        context.Ask([](StorageClientX& client) { return client.GetRemainingSpace(); });
    if (wanted > left) {
        throw std::runtime_error(what + " takes " + SizeText::Print(wanted) + " (" +
                                 std::to_string(wanted) + " bytes), the storage has " +
                                 SizeText::Print(left) + " (" + std::to_string(left) +
                                 " bytes) left");
    }
}

StorageClientX::Properties PropertiesOf(const CreateOptions& options) {
    std::vector<std::string> arguments = options.properties;
    if (!options.retention.empty()) {
        arguments.push_back("storage.retention=" + options.retention);
    }
    if (!options.durability.empty()) {
        arguments.push_back("storage.durability=" + options.durability);
    }
    return KeyValue(arguments);
}

void CheckIsNew(Context& context, std::int64_t track) {
    const bool exists =
        track != 0 &&
        !context.Ask([&](StorageClientX& client) { return client.GetTrackInfos({track}); }).empty();
    if (exists) {
        throw std::runtime_error(NameOf(track) + " exists already");
    }
}

int Create(Context& context, const CreateOptions& options) {
    const std::int64_t size = ParseCapacity(options.size);
    const std::int64_t rate = ParseRate(options.rate);
    const StorageClientX::Properties properties = PropertiesOf(options);
    DurabilityText::Check(options.durability);
    if (options.noWait && !properties.empty()) {
        throw Misuse(
            "--no-wait: a track gets its properties when it has been created; leave one "
            "of both away");
    }
    if (options.dryRun) {
        CheckIsNew(context, options.id);
        CheckSpace(context, size, "A track of " + options.size);
        JsonObject fields;
        fields.Add("track", options.id).Add("capacity", size);
        context.Would("create " +
                          (options.id == 0 ? "a track" : "track " + std::to_string(options.id)) +
                          " of " + Holding(size, rate),
                      fields);
        return ExitCodes::done;
    }
    StorageClientX::TrackParameters wanted;
    wanted.id = options.id;
    wanted.size = size;
    const StorageClientX::TrackParameters answer =
        context.Ask([&](StorageClientX& client) { return client.CreateTrack(wanted); });
    const std::string title = "Creating track " + std::to_string(answer.id);
    if (!options.noWait && !properties.empty()) {
        CommandWatch(context, title, answer.size).Follow(answer.commandId);
        SetProperties(context, answer.id, properties);
    }
    Conclude(context, answer, options.noWait, title,
             NameOf(answer.id) + " created, " + Holding(answer.size, rate), answer.size);
    return ExitCodes::done;
}

// "2TiB", or "+500M" for so much more than now.
std::int64_t ParseGrowth(Context& context, const GrowOptions& options) {
    const bool isMore = options.size.starts_with('+');
    const std::int64_t size = ParseCapacity(isMore ? options.size.substr(1) : options.size);
    const auto infos =
        context.Ask([&](StorageClientX& client) { return client.GetTrackInfos({options.track}); });
    if (infos.empty()) {
        throw std::runtime_error(NameOf(options.track) + " does not exist");
    }
    const std::int64_t present = infos.front().capacity;
    std::int64_t result = size;
    if (isMore && __builtin_add_overflow(present, size, &result)) {
        throw Misuse("Size " + options.size + ": the track would have more than " +
                     std::to_string(Arguments::highest) + " bytes");
    }
    if (result < present) {
        throw std::runtime_error(NameOf(options.track) + " has " + SizeText::Print(present) +
                                 " and cannot shrink to " + SizeText::Print(result));
    }
    return result;
}

int Grow(Context& context, const GrowOptions& options) {
    const std::int64_t rate = ParseRate(options.rate);
    const std::int64_t size = ParseGrowth(context, options);
    const std::string name = NameOf(options.track);
    if (options.dryRun) {
        JsonObject fields;
        fields.Add("track", options.track).Add("capacity", size);
        context.Would("grow " + name + " to " + Holding(size, rate), fields);
        return ExitCodes::done;
    }
    StorageClientX::TrackParameters wanted;
    wanted.id = options.track;
    wanted.size = size;
    const StorageClientX::TrackParameters answer =
        context.Ask([&](StorageClientX& client) { return client.GrowTrack(wanted); });
    Conclude(context, answer, options.noWait, "Growing track " + std::to_string(answer.id),
             name + " grown, " + Holding(answer.size, rate), answer.size);
    return ExitCodes::done;
}

std::string Describe(const TrackOverview& track) {
    return NameOf(track.info.trackId) + " (" + std::to_string(track.chunks) + " chunks, " +
           SizeText::Print(track.info.size) + ")";
}

// All of them exist; throws otherwise, before anything is changed.
std::vector<TrackOverview> FindAll(Context& context, const std::vector<std::int64_t>& ids) {
    std::vector<TrackOverview> tracks;
    for (const std::int64_t id : ids) {
        std::vector<TrackOverview> found = TrackOverview::Read(context, {id}, false);
        if (found.empty()) {
            throw std::runtime_error(NameOf(id) + " does not exist");
        }
        tracks.push_back(std::move(found.front()));
    }
    return tracks;
}

std::string Enumerate(const std::vector<TrackOverview>& tracks) {
    std::string text;
    for (const TrackOverview& track : tracks) {
        text += (text.empty() ? "" : ", ") + Describe(track);
    }
    return text;
}

// False with --dry-run, when there is nothing more to do.
bool Agree(Context& context, const EndOptions& options, const std::vector<TrackOverview>& tracks,
           const std::string& what) {
    if (options.dryRun) {
        for (const TrackOverview& track : tracks) {
            JsonObject fields;
            fields.Add("track", std::int64_t{track.info.trackId}).Add("chunks", track.chunks);
            fields.Add("size", std::int64_t{track.info.size});
            context.Would(what + " " + Describe(track), fields);
        }
        return false;
    }
    context.Confirm("This would " + what + " " + Enumerate(tracks) + ". Go on?", options.yes);
    return true;
}

int Clear(Context& context, const EndOptions& options) {
    Arguments::RefuseTwice("Track", options.tracks);
    const std::vector<TrackOverview> tracks = FindAll(context, options.tracks);
    if (!Agree(context, options, tracks, "clear")) {
        return ExitCodes::done;
    }
    for (const TrackOverview& track : tracks) {
        const long id = track.info.trackId;
        const std::int64_t left = context.Ask([&](StorageClientX& client) {
            client.ClearTrack(id);
            return client.GetNumberOfChunks(id, Time::TimePoint::Nanoseconds(0),
                                            Time::TimePoint::GetHighestTimePoint());
        });
        if (context.Style().json) {
            JsonObject object;
            context.Out().Line(object.Add("track", id).Add("chunksLeft", left).Print());
        } else {
            context.Out().Line(
                NameOf(id) + " cleared" +
                (left > 0 ? "; " + std::to_string(left) + " chunks are protected and stay" : ""));
        }
    }
    return ExitCodes::done;
}

// The server would refuse it too, but only when the tracks before it are gone.
void RefuseHeld(const TrackOverview& track) {
    if (!track.protections.empty() || track.writer || !track.readers.empty()) {
        throw std::runtime_error(NameOf(track.info.trackId) + " has " +
                                 std::to_string(track.protections.size()) + " protections and " +
                                 std::to_string(track.readers.size() + (track.writer ? 1 : 0)) +
                                 " open workers: nothing was deleted");
    }
}

int Delete(Context& context, const EndOptions& options) {
    Arguments::RefuseTwice("Track", options.tracks);
    const std::vector<TrackOverview> tracks = FindAll(context, options.tracks);
    for (const TrackOverview& track : tracks) {
        RefuseHeld(track);
    }
    if (!Agree(context, options, tracks, "delete")) {
        return ExitCodes::done;
    }
    for (const TrackOverview& track : tracks) {
        const long id = track.info.trackId;
        StorageClientX::TrackParameters answer =
            context.Ask([&](StorageClientX& client) { return client.DeleteTrack(id); });
        answer.id = id;
        answer.size = track.info.capacity;
        Conclude(context, answer, options.noWait, "Deleting track " + std::to_string(id),
                 NameOf(id) + " deleted", 0);
    }
    return ExitCodes::done;
}

void AddNoWait(CLI::App& verb, bool& noWait) {
    verb.add_flag("--no-wait", noWait,
                  "Print the number of the server's command and end, instead of following it");
}

void AddRate(CLI::App& verb, std::string& rate) {
    verb.add_option("--rate", rate, "Say how long a recording of this data rate fits, as 8Mbit/s")
        ->type_name("RATE");
}

void DeclareCreate(VerbList& verbs, CLI::App& family) {
    const auto options = std::make_shared<CreateOptions>();
    CLI::App& verb = verbs.Add(family, "create", "Makes a track",
                               [options](Context& context) { return Create(context, *options); });
    verb.add_option("SIZE", options->size,
                    "Its capacity, taken from the storage at once, as 500M or 2TiB")
        ->required()
        ->type_name("");
    verb.add_option("--id", options->id, "Its number; by default the smallest that is free")
        ->type_name("NUMBER")
        ->check(Arguments::Within(1, Arguments::highest));
    AddRate(verb, options->rate);
    verb.add_option("-p,--property", options->properties, "Give it a property, any number of times")
        ->type_name("KEY=VALUE")
        ->expected(1)
        ->take_all();
    verb.add_option("--retention", options->retention,
                    "When it is full: loop drops the oldest chunks, stop refuses new ones")
        ->type_name("HOW")
        ->check(CLI::IsMember({"loop", "stop"}));
    verb.add_option("--durability", options->durability,
                    "What an answered append survives: always, interval:NUMBERms, os; by default "
                    "as the server's")
        ->type_name("MODE");
    AddNoWait(verb, options->noWait);
    Arguments::AddDryRun(verb, options->dryRun);
    VerbList::AddExample(verb, "brantel track create 10GB --rate 8Mbit/s",
                         "a track of 10 GB, and how much time that is");
}

void DeclareGrow(VerbList& verbs, CLI::App& family) {
    const auto options = std::make_shared<GrowOptions>();
    CLI::App& verb = verbs.Add(family, "grow", "Gives a track more capacity, while it is in use",
                               [options](Context& context) { return Grow(context, *options); });
    Arguments::AddTrack(verb, options->track);
    verb.add_option("SIZE", options->size,
                    "The new whole capacity, as 2TiB; with + in front, what is added")
        ->required()
        ->type_name("");
    AddRate(verb, options->rate);
    AddNoWait(verb, options->noWait);
    Arguments::AddDryRun(verb, options->dryRun);
    VerbList::AddExample(verb, "brantel track grow 7 +10GiB", "10 GiB more for track 7");
}

void DeclareClear(VerbList& verbs, CLI::App& family) {
    const auto options = std::make_shared<EndOptions>();
    CLI::App& verb =
        verbs.Add(family, "clear", "Drops all chunks of tracks that no protection holds",
                  [options](Context& context) { return Clear(context, *options); });
    Arguments::AddTracks(verb, options->tracks, 1);
    Arguments::AddYes(verb, options->yes);
    Arguments::AddDryRun(verb, options->dryRun);
    VerbList::AddExample(verb, "brantel track clear -y 7", "empty track 7 without being asked");
}

void DeclareDelete(VerbList& verbs, CLI::App& family) {
    const auto options = std::make_shared<EndOptions>();
    CLI::App& verb =
        verbs.Add(family, "delete",
                  "Deletes tracks with all they hold; not while they are protected or in use",
                  [options](Context& context) { return Delete(context, *options); });
    Arguments::AddTracks(verb, options->tracks, 1);
    Arguments::AddYes(verb, options->yes);
    AddNoWait(verb, options->noWait);
    Arguments::AddDryRun(verb, options->dryRun);
    VerbList::AddExample(verb, "brantel track delete 7", "delete track 7, after a question");
}

}  // namespace

void DeclareTrack(VerbList& verbs) {
    CLI::App& family = verbs.AddFamily("track", "Makes, enlarges, empties and deletes tracks");
    DeclareCreate(verbs, family);
    DeclareGrow(verbs, family);
    DeclareClear(verbs, family);
    DeclareDelete(verbs, family);
}

}  // namespace Brantel::Tool
