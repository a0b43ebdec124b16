#pragma once

#include "Support/OperationTable.h"

#include <cstddef>
#include <span>
#include <string>
#include <vector>

namespace BrantelStorageApi {

enum class Transport { Unix, Tcp };

// One operation of the protocol as the matrix sees it.
struct MatrixOperation {
    Operation operation;
    std::string name;         // without its prefix
    const OperationRow* row;  // null for CLOSE_CONNECTION, which no stub calls and nobody answers
};

// All operations that the protocol names, in the order of their numbers. Throws std::logic_error
// when the table of operations lacks one.
std::vector<MatrixOperation> MatrixOperations();

// The row of this operation.
const OperationRow& RowOf(Operation operation);

// What one operation did under one fault.
class Cell {
  public:
    void Expect(bool holds, const std::string& what);
    void ExpectEqual(const std::string& found, const std::string& wanted, const std::string& what);
    // What is noted from now on happened over this transport.
    void SetTransport(Transport now) { transport = now; }

    int Checks() const { return checks; }
    const std::vector<std::string>& Failures() const { return failures; }

  private:
    Transport transport = Transport::Unix;
    int checks = 0;
    std::vector<std::string> failures;
};

// One thing that goes wrong: meets an operation over a transport and notes what came of it.
struct Fault {
    const char* name;  // at most 12 letters, the head of its column
    const char* meaning;
    void (*meet)(const MatrixOperation& operation, Transport transport, Cell& cell);
};

// Every operation against every fault, over both transports. Each cell also watches that no
// descriptor and no thread is left over.
class FaultMatrix {
  public:
    FaultMatrix(std::string title, std::span<const Fault> faults);

    void Run();

    // The faults with their meanings, then a line for each operation: how many checks each cell
    // made, or "FAILED".
    std::string Text() const;
    // One line for each check that failed.
    std::string Failures() const;
    std::size_t Cells() const { return cells.size(); }
    std::size_t EmptyCells() const;
    long Checks() const;

  private:
    Cell& At(std::size_t operation, std::size_t fault);
    const Cell& At(std::size_t operation, std::size_t fault) const;

    const std::string title;
    const std::span<const Fault> faults;
    const std::vector<MatrixOperation> operations;
    std::vector<Cell> cells;
};

}  // namespace BrantelStorageApi
