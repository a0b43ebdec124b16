#pragma once

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

namespace Brantel::Tests {

// A fresh, empty folder with a short path, removed with all it holds at the end.
class TemporaryFolder {
  public:
    TemporaryFolder() : TemporaryFolder(std::filesystem::temp_directory_path()) {}
    explicit TemporaryFolder(const std::filesystem::path& parent) {
        std::string pattern = (parent / "brantel-XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr) {
            throw std::system_error(errno, std::generic_category(), "mkdtemp " + pattern);
        }
        path = pattern;
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }

    // A parent in memory where there is one, for files that need not last.
    static std::filesystem::path InMemory() {
        const char* memory = "/dev/shm";
        return access(memory, W_OK) == 0 ? memory : std::filesystem::temp_directory_path();
    }

    std::string Path() const { return path; }
    std::string File(const std::string& name) const { return path + "/" + name; }

  private:
    std::string path;
};

}  // namespace Brantel::Tests
