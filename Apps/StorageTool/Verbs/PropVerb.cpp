#include "Verbs/PropVerb.h"

#include "Context.h"
#include "ExitCodes.h"
#include "Table.h"
#include "Terminal.h"
#include "VerbList.h"
#include "Verbs/Arguments.h"
#include "Verbs/KeyValue.h"

#include <memory>
#include <stdexcept>

namespace Brantel::Tool {

using ProtocolX::StorageClientX;

namespace {

struct GetOptions {
    std::int64_t track = 0;
    std::string key;
};

struct SetOptions {
    std::int64_t track = 0;
    std::vector<std::string> properties;
    bool dryRun = false;
};

struct RemoveOptions {
    std::int64_t track = 0;
    std::vector<std::string> keys;
    bool dryRun = false;
};

StorageClientX::Properties Read(Context& context, std::int64_t track) {
    return context.Ask([&](StorageClientX& client) { return client.GetTrackProperties(track); });
}

const std::string& Find(const StorageClientX::Properties& properties, std::int64_t track,
                        const std::string& key) {
    const auto found = properties.find(key);
    if (found == properties.end()) {
        throw std::runtime_error("Track " + std::to_string(track) + " has no property " + key);
    }
    return found->second;
}

void PrintJson(Context& context, std::int64_t track, const std::string& key,
               const std::string& value) {
    JsonObject object;
    object.Add("track", track).Add("key", std::string_view(key)).AddBytes("value", value);
    context.Out().Line(object.Print());
}

int Get(Context& context, const GetOptions& options) {
    const StorageClientX::Properties properties = Read(context, options.track);
    if (!options.key.empty()) {
        const std::string& value = Find(properties, options.track, options.key);
        if (context.Style().json) {
            PrintJson(context, options.track, options.key, value);
        } else {
            // Byte for byte for other programs; a terminal gets nothing that moves it.
            context.Out().Line(context.Out().IsTerminal() ? Terminal::Printable(value) : value);
        }
        return ExitCodes::done;
    }
    Table table({{"key"}, {"value"}});
    for (const auto& [key, value] : properties) {
        if (context.Style().json) {
            PrintJson(context, options.track, key, value);
        } else {
            table.AddRow({key, value});
        }
    }
    if (!context.Style().json && !properties.empty()) {
        context.Out().Write(table.Print(context.Style().colorsOutput));
    } else if (properties.empty()) {
        context.Note("Track " + std::to_string(options.track) + " has no properties");
    }
    return ExitCodes::done;
}

int Set(Context& context, const SetOptions& options) {
    const StorageClientX::Properties properties = KeyValue(options.properties);
    if (options.dryRun) {
        const StorageClientX::Properties present = Read(context, options.track);
        for (const auto& [key, value] : properties) {
            JsonObject fields;
            fields.Add("track", options.track).Add("key", std::string_view(key));
            context.Would((present.contains(key) ? "replace " : "add ") + Terminal::Printable(key),
                          fields);
        }
        return ExitCodes::done;
    }
    context.Ask([&](StorageClientX& client) {
        client.SetTrackProperties(options.track, properties);
        return true;
    });
    return ExitCodes::done;
}

// The server ignores unknown keys; here one is a slip of the fingers, and nothing is removed.
int Remove(Context& context, const RemoveOptions& options) {
    const StorageClientX::Properties present = Read(context, options.track);
    StorageClientX::Properties removed;
    for (const std::string& key : options.keys) {
        removed[key] = Find(present, options.track, key);
    }
    if (options.dryRun) {
        for (const auto& [key, value] : removed) {
            JsonObject fields;
            fields.Add("track", options.track).Add("key", std::string_view(key));
            context.Would("remove " + Terminal::Printable(key), fields);
        }
        return ExitCodes::done;
    }
    context.Ask([&](StorageClientX& client) {
        client.RemoveTrackProperties(options.track, removed);
        return true;
    });
    return ExitCodes::done;
}

}  // namespace

void DeclareProp(VerbList& verbs) {
    CLI::App& family = verbs.AddFamily("prop", "Reads and changes the properties of a track");

    const auto get = std::make_shared<GetOptions>();
    CLI::App& getVerb = verbs.Add(family, "get", "Prints all properties, or the value of one",
                                  [get](Context& context) { return Get(context, *get); });
    Arguments::AddTrack(getVerb, get->track);
    getVerb.add_option("KEY", get->key, "Only this one: its value, byte for byte")->type_name("");
    VerbList::AddExample(getVerb, "brantel prop get 7 camera", "the value of one property");

    const auto set = std::make_shared<SetOptions>();
    CLI::App& setVerb =
        verbs.Add(family, "set", "Adds or replaces properties, and leaves the others",
                  [set](Context& context) { return Set(context, *set); });
    Arguments::AddTrack(setVerb, set->track);
    setVerb.add_option("KEY=VALUE", set->properties, "The properties")->required()->type_name("");
    Arguments::AddDryRun(setVerb, set->dryRun);
    VerbList::AddExample(setVerb, "brantel prop set 7 camera=north storage.retention=stop",
                         "a property of yours, and a setting of the server");

    const auto remove = std::make_shared<RemoveOptions>();
    CLI::App& removeVerb =
        verbs.Add(family, "rm", "Removes properties; none when one of them is not there",
                  [remove](Context& context) { return Remove(context, *remove); });
    Arguments::AddTrack(removeVerb, remove->track);
    removeVerb.add_option("KEY", remove->keys, "The properties' keys")->required()->type_name("");
    Arguments::AddDryRun(removeVerb, remove->dryRun);
    VerbList::AddExample(removeVerb, "brantel prop rm 7 camera", "remove one property");
}

}  // namespace Brantel::Tool
