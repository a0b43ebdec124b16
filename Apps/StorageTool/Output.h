#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>

namespace Brantel::Tool {

class Interrupts;

// The end was requested, and nobody takes what is written.
class OutputBlocked : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// Nobody reads the output any more.
class OutputClosed : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// What the tool itself prints, on a descriptor of its own: the library prints diagnostics on the
// standard output, which is made to lead to the standard error. Collected, and written when much
// has come together, at each line on a terminal, and by Flush. Not for several threads at once.
class Output {
  public:
    // Takes the standard output over for the life of the program. Standard descriptors that are
    // closed are opened to /dev/null first, so that nothing else gets their numbers.
    static Output TakeStandardOutput();

    // Owns the descriptor.
    explicit Output(int descriptor);
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;
    Output(Output&& other) noexcept;
    Output& operator=(Output&&) = delete;
    // Closes without writing what is left: Flush reports failures.
    ~Output();

    // From now on the request to end cuts off the writing of what nobody takes; null: no more.
    // Borrowed.
    void SetInterrupts(Interrupts* newInterrupts) { interrupts = newInterrupts; }

    // Throw OutputClosed when the reader is gone, OutputBlocked when the end was requested and
    // nothing was taken for a moment, std::system_error when writing fails.
    void Write(std::string_view bytes);
    void Line(std::string_view text);
    void Flush();

    bool IsTerminal() const { return isTerminal; }
    int Descriptor() const { return descriptor; }

  private:
    void WriteAll(std::string_view bytes) const;

    int descriptor = -1;
    bool isTerminal = false;
    Interrupts* interrupts = nullptr;
    std::string collected;
};

}  // namespace Brantel::Tool
