#include "Bench/Comparison.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <vector>

namespace Brantel::Bench {

namespace {

constexpr double mebi = 1048576;

double Median(std::vector<double> values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

std::string Number(double value, const char* unit) {
    char text[64];
    const int digits = value >= 100 ? 0 : value >= 10 ? 1 : value >= 1 ? 2 : 3;
    std::snprintf(text, sizeof text, "%.*f %s", digits, value, unit);
    return text;
}

}  // namespace

Medians TakeTurns(int rounds, const Turn& base, const Turn& ours) {
    const std::vector<double> medians = TakeTurns(rounds, {base, ours});
    return {medians[0], medians[1]};
}

std::vector<double> TakeTurns(int rounds, const std::vector<Turn>& turns) {
    for (const Turn& turn : turns) {
        turn();
    }
    std::vector<std::vector<double>> costs(turns.size());
    for (int round = 0; round < rounds; ++round) {
        for (std::size_t i = 0; i < turns.size(); ++i) {
            costs[i].push_back(turns[i]());
        }
    }
    std::vector<double> medians;
    for (const std::vector<double>& mine : costs) {
        medians.push_back(Median(mine));
    }
    return medians;
}

double MedianOf(int rounds, const Turn& turn) {
    std::vector<double> costs;
    for (int round = 0; round < rounds; ++round) {
        costs.push_back(turn());
    }
    return Median(costs);
}

double SecondsOf(const std::function<void()>& work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

Report::Report() {
    std::printf("%-44s %16s %16s %8s %9s\n", "work", "ours", "baseline", "ratio", "goal");
}

void Report::Line(const std::string& name, const std::string& ours, const std::string& base,
                  double ratio, const std::string& goal) {
    std::printf("%-44s %16s %16s %8.3f %9s\n", name.c_str(), ours.c_str(), base.c_str(), ratio,
                goal.c_str());
    std::fflush(stdout);
}

void Report::AtLeast(const std::string& name, const std::string& ours, const std::string& base,
                     double ratio, double goal) {
    char text[32];
    std::snprintf(text, sizeof text, ">= %.2f%s", goal, ratio < goal ? "  missed" : "");
    ++goals;
    missed += ratio < goal ? 1 : 0;
    Line(name, ours, base, ratio, text);
}

void Report::AtMost(const std::string& name, const std::string& ours, const std::string& base,
                    double ratio, double goal) {
    char text[32];
    std::snprintf(text, sizeof text, "<= %.2f%s", goal, ratio > goal ? "  missed" : "");
    ++goals;
    missed += ratio > goal ? 1 : 0;
    Line(name, ours, base, ratio, text);
}

void Report::Note(const std::string& name, const std::string& ours, const std::string& base,
                  double ratio) {
    Line(name, ours, base, ratio, "");
}

void Report::Value(const std::string& name, const std::string& ours) {
    std::printf("%-44s %16s\n", name.c_str(), ours.c_str());
    std::fflush(stdout);
}

void Report::End() const {
    std::printf("%d of %d goals met, %d missed\n", goals - missed, goals, missed);
}

std::string Rate(double count, double seconds, const char* unit) {
    return Number(count / seconds, unit);
}

std::string MebibytesPerSecond(double bytes, double seconds) {
    return Number(bytes / mebi / seconds, "MiB/s");
}

std::string Microseconds(double seconds) {
    return Number(seconds * 1e6, "us");
}

std::string Milliseconds(double seconds) {
    return Number(seconds * 1e3, "ms");
}

std::string Mebibytes(double bytes) {
    return Number(bytes / mebi, "MiB");
}

}  // namespace Brantel::Bench
