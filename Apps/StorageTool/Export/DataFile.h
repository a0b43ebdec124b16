#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace Brantel::Tool {

// A regular file, open until its end; closed by the destructor. Failures are std::system_error with
// the path. One thread at a time.
class DataFile {
  public:
    // An existing file. Throws std::runtime_error when it is no regular file.
    static DataFile OpenToRead(const std::string& path);
    static DataFile OpenToChange(const std::string& path);
    // A new file; an existing one is an error.
    static DataFile Create(const std::string& path);

    // Takes an open descriptor over; `name` stands for its path.
    DataFile(int descriptor, std::string name);
    DataFile(DataFile&& other) noexcept;
    DataFile& operator=(DataFile&&) = delete;
    DataFile(const DataFile&) = delete;
    DataFile& operator=(const DataFile&) = delete;
    ~DataFile();

    const std::string& Path() const { return path; }
    std::uint64_t Size() const;

    // The bytes from `place` on: `size` of them, or fewer at the end of the file. Returns how many.
    std::size_t Read(std::uint64_t place, char* to, std::size_t size) const;
    // All of them; throws std::runtime_error when the file ends before.
    void ReadAll(std::uint64_t place, char* to, std::size_t size) const;
    void Write(std::uint64_t place, std::string_view bytes) const;
    // Ends the file at `size`.
    void Truncate(std::uint64_t size) const;
    // What was written lasts when this returns, the file's entry in its folder included.
    void Flush() const;
    // Keeps other programs that do the same from changing the file meanwhile; throws
    // std::runtime_error when one does.
    void Lock() const;

  private:
    [[noreturn]] void Fail(const char* what) const;

    int descriptor;
    std::string path;
};

}  // namespace Brantel::Tool
