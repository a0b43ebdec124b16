#include "VerbModel.h"

#include <CLI/CLI.hpp>

#include <array>
#include <sstream>
#include <string_view>
#include <utility>

namespace Brantel::Tool {

namespace {

// "FORMAT:{a,b}" as name and choices.
void ReadType(const std::string& type, VerbModel::Argument& argument) {
    argument.value = type.substr(0, type.find(':'));
    const std::size_t begin = type.find('{');
    const std::size_t end = type.find('}', begin);
    if (begin == std::string::npos || end == std::string::npos) {
        return;
    }
    argument.value = argument.value.substr(0, begin);
    std::istringstream list(type.substr(begin + 1, end - begin - 1));
    for (std::string choice; std::getline(list, choice, ',');) {
        argument.choices.push_back(choice);
    }
}

VerbModel::Argument ReadOption(const CLI::Option& option) {
    VerbModel::Argument argument;
    for (const std::string& name : option.get_snames()) {
        argument.names.push_back("-" + name);
    }
    for (const std::string& name : option.get_lnames()) {
        argument.names.push_back("--" + name);
    }
    ReadType(option.get_type_name(), argument);
    if (argument.names.empty()) {
        argument.value = option.get_name(true);
    } else if (option.get_items_expected_max() == 0) {
        argument.value.clear();
    } else if (argument.value.empty()) {
        argument.value = "VALUE";
    }
    argument.description = option.get_description();
    argument.standard = option.get_default_str();
    argument.required = option.get_required();
    argument.repeated = option.get_expected_max() > 1;
    return argument;
}

VerbModel Read(const CLI::App& app, const std::string& path) {
    VerbModel model;
    model.path = path;
    model.description = app.get_description();
    model.footer = app.get_footer();
    for (const CLI::Option* const option :
         app.get_options([](const CLI::Option* one) { return !one->get_group().empty(); })) {
        VerbModel::Argument argument = ReadOption(*option);
        (argument.names.empty() ? model.positionals : model.options).push_back(std::move(argument));
    }
    for (const CLI::App* const verb :
         app.get_subcommands([](const CLI::App* one) { return !one->get_group().empty(); })) {
        model.verbs.push_back(Read(*verb, path + (path.empty() ? "" : " ") + verb->get_name()));
    }
    return model;
}

}  // namespace

bool VerbModel::Argument::IsFile() const {
    constexpr std::array<std::string_view, 5> names{"FILE", "FOLDER", "DIR", "PATH", "OUT"};
    for (const std::string_view name : names) {
        if (value.find(name) != std::string::npos) {
            return true;
        }
    }
    return false;
}

bool VerbModel::Argument::IsTrack() const {
    return value == "TRACK";
}

VerbModel VerbModel::Of(const CLI::App& app) {
    return Read(app, "");
}

std::vector<const VerbModel*> VerbModel::All() const {
    std::vector<const VerbModel*> all{this};
    for (const VerbModel& verb : verbs) {
        for (const VerbModel* const one : verb.All()) {
            all.push_back(one);
        }
    }
    return all;
}

std::string VerbModel::Name() const {
    return path.substr(path.rfind(' ') + 1);
}

}  // namespace Brantel::Tool
