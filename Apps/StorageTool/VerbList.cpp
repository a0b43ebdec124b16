#include "VerbList.h"

#include "ExitCodes.h"

#include <CLI/CLI.hpp>

#include <utility>

namespace Brantel::Tool {

VerbList::VerbList(CLI::App& root) : root(root) {}

CLI::App& VerbList::Add(const std::string& name, const std::string& description, Run run) {
    return Add(root, name, description, std::move(run));
}

CLI::App& VerbList::AddFamily(const std::string& name, const std::string& description) {
    CLI::App& family = *root.add_subcommand(name, description);
    family.require_subcommand(1);
    return family;
}

CLI::App& VerbList::Add(CLI::App& family, const std::string& name, const std::string& description,
                        Run run) {
    CLI::App& verb = *family.add_subcommand(name, description);
    runs.emplace(&verb, std::move(run));
    return verb;
}

void VerbList::AddExample(CLI::App& verb, const std::string& command, const std::string& says) {
    const std::string before = verb.get_footer();
    verb.footer((before.empty() ? std::string("Examples:") : before) + "\n  " + command +
                "\n      " + says);
}

const CLI::App* VerbList::Chosen() const {
    const CLI::App* app = &root;
    while (!app->get_subcommands().empty()) {
        app = app->get_subcommands().front();
    }
    return app == &root ? nullptr : app;
}

std::string VerbList::ChosenName() const {
    std::string name;
    const CLI::App* app = &root;
    while (!app->get_subcommands().empty()) {
        app = app->get_subcommands().front();
        name += (name.empty() ? "" : " ") + app->get_name();
    }
    return name;
}

void VerbList::RefuseEmptyValues() const {
    for (const CLI::App* const app : {static_cast<const CLI::App*>(&root), Chosen()}) {
        for (const CLI::Option* const option : app->get_options()) {
            // Flags have no values.
            if (option->get_items_expected_max() == 0) {
                continue;
            }
            for (const std::string& value : option->results()) {
                if (value.empty()) {
                    throw Misuse(option->get_name(option->get_positional()) +
                                 ": a value that is empty");
                }
            }
        }
    }
}

int VerbList::RunChosen(Context& context) const {
    return runs.at(Chosen())(context);
}

}  // namespace Brantel::Tool
