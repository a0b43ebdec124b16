#include "Bench/StoreTable.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <nlohmann/json.hpp>

namespace Brantel::Bench {

namespace {

constexpr double mebi = 1048576;
constexpr double micro = 1e6;

double Median(std::vector<double> values) {
    if (values.empty()) {
        return NAN;
    }
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

// NaN where there are too few values to tell.
double Quantile(std::vector<float>& values, double part) {
    constexpr double least = 5;
    const auto count = static_cast<double>(values.size());
    if (values.empty() || (part > 0.5 && count * (1 - part) < least)) {
        return NAN;
    }
    const auto place = values.begin() + static_cast<std::ptrdiff_t>(part * (count - 1));
    std::nth_element(values.begin(), place, values.end());
    return static_cast<double>(*place);
}

std::string Number(double value) {
    if (std::isnan(value)) {
        return "-";
    }
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%.*f", value >= 1000 ? 0 : value >= 10 ? 1 : 2, value);
    return text.data();
}

bool IsBare(const std::string& name) {
    return name.starts_with("bare");
}

bool IsOurs(const std::string& name) {
    return name.starts_with("brantel");
}

// What one round says of a workload: the less the better.
double CostOf(const Workload& workload, const Sample& round) {
    if (workload.kind == Workload::Kind::ManyConnections) {
        return round.seconds / round.calls;
    }
    std::vector<float> times = round.microseconds;
    return Quantile(times, 0.5);
}

}  // namespace

struct StoreTable::Row {
    std::string name;
    double rate = 0;
    double mebibytes = 0;  // a second
    double median = 0;     // microseconds, as the next
    double p99 = 0;
    double p999 = 0;
    double clientCpu = 0;
    double serverCpu = 0;
    double ratio = NAN;  // ours to this one
};

struct StoreTable::Verdict {
    std::string against;
    double ratio = 0;
    bool atLeast = false;
    double limit = 0;
    bool isMet = false;

