#include "Local/CatalogueScratch.h"

#include "EngineError.h"
#include "Local/File.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace Brantel::Engine {

CatalogueScratch::CatalogueScratch(const LocalOptions& store) : options(store) {
    std::string pattern =
        (std::filesystem::temp_directory_path() / "brantel-catalogue-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) {
        ThrowSystemError(pattern + ": making a temporary folder failed", errno);
    }
    folder = pattern;
    try {
        for (const char* name : {"catalogue.sqlite", "catalogue.sqlite-wal",
                                 "catalogue.copy.sqlite", "catalogue.mark"}) {
            Copy(store.directory, name);
        }
    } catch (...) {
        Remove();
        throw;
    }
    options.directory = folder;
    options.readOnly = false;
    options.catalogueReserve = 0;
    options.report = [scratch = folder, directory = store.directory,
                      report = store.report](const std::string& text) {
        std::string named = text;
        for (std::size_t place = named.find(scratch); place != std::string::npos;
             place = named.find(scratch, place + directory.size())) {
            named.replace(place, scratch.size(), directory);
        }
        report(named);
    };
}

CatalogueScratch::~CatalogueScratch() {
    Remove();
}

void CatalogueScratch::Copy(const std::string& store, const char* name) const {
    const std::filesystem::path from = std::filesystem::path(store) / name;
    const std::filesystem::path to = std::filesystem::path(folder) / name;
    std::error_code error;
    if (std::filesystem::exists(std::filesystem::symlink_status(from, error))) {
        std::filesystem::copy_file(from, to, error);
        if (error) {
            ThrowSystemError(from.string() + ": copying to " + to.string() + " failed",
                             error.value());
        }
    }
}

void CatalogueScratch::Remove() const noexcept {
    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);
}

}  // namespace Brantel::Engine
