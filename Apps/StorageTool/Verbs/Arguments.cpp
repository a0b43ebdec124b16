#include "Verbs/Arguments.h"

namespace Brantel::Tool {

CLI::Validator Arguments::Within(std::int64_t lowest, std::int64_t highest) {
    const auto check = [lowest, highest](const std::string& text) -> std::string {
        std::int64_t value = 0;
        if (!CLI::detail::lexical_cast(text, value) || value < lowest || value > highest) {
            return text + " is not a whole number within " + std::to_string(lowest) + " to " +
                   std::to_string(highest);
        }
        return {};
    };
    return {check, ""};
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

CLI::Option* Arguments::AddYes(CLI::App& verb, bool& yes) {
    return verb.add_flag("-y,--yes", yes, "Agree beforehand instead of being asked");
}

CLI::Option* Arguments::AddDryRun(CLI::App& verb, bool& dryRun) {
    return verb.add_flag("--dry-run", dryRun, "Say what would be done and change nothing");
}

CLI::Option* Arguments::AddInterval(CLI::App& verb, std::string& interval) {
    return verb.add_option("-i,--interval", interval, "How long between two looks")
        ->type_name("DURATION")
        ->capture_default_str();
}

}  // namespace Brantel::Tool
