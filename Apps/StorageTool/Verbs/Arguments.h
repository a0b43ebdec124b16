#pragma once

#include <CLI/CLI.hpp>

#include <chrono>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

namespace Brantel::Tool {

class Context;

// Arguments that several verbs have.
struct Arguments {
    static constexpr std::int64_t highest = std::numeric_limits<std::int64_t>::max();

    // A whole number within these bounds; help says no more than the argument's name.
    static CLI::Validator Within(std::int64_t lowest, std::int64_t highest);
    // --format, of chunks that are written: raw, mjpeg, record or json.
    static CLI::Option* AddChunkFormat(CLI::App& verb, std::string& format,
                                       const std::string& help);
    // --keys, of data blocks.
    static CLI::Option* AddKeys(CLI::App& verb, std::vector<std::string>& keys);

    // TRACK, required.
    static CLI::Option* AddTrack(CLI::App& verb, std::int64_t& track);
    // TRACK..., at least `lowest` of them.
    static CLI::Option* AddTracks(CLI::App& verb, std::vector<std::int64_t>& tracks, int lowest);
    // Throws Misuse when a number is there twice: "Track 7 is given twice".
    static void RefuseTwice(const std::string& what, const std::vector<std::int64_t>& numbers);
    // Throws Misuse for --json beside another form that was asked for.
    static void RefuseFormatBesideJson(const Context& context, const std::string& format);
    // -y, --yes
    static CLI::Option* AddYes(CLI::App& verb, bool& yes);
    // --dry-run
    static CLI::Option* AddDryRun(CLI::App& verb, bool& dryRun);
    // --interval
    static CLI::Option* AddInterval(CLI::App& verb, std::string& interval);
    // Of its value; throws Misuse when it is no duration above 0.
    static std::chrono::nanoseconds Interval(const std::string& text);
};

}  // namespace Brantel::Tool
