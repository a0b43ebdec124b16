#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace Brantel::Tool {

// The bytes of several files, one after the other, or of the standard input. For one thread, but
// for Stop.
class InputFiles {
  public:
    // No path, or "-": the standard input. `endDescriptor`: reading ends when it is readable.
    InputFiles(std::vector<std::string> paths, int endDescriptor);
    InputFiles(const InputFiles&) = delete;
    InputFiles& operator=(const InputFiles&) = delete;
    ~InputFiles();

    // Goes on to the next file. False when there is none. Throws std::system_error when it can't be
    // opened.
    bool Open();
    // What is said of the one that is open: its path, or "The standard input".
    const std::string& Name() const { return name; }

    // The next bytes, at most as many; 0 at the end of this file, or when the reading was stopped.
    // Waits for at least one. Throws std::system_error.
    std::size_t Read(char* to, std::size_t size);

    // Ends the reading, a wait too. Thread-safe.
    void Stop() const;
    // Whether Read has answered 0 because the end was wanted.
    bool WasStopped() const { return wasStopped; }

    // Of all files together; 0: not known.
    static std::size_t TotalSize(const std::vector<std::string>& paths);

  private:
    void Close();
    bool WaitForBytes();

    const std::vector<std::string> paths;
    const int endDescriptor;
    const int stopDescriptor;
    std::size_t next = 0;
    int descriptor = -1;
    bool owned = false;
    bool mayBlock = false;
    bool wasStopped = false;
    std::string name;
};

}  // namespace Brantel::Tool
