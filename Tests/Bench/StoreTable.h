#pragma once

#include "Bench/StoreRounds.h"

#include <map>
#include <string>
#include <utility>
#include <vector>

namespace Brantel::Bench {

// What was measured of a workload: of each one, ours first, its rounds in turn with the others'.
struct Measured {
    std::string name;  // of the peer
    std::vector<Sample> rounds;
};

// Prints a table for each workload, and counts the goals.
class StoreTable {
  public:
    // With `asJson`, one line with an object for each workload instead of its table.
    explicit StoreTable(bool asJson) : asJson(asJson) {}

    void Add(const Workload& workload, const std::vector<Measured>& all,
             const std::vector<std::pair<std::string, std::string>>& skipped);

    // What was met, missed and skipped.
    void End() const;

  private:
    struct Row;
    struct Verdict;

    static Row RowOf(const Workload& workload, const Measured& ours, const Measured& other);
    std::vector<Verdict> Judge(const Workload& workload, const std::vector<Row>& rows);
    void PrintText(const Workload& workload, const std::vector<Row>& rows,
                   const std::vector<Verdict>& verdicts,
                   const std::vector<std::pair<std::string, std::string>>& skipped) const;
    static void PrintJson(const Workload& workload, const std::vector<Row>& rows,
                          const std::vector<Verdict>& verdicts,
                          const std::vector<std::pair<std::string, std::string>>& skipped);

    const bool asJson;
    int met = 0;
    std::vector<std::string> missed;
    std::map<std::string, std::pair<std::string, int>> skips;  // peer: why, how often
};

}  // namespace Brantel::Bench
