#pragma once

#include <iostream>
#include <sstream>
#include <string>

namespace Brantel::Tests {

// Takes the place of std::cout while it lives and keeps what had been written at the last flush.
class FlushedOutput {
  public:
    FlushedOutput() : former(std::cout.rdbuf(&buffer)) {}
    ~FlushedOutput() { std::cout.rdbuf(former); }
    FlushedOutput(const FlushedOutput&) = delete;
    FlushedOutput& operator=(const FlushedOutput&) = delete;

    const std::string& Get() const { return buffer.flushed; }

  private:
    struct Buffer : public std::stringbuf {
        std::string flushed;

      protected:
        int sync() override {
            flushed = str();
            return 0;
        }
    };

    Buffer buffer;
    std::streambuf* former;
};

}  // namespace Brantel::Tests
