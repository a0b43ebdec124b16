#include "Conformance/FaultMatrix.h"

#include "Support/ProcessState.h"
#include "Support/Waiting.h"

#include <exception>
#include <iomanip>
#include <sstream>
#include <stdexcept>
#include <thread>
#include <utility>

namespace BrantelStorageApi {

namespace {

using Brantel::Tests::Eventually;
using Brantel::Tests::OpenDescriptors;
using Brantel::Tests::RunningThreads;

constexpr int nameWidth = 36;
constexpr int cellWidth = 13;

const OperationRow* FindRow(const std::string& name) {
    for (const OperationRow& row : OperationTable()) {
        if (row.name == name) {
            return &row;
        }
    }
    return nullptr;
}

std::string WithoutPrefix(const std::string& name) {
    const std::string prefix = "OPERATION_";
    return name.starts_with(prefix) ? name.substr(prefix.size()) : name;
}

}  // namespace

std::vector<MatrixOperation> MatrixOperations() {
    std::vector<MatrixOperation> operations;
    const auto& numbers = *Operation_descriptor();
    for (int i = 0; i < numbers.value_count(); ++i) {
        const std::string name = WithoutPrefix(numbers.value(i)->name());
        const auto operation = static_cast<Operation>(numbers.value(i)->number());
        const OperationRow* const row = FindRow(name);
        if (row == nullptr && operation != CLOSE_CONNECTION) {
            throw std::logic_error("The table of operations lacks " + name);
        }
        operations.push_back({operation, name, row});
    }
    return operations;
}

const OperationRow& RowOf(Operation operation) {
    const OperationRow* const row = FindRow(WithoutPrefix(Operation_Name(operation)));
    if (row == nullptr) {
        throw std::logic_error("No row for the operation " + std::to_string(operation));
    }
    return *row;
}

void Cell::Expect(bool holds, const std::string& what) {
    ++checks;
    if (!holds) {
        failures.push_back(what + (transport == Transport::Unix ? " (Unix)" : " (TCP)"));
    }
}

void Cell::ExpectEqual(const std::string& found, const std::string& wanted,
                       const std::string& what) {
    Expect(found == wanted, what + ": found \"" + found + "\", not \"" + wanted + "\"");
}

FaultMatrix::FaultMatrix(std::string title, std::span<const Fault> faults)
    : title(std::move(title)),
      faults(faults),
      operations(MatrixOperations()),
      cells(operations.size() * faults.size()) {}

Cell& FaultMatrix::At(std::size_t operation, std::size_t fault) {
    return cells.at(operation * faults.size() + fault);
}

const Cell& FaultMatrix::At(std::size_t operation, std::size_t fault) const {
    return cells.at(operation * faults.size() + fault);
}

void FaultMatrix::Run() {
    // With the program's first thread a sanitizer starts one of its own, which stays.
    std::thread([] {}).join();
    for (std::size_t operation = 0; operation < operations.size(); ++operation) {
        for (std::size_t fault = 0; fault < faults.size(); ++fault) {
            Cell& cell = At(operation, fault);
            for (const Transport transport : {Transport::Unix, Transport::Tcp}) {
                cell.SetTransport(transport);
                const std::size_t descriptors = OpenDescriptors();
                const std::size_t threads = RunningThreads();
                try {
                    faults[fault].meet(operations[operation], transport, cell);
                } catch (const std::exception& error) {
                    cell.Expect(false, std::string("thrown: ") + error.what());
                }
                cell.Expect(OpenDescriptors() == descriptors, "a descriptor is left over");
                // The system lists a thread for a moment after it was joined.
                cell.Expect(Eventually([&] { return RunningThreads() == threads; }),
                            "a thread is left over");
            }
        }
    }
}

std::string FaultMatrix::Text() const {
    std::ostringstream text;
    text << title << "\n\n" << std::left;
    for (const Fault& fault : faults) {
        text << "  " << std::setw(cellWidth) << fault.name << fault.meaning << '\n';
    }
    text << '\n' << std::setw(nameWidth) << "operation" << std::right;
    for (const Fault& fault : faults) {
        text << std::setw(cellWidth) << fault.name;
    }
    text << '\n';
    for (std::size_t operation = 0; operation < operations.size(); ++operation) {
        text << std::left << std::setw(nameWidth) << operations[operation].name << std::right;
        for (std::size_t fault = 0; fault < faults.size(); ++fault) {
            const Cell& cell = At(operation, fault);
            text << std::setw(cellWidth)
                 << (cell.Failures().empty() ? std::to_string(cell.Checks()) : "FAILED");
        }
        text << '\n';
    }
    text << '\n'
         << Cells() << " cells, " << EmptyCells() << " of them empty; " << Checks() << " checks\n";
    return text.str();
}

std::string FaultMatrix::Failures() const {
    std::string text;
    for (std::size_t operation = 0; operation < operations.size(); ++operation) {
        for (std::size_t fault = 0; fault < faults.size(); ++fault) {
            for (const std::string& failure : At(operation, fault).Failures()) {
                text += operations[operation].name + ", " + faults[fault].name + ": " + failure;
                text += '\n';
            }
        }
    }
    return text;
}

// The two that watch over descriptors and threads, over each transport, say nothing of the fault.
std::size_t FaultMatrix::EmptyCells() const {
    constexpr int checksOfEveryCell = 4;
    std::size_t empty = 0;
    for (const Cell& cell : cells) {
        empty += cell.Checks() <= checksOfEveryCell ? 1 : 0;
    }
    return empty;
}

long FaultMatrix::Checks() const {
    long checks = 0;
    for (const Cell& cell : cells) {
        checks += cell.Checks();
    }
    return checks;
}

}  // namespace BrantelStorageApi
