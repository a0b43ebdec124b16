// The record of a chunk written to memory and read from it, beside a copy of as many bytes, in
// turn, in one run.
#include "Bench/Comparison.h"

#include <libProtocolX/DataChunk.h>

#include <cstring>
#include <exception>
#include <iostream>
#include <stdexcept>
#include <vector>

namespace Brantel::Bench {
namespace {

constexpr int rounds = 41;
constexpr int calls = 100;

using Bytes = std::vector<unsigned char>;

class RecordCase {
  public:
    explicit RecordCase(std::size_t size) {
        chunk.SetProperty("format", "a property");
        chunk.SetData("data", std::string(size, 'x'));
        record.resize(chunk.GetSizeOnFile());
        written.resize(record.size());
        chunk.Write(record.data());
    }

    void Measure(Report& report, const std::string& name, double goal) {
        const auto turn = [](const auto& call) {
            return [call] {
                return SecondsOf([call] {
                    for (int i = 0; i < calls; ++i) {
                        call();
                    }
                });
            };
        };
        const Turn copying =
            turn([this] { std::memcpy(written.data(), record.data(), record.size()); });
        Tell(report, "write " + name,
             TakeTurns(rounds, copying, turn([this] { chunk.Write(written.data()); })), goal);
        const Turn checked =
            turn([this] { Check(chunk.TryWrite(written.data(), written.size())); });
        Tell(report, "write, checked " + name, TakeTurns(rounds, copying, checked), goal);
        const Turn reading =
            turn([this] { Check(read.TryReadFrom(record.data(), record.size())); });
        Tell(report, "read, checked " + name, TakeTurns(rounds, copying, reading), goal);
    }

  private:
    void Check(unsigned long size) const {
        if (size != record.size()) {
            throw std::runtime_error("A record was not read or written");
        }
    }
    void Tell(Report& report, const std::string& name, const Medians& seconds, double goal) const {
        report.AtLeast(name, Microseconds(seconds.ours / calls), Microseconds(seconds.base / calls),
                       seconds.base / seconds.ours, goal);
    }

    ProtocolX::DataChunk chunk;
    ProtocolX::DataChunk read;
    Bytes record;
    Bytes written;
};

void Run() {
    constexpr std::size_t mebi = std::size_t{1} << 20U;
    Report report;
    RecordCase(mebi).Measure(report, "1 MiB", 0.8);
    report.End();
}

}  // namespace
}  // namespace Brantel::Bench

int main() {
    try {
        Brantel::Bench::Run();
    } catch (const std::exception& error) {
        std::cerr << "RecordBench: " << error.what() << '\n';
        return 1;
    }
    return 0;
}
