#include "Verbs/DuVerb.h"

#include "Context.h"
#include "ExitCodes.h"
#include "SizeText.h"
#include "Table.h"
#include "VerbList.h"
#include "Verbs/Arguments.h"

#include <libProtocolX/StorageClientX.h>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace Brantel::Tool {

namespace {

using ProtocolX::StorageClientX;

struct DuOptions {
    std::vector<std::int64_t> tracks;
    bool bytes = false;
};

std::vector<StorageClientX::TrackInfo> ReadTracks(Context& context, const DuOptions& options) {
    std::vector<long> ids(options.tracks.begin(), options.tracks.end());
    if (ids.empty()) {
        ids = context.Ask([](StorageClientX& client) { return client.ListTracks(); });
    }
    auto infos = context.Ask([&](StorageClientX& client) { return client.GetTrackInfos(ids); });
    for (const std::int64_t id : options.tracks) {
        if (std::none_of(infos.begin(), infos.end(),
                         [&](const auto& info) { return info.trackId == id; })) {
            throw std::runtime_error("Track " + std::to_string(id) + " does not exist");
        }
    }
    std::sort(infos.begin(), infos.end(),
              [](const auto& one, const auto& other) { return one.size > other.size; });
    return infos;
}

std::string Percent(std::int64_t part, std::int64_t whole) {
    constexpr double hundred = 100;
    std::array<char, 32> text{};
    std::snprintf(
        text.data(), text.size(), "%.1f %%",
        whole == 0 ? 0.0 : hundred * static_cast<double>(part) / static_cast<double>(whole));
    return text.data();
}

void PrintTable(Context& context, const DuOptions& options,
                const std::vector<StorageClientX::TrackInfo>& infos, std::int64_t remaining) {
    const auto size = [&](std::int64_t bytes) {
        return options.bytes ? std::to_string(bytes) : SizeText::Print(bytes);
    };
    Table table({{"TRACK"},
                 {"USED", Table::Align::Right},
                 {"CAPACITY", Table::Align::Right},
                 {"FULL", Table::Align::Right}});
    std::int64_t used = 0;
    std::int64_t capacity = 0;
    for (const auto& info : infos) {
        used += info.size;
        capacity += info.capacity;
        table.AddRow({std::to_string(info.trackId), size(info.size), size(info.capacity),
                      Percent(info.size, info.capacity)});
    }
    table.AddRow({"all", size(used), size(capacity), Percent(used, capacity)});
    table.AddRow({"free", "", size(remaining), ""});
    context.Out().Write(table.Print(context.Style().colorsOutput));
}

void PrintJson(Context& context, const std::vector<StorageClientX::TrackInfo>& infos,
               std::int64_t remaining) {
    for (const auto& info : infos) {
        JsonObject line;
        line.Add("track", std::int64_t{info.trackId}).Add("used", std::int64_t{info.size});
        line.Add("capacity", std::int64_t{info.capacity});
        context.Out().Line(line.Print());
    }
    JsonObject line;
    line.Add("remaining", remaining);
    context.Out().Line(line.Print());
}

int Du(Context& context, const DuOptions& options) {
    const auto infos = ReadTracks(context, options);
    const std::int64_t remaining =
        context.Ask([](StorageClientX& client) { return client.GetRemainingSpace(); });
    if (context.Style().json) {
        PrintJson(context, infos, remaining);
    } else {
        PrintTable(context, options, infos, remaining);
    }
    return ExitCodes::done;
}

}  // namespace

void DeclareDu(VerbList& verbs) {
    const auto options = std::make_shared<DuOptions>();
    CLI::App& verb = verbs.Add("du", "Shows what the tracks take of the storage, largest first",
                               [options](Context& context) { return Du(context, *options); });
    Arguments::AddTracks(verb, options->tracks, 0);
    verb.add_flag("-b,--bytes", options->bytes, "Exact numbers of bytes");
    VerbList::AddExample(verb, "brantel du", "every track, and what is left for new ones");
}

}  // namespace Brantel::Tool
