#include "Verbs/PingVerb.h"

#include "Context.h"
#include "DurationText.h"
#include "ExitCodes.h"
#include "VerbList.h"
#include "Verbs/Arguments.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <memory>
#include <numeric>
#include <string>
#include <vector>

namespace Brantel::Tool {

namespace {

struct PingOptions {
    std::int64_t count = 3;
    std::string interval = "200ms";
};

using Clock = std::chrono::steady_clock;

// One exchange that changes nothing, nanoseconds.
std::int64_t MeasureExchange(Context& context) {
    const Clock::time_point begin = Clock::now();
    context.Ask([](ProtocolX::StorageClientX& client) { return client.GetOngoingCommands(); });
    return std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now() - begin).count();
}

void PrintExchange(Context& context, std::int64_t number, std::int64_t time) {
    if (context.Style().json) {
        JsonObject line;
        line.Add("server", std::string_view(context.Address().text));
        line.Add("number", number).Add("nanoseconds", time);
        context.Out().Line(line.Print());
    } else {
        context.Out().Line(context.Address().text + " answered in " + DurationText::Round(time));
    }
}

int Ping(Context& context, const PingOptions& options) {
    const std::chrono::nanoseconds interval(DurationText::Parse(options.interval));
    context.Client();
    // The first exchange meets a server that is not warm; like the others it is shown.
    std::vector<std::int64_t> times;
    while (static_cast<std::int64_t>(times.size()) < options.count && !context.Ends().Requested()) {
        if (!times.empty() && !context.Ends().Sleep(interval)) {
            break;
        }
        times.push_back(MeasureExchange(context));
        PrintExchange(context, static_cast<std::int64_t>(times.size()), times.back());
    }
    if (times.size() > 1 && !context.Style().json) {
        const auto [lowest, highest] = std::minmax_element(times.begin(), times.end());
        const std::int64_t mean = std::accumulate(times.begin(), times.end(), std::int64_t{0}) /
                                  static_cast<std::int64_t>(times.size());
        context.Out().Line(std::to_string(times.size()) + " answers: shortest " +
                           DurationText::Round(*lowest) + ", mean " + DurationText::Round(mean) +
                           ", longest " + DurationText::Round(*highest));
    }
    return ExitCodes::done;
}

}  // namespace

void DeclarePing(VerbList& verbs) {
    const auto options = std::make_shared<PingOptions>();
    CLI::App& verb =
        verbs.Add("ping", "Asks the server something small and says how long the answer took",
                  [options](Context& context) { return Ping(context, *options); });
    constexpr std::int64_t highestCount = 1'000'000'000;
    verb.add_option("-n,--count", options->count, "How often")
        ->type_name("NUMBER")
        ->check(Arguments::Within(1, highestCount))
        ->capture_default_str();
    verb.add_option("-i,--interval", options->interval, "How long between two")
        ->type_name("DURATION")
        ->capture_default_str();
    VerbList::AddExample(verb, "brantel ping -n 1",
                         "whether a server is there, and how quick it is");
}

}  // namespace Brantel::Tool
