#include "Verbs/Arguments.h"

#include "Context.h"
#include "DurationText.h"
#include "ExitCodes.h"

#include <charconv>
#include <set>

namespace Brantel::Tool {

CLI::Validator Arguments::Within(std::int64_t lowest, std::int64_t highest) {
    const auto check = [lowest, highest](const std::string& text) -> std::string {
        std::int64_t value = 0;
        const char* const end = text.data() + text.size();
        const auto [rest, error] = std::from_chars(text.data(), end, value);
        if (error != std::errc() || rest != end || value < lowest || value > highest) {
            return text + " is not a whole number within " + std::to_string(lowest) + " to " +
                   std::to_string(highest);
        }
        return {};
    };
    return {check, ""};
}

CLI::Option* Arguments::AddChunkFormat(CLI::App& verb, std::string& format,
                                       const std::string& help) {
    return verb.add_option("--format", format, help)
        ->type_name("FORMAT")
        ->check(CLI::IsMember({"raw", "mjpeg", "record", "json"}))
        ->capture_default_str();
}

CLI::Option* Arguments::AddKeys(CLI::App& verb, std::vector<std::string>& keys) {
    return verb.add_option("--keys", keys, "Only the data blocks with these keys")
        ->type_name("KEY,...")
        ->delimiter(',');
}

CLI::Option* Arguments::AddTrack(CLI::App& verb, std::int64_t& track) {
    return verb.add_option("TRACK", track, "The track's number")
        ->required()
        ->type_name("")
        ->check(Within(1, highest));
}

CLI::Option* Arguments::AddTracks(CLI::App& verb, std::vector<std::int64_t>& tracks, int lowest) {
    constexpr int most = 1'000'000;
    return verb.add_option("TRACK", tracks, "The tracks' numbers")
        ->required(lowest > 0)
        ->expected(lowest, most)
        ->type_name("")
        ->check(Within(1, highest));
}

void Arguments::RefuseTwice(const std::string& what, const std::vector<std::int64_t>& numbers) {
    std::set<std::int64_t> seen;
    for (const std::int64_t number : numbers) {
        if (!seen.insert(number).second) {
            throw Misuse(what + " " + std::to_string(number) + " is given twice");
        }
    }
}

void Arguments::RefuseFormatBesideJson(const Context& context, const std::string& format) {
    if (context.Style().json && format != "raw" && format != "json") {
        throw Misuse("Either --json or --format " + format);
    }
}

CLI::Option* Arguments::AddYes(CLI::App& verb, bool& yes) {
    return verb.add_flag("-y,--yes", yes, "Agree beforehand instead of being asked");
}

CLI::Option* Arguments::AddDryRun(CLI::App& verb, bool& dryRun) {
    return verb.add_flag("--dry-run", dryRun, "Say what would be done and change nothing");
}

std::chrono::nanoseconds Arguments::Interval(const std::string& text) {
    const std::chrono::nanoseconds interval(DurationText::Parse(text));
    if (interval.count() <= 0) {
        throw Misuse("The interval must be above 0: " + text);
    }
    return interval;
}

CLI::Option* Arguments::AddInterval(CLI::App& verb, std::string& interval) {
    return verb.add_option("-i,--interval", interval, "How long between two looks")
        ->type_name("DURATION")
        ->capture_default_str();
}

}  // namespace Brantel::Tool
