#include "Verbs/CompletionVerb.h"

#include "CompletionScript.h"
#include "Context.h"
#include "ExitCodes.h"
#include "ManualPage.h"
#include "VerbList.h"
#include "VerbModel.h"

#include <CLI/CLI.hpp>

#include <cerrno>
#include <fstream>
#include <memory>
#include <string>
#include <system_error>

namespace Brantel::Tool {

namespace {

int PrintScript(Context& context, const CLI::App& root, const std::string& shell) {
    const VerbModel model = VerbModel::Of(root);
    context.Out().Write(shell == "bash"  ? CompletionScript::ForBash(model)
                        : shell == "zsh" ? CompletionScript::ForZsh(model)
                                         : CompletionScript::ForFish(model));
    return ExitCodes::done;
}

int WritePages(const CLI::App& root, const std::string& folder, const std::string& date) {
    const VerbModel model = VerbModel::Of(root);
    for (const VerbModel* const verb : model.All()) {
        const std::string path = folder + "/" + ManualPage::NameOf(*verb) + ".1";
        std::ofstream file(path, std::ios::binary | std::ios::trunc);
        file << ManualPage::Of(model, *verb, BRANTEL_VERSION, date);
        file.close();
        if (!file) {
            throw std::system_error(errno, std::generic_category(), "Writing " + path + " failed");
        }
    }
    return ExitCodes::done;
}

struct ManualOptions {
    std::string folder;
    std::string date;
};

}  // namespace

void DeclareCompletion(VerbList& verbs) {
    const auto shell = std::make_shared<std::string>();
    CLI::App& completion = verbs.Add(
        "completion", "Prints a script that completes verbs, options, tracks and files in a shell",
        [shell, &verbs](Context& context) { return PrintScript(context, verbs.Root(), *shell); });
    completion.add_option("SHELL", *shell, "Of which shell")
        ->required()
        ->type_name("")
        ->check(CLI::IsMember({"bash", "zsh", "fish"}));
    VerbList::AddExample(completion, "source <(brantel completion bash)", "for this bash");

    const auto options = std::make_shared<ManualOptions>();
    CLI::App& manual =
        verbs.Add("manual", "Writes the pages of the manual", [options, &verbs](Context&) {
            return WritePages(verbs.Root(), options->folder, options->date);
        });
    manual.add_option("FOLDER", options->folder, "Where to, one file a verb")
        ->required()
        ->type_name("");
    manual.add_option("DATE", options->date, "The date in the margin, as 2024-05-01")
        ->required()
        ->type_name("");
    // For whoever installs, not for whoever asks for help.
    manual.group("");
}

}  // namespace Brantel::Tool