    std::string Text() const {
        return "goal: " + against + " " + Number(ratio) + (atLeast ? " >= " : " <= ") +
               Number(limit) + (isMet ? " met" : " MISSED");
    }
};

StoreTable::Row StoreTable::RowOf(const Workload& workload, const Measured& ours,
                                  const Measured& other) {
    Sample all;
    std::vector<double> ratios;
    for (std::size_t i = 0; i < other.rounds.size(); ++i) {
        all.Add(other.rounds[i]);
        const double cost = CostOf(workload, other.rounds[i]);
        const double ourCost = CostOf(workload, ours.rounds[i]);
        const bool isRate = workload.kind == Workload::Kind::ManyConnections;
        ratios.push_back(isRate ? cost / ourCost : ourCost / cost);
    }
    Row row;
    row.name = other.name;
    row.rate = all.calls / all.seconds;
    row.mebibytes = row.rate * static_cast<double>(workload.task.size) / mebi;
    row.median = Quantile(all.microseconds, 0.5);
    row.p99 = Quantile(all.microseconds, 0.99);
    row.p999 = Quantile(all.microseconds, 0.999);
    row.clientCpu = all.clientSeconds / all.calls * micro;
    row.serverCpu = all.serverSeconds / all.calls * micro;
    row.ratio = &ours == &other ? NAN : Median(ratios);
    return row;
}

std::vector<StoreTable::Verdict> StoreTable::Judge(const Workload& workload,
                                                   const std::vector<Row>& rows) {
    const bool atLeast = workload.kind == Workload::Kind::ManyConnections;
    std::vector<Verdict> verdicts;
    const auto judge = [&](const std::string& against, double value, double limit) {
        const bool isMet = atLeast ? value >= limit : value <= limit;
        verdicts.push_back({against, value, atLeast, limit, isMet});
        if (isMet) {
            ++met;
        } else {
            missed.push_back(workload.name + ", " + verdicts.back().Text());
        }
    };
    const auto strictest = [&](auto isMeant) {
        const Row* found = nullptr;
        for (const Row& row : rows) {
            const bool isStricter =
                found == nullptr || (atLeast ? row.ratio < found->ratio : row.ratio > found->ratio);
            if (isMeant(row) && !std::isnan(row.ratio) && isStricter) {
                found = &row;
            }
        }
        return found;
    };
    for (const Goal& goal : workload.goals) {
        if (goal.against == "time") {
            judge("median in us", rows.front().median, goal.limit);
        } else if (goal.against == "best") {
            if (const Row* best = strictest(
                    [](const Row& row) { return !IsBare(row.name) && !IsOurs(row.name); })) {
                judge("the best peer, " + best->name + ",", best->ratio, goal.limit);
            }
        } else if (goal.against == "bare") {
            if (const Row* bare = strictest([](const Row& row) { return IsBare(row.name); })) {
                judge(bare->name, bare->ratio, goal.limit);
            }
        } else {
            for (const Row& row : rows) {
                if (row.name.starts_with(goal.against)) {
                    judge(row.name, row.ratio, goal.limit);
                }
            }
        }
    }
    return verdicts;
}

void StoreTable::PrintText(const Workload& workload, const std::vector<Row>& rows,
                           const std::vector<Verdict>& verdicts,
                           const std::vector<std::pair<std::string, std::string>>& skipped) const {
    std::printf("\n%s: %s\n", workload.name.c_str(), workload.about.c_str());
    const bool isRate = workload.kind == Workload::Kind::ManyConnections;
    std::printf("  %-14s %10s %9s %9s %9s %9s %9s %9s %9s\n", "", "ops/s", "MiB/s", "p50 us",
                "p99 us", "p99.9 us", "client us", "server us", isRate ? "rate x" : "time x");
    for (const Row& row : rows) {
        std::printf("  %-14s %10s %9s %9s %9s %9s %9s %9s %9s\n", row.name.c_str(),
                    Number(row.rate).c_str(),
                    Number(row.mebibytes > 0 ? row.mebibytes : NAN).c_str(),
                    Number(row.median).c_str(), Number(row.p99).c_str(), Number(row.p999).c_str(),
                    Number(row.clientCpu).c_str(), Number(row.serverCpu).c_str(),
                    Number(row.ratio).c_str());
    }
    for (const auto& [name, why] : skipped) {
        std::printf("  %-14s SKIP: %s\n", name.c_str(), why.c_str());
    }
    for (const Verdict& verdict : verdicts) {
        std::printf("  %s\n", verdict.Text().c_str());
    }
    std::fflush(stdout);
}

void StoreTable::PrintJson(const Workload& workload, const std::vector<Row>& rows,
                           const std::vector<Verdict>& verdicts,
                           const std::vector<std::pair<std::string, std::string>>& skipped) {
    const auto number = [](double value) {
        return std::isnan(value) ? nlohmann::json() : nlohmann::json(value);
    };
    nlohmann::json object{{"workload", workload.name}, {"about", workload.about}};
    for (const Row& row : rows) {
        object["rows"].push_back({{"name", row.name},
                                  {"operations_per_second", number(row.rate)},
                                  {"mebibytes_per_second", number(row.mebibytes)},
                                  {"p50_us", number(row.median)},
                                  {"p99_us", number(row.p99)},
                                  {"p999_us", number(row.p999)},
                                  {"client_cpu_us", number(row.clientCpu)},
                                  {"server_cpu_us", number(row.serverCpu)},
                                  {"ratio", number(row.ratio)}});
    }
    for (const Verdict& verdict : verdicts) {
        object["goals"].push_back({{"against", verdict.against},
                                   {"ratio", number(verdict.ratio)},
                                   {verdict.atLeast ? "at_least" : "at_most", verdict.limit},
                                   {"met", verdict.isMet}});
    }
    for (const auto& [name, why] : skipped) {
        object["skipped"].push_back({{"name", name}, {"why", why}});
    }
    std::printf("%s\n", object.dump().c_str());
    std::fflush(stdout);
}

void StoreTable::Add(const Workload& workload, const std::vector<Measured>& all,
                     const std::vector<std::pair<std::string, std::string>>& skipped) {
    std::vector<Row> rows;
    for (const Measured& one : all) {
        rows.push_back(RowOf(workload, all.front(), one));
    }
    for (const auto& [name, why] : skipped) {
        skips[name].first = why;
        ++skips[name].second;
    }
    const std::vector<Verdict> verdicts = Judge(workload, rows);
    if (asJson) {
        PrintJson(workload, rows, verdicts, skipped);
    } else {
        PrintText(workload, rows, verdicts, skipped);
    }
}

void StoreTable::End() const {
    std::FILE* const out = asJson ? stderr : stdout;
    std::fprintf(out, "\n%d goals met, %zu missed\n", met, missed.size());
    for (const std::string& text : missed) {
        std::fprintf(out, "  %s\n", text.c_str());
    }
    for (const auto& [name, skip] : skips) {
        std::fprintf(out, "SKIP %s in %d workloads: %s\n", name.c_str(), skip.second,
                     skip.first.c_str());
    }
}

}  // namespace Brantel::Bench
