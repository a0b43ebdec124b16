#include "Verbs/BenchVerb.h"

#include "Benching/Bench.h"
#include "Context.h"
#include "DurabilityText.h"
#include "DurationText.h"
#include "ExitCodes.h"
#include "SizeText.h"
#include "Table.h"
#include "VerbList.h"
#include "Verbs/Arguments.h"

#include <CLI/CLI.hpp>

#include <array>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace Brantel::Tool {

namespace {

struct BenchOptions {
    std::string operation = "both";
    std::string chunkSize = "64KiB";
    std::string trackSize = "256MiB";
    std::string duration = "5s";
    std::string durability;
    int writers = 1;
    int readers = 1;
};

constexpr std::array parts{0.5, 0.9, 0.99, 0.999};

Bench::Plan MakePlan(const BenchOptions& options) {
    constexpr std::int64_t largestChunk = std::int64_t{128} << 20U;
    constexpr std::int64_t chunksOfTrack = 4;
    Bench::Plan plan;
    plan.chunkSize = SizeText::Parse(options.chunkSize);
    plan.trackSize = SizeText::Parse(options.trackSize);
    plan.duration = std::chrono::nanoseconds(DurationText::Parse(options.duration));
    plan.writers = options.writers;
    plan.readers = options.readers;
    plan.durability = options.durability;
    DurabilityText::Check(plan.durability);
    if (plan.chunkSize < 1 || plan.chunkSize > largestChunk) {
        throw Misuse("A chunk has 1 to " + std::to_string(largestChunk) +
                     " bytes: " + options.chunkSize);
    }
    if (plan.trackSize < chunksOfTrack * plan.chunkSize) {
        throw Misuse("A track of " + options.trackSize + " has no room for " +
                     std::to_string(chunksOfTrack) + " chunks of " + options.chunkSize);
    }
    if (plan.duration.count() <= 0) {
        throw Misuse("The duration must be above 0: " + options.duration);
    }
    return plan;
}

std::string PerSecond(const Bench::Result& result) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.0f",
                  static_cast<double>(result.latencies.Count()) / result.seconds);
    return text.data();
}

void PrintTable(Context& context, const std::vector<Bench::Result>& results) {
    Table table({{"OPERATION"},
                 {"THREADS", Table::Align::Right},
                 {"CHUNKS/S", Table::Align::Right},
                 {"DATA", Table::Align::Right},
                 {"50 %", Table::Align::Right},
                 {"90 %", Table::Align::Right},
                 {"99 %", Table::Align::Right},
                 {"99.9 %", Table::Align::Right},
                 {"LONGEST", Table::Align::Right}});
    for (const Bench::Result& result : results) {
        std::vector<std::string> cells{
            result.operation, std::to_string(result.threads), PerSecond(result),
            SizeText::PrintRate(static_cast<double>(result.bytes) / result.seconds)};
        for (const double part : parts) {
            cells.push_back(DurationText::Round(result.latencies.At(part)));
        }
        cells.push_back(DurationText::Round(result.latencies.Highest()));
        table.AddRow(std::move(cells));
    }
    context.Out().Write(table.Print(context.Style().colorsOutput));
}

void PrintJson(Context& context, const Bench::Plan& plan, const std::string& durability,
               const std::vector<Bench::Result>& results) {
    for (const Bench::Result& result : results) {
        JsonObject line;
        line.Add("operation", std::string_view(result.operation)).Add("threads", result.threads);
        line.Add("chunkSize", plan.chunkSize).Add("durability", std::string_view(durability));
        line.Add("seconds", result.seconds).Add("chunks", result.latencies.Count());
        line.Add("bytes", result.bytes);
        line.Add("nanoseconds50", result.latencies.At(parts[0]));
        line.Add("nanoseconds90", result.latencies.At(parts[1]));
        line.Add("nanoseconds99", result.latencies.At(parts[2]));
        line.Add("nanoseconds999", result.latencies.At(parts[3]));
        line.Add("nanosecondsLongest", result.latencies.Highest());
        context.Out().Line(line.Print());
    }
}

int RunBench(Context& context, const BenchOptions& options) {
    const Bench::Plan plan = MakePlan(options);
    Bench bench(context, plan);
    const std::string durability = bench.Durability();
    context.Note("Chunks of " + SizeText::Print(plan.chunkSize) + ", " +
                 DurationText::Print(plan.duration.count()) +
                 " for each row, durability: " + durability);
    std::vector<Bench::Result> results{bench.Append()};
    if (options.operation != "append") {
        results.push_back(bench.Read());
    }
    if (options.operation == "read") {
        results.erase(results.begin());
    }
    if (context.Style().json) {
        PrintJson(context, plan, durability, results);
    } else {
        PrintTable(context, results);
    }
    return ExitCodes::done;
}

}  // namespace

void DeclareBench(VerbList& verbs) {
    const auto options = std::make_shared<BenchOptions>();
    CLI::App& verb =
        verbs.Add("bench", "Measures appending and reading, with tracks that it makes and deletes",
                  [options](Context& context) { return RunBench(context, *options); });
    constexpr int mostThreads = 256;
    verb.add_option("OPERATION", options->operation, "append, read or both")
        ->check(CLI::IsMember({"append", "read", "both"}))
        ->capture_default_str();
    verb.add_option("--chunk-size", options->chunkSize, "Of the data of a chunk")
        ->type_name("SIZE")
        ->capture_default_str();
    verb.add_option("--writers", options->writers, "How many append at once, each to its own track")
        ->type_name("NUMBER")
        ->check(Arguments::Within(1, mostThreads))
        ->capture_default_str();
    verb.add_option("--readers", options->readers, "How many read at once, in a random order")
        ->type_name("NUMBER")
        ->check(Arguments::Within(1, mostThreads))
        ->capture_default_str();
    verb.add_option("--duration", options->duration, "How long each operation is measured")
        ->type_name("DURATION")
        ->capture_default_str();
    verb.add_option("--track-size", options->trackSize, "Of each track; older chunks are recycled")
        ->type_name("SIZE")
        ->capture_default_str();
    verb.add_option("--durability", options->durability,
                    "always, interval:DURATION or os. Default: as the server has it")
        ->type_name("MODE");
    VerbList::AddExample(verb, "brantel bench --chunk-size 1MiB --readers 2",
                         "what a camera with two viewers could do");
}

}  // namespace Brantel::Tool
