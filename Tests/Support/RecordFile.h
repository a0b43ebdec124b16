#pragma once

#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <string>
#include <system_error>

namespace Brantel::Tests {

// A temporary file without a name that holds given bytes; its position is at the start.
class RecordFile {
  public:
    explicit RecordFile(const std::string& bytes = {}) : file(std::tmpfile()) {
        if (file == nullptr ||
            pwrite64(Get(), bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) {
            throw std::system_error(errno, std::generic_category(), "temporary file");
        }
    }
    RecordFile(const RecordFile&) = delete;
    RecordFile& operator=(const RecordFile&) = delete;
    ~RecordFile() { std::fclose(file); }

    int Get() const { return fileno(file); }

    off64_t Position() const { return lseek64(Get(), 0, SEEK_CUR); }
    void Seek(off64_t position) const { lseek64(Get(), position, SEEK_SET); }
    void Resize(off64_t size) const {
        if (ftruncate64(Get(), size) != 0) {
            throw std::system_error(errno, std::generic_category(), "resize a temporary file");
        }
    }

  private:
    std::FILE* file;
};

// A chunk record field after field, for records that no chunk writes.
class RecordBytes {
  public:
    RecordBytes& Number(std::uint64_t number) {
        bytes.append(reinterpret_cast<const char*>(&number), sizeof(number));
        return *this;
    }
    RecordBytes& Text(const std::string& text) {
        bytes += text;
        return *this;
    }
    RecordBytes& Entry(const std::string& key, const std::string& value) {
        return Number(key.size()).Text(key).Number(value.size()).Text(value);
    }

    const std::string& Get() const { return bytes; }
    const unsigned char* Data() const {
        return reinterpret_cast<const unsigned char*>(bytes.data());
    }

  private:
    std::string bytes;
};

}  // namespace Brantel::Tests
