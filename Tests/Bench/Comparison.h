#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace Brantel::Bench {

// What one turn cost: seconds, or bytes.
using Turn = std::function<double()>;

// The median of each one's turns: A B C A B C ..., `rounds` times each, after one unmeasured turn.
std::vector<double> TakeTurns(int rounds, const std::vector<Turn>& turns);

struct Medians {
    double base = 0;
    double ours = 0;
};

constexpr int leastRounds = 5;

// The same with a baseline, which comes first.
Medians TakeTurns(int rounds, const Turn& base, const Turn& ours);

// The median of this many calls.
double MedianOf(int rounds, const Turn& turn);

// The seconds that a piece of work takes.
double SecondsOf(const std::function<void()>& work);

// The table that a benchmark prints, a line as soon as it is known.
class Report {
  public:
    Report();

    // A ratio that should be at least, or at most, the goal. The texts say what was measured and
    // what the baseline was.
    void AtLeast(const std::string& name, const std::string& ours, const std::string& base,
                 double ratio, double goal);
    void AtMost(const std::string& name, const std::string& ours, const std::string& base,
                double ratio, double goal);
    // Told without a goal, and without a baseline.
    void Note(const std::string& name, const std::string& ours, const std::string& base,
              double ratio);
    void Value(const std::string& name, const std::string& ours);
    // How many goals there were and how many were missed.
    void End() const;

  private:
    void Line(const std::string& name, const std::string& ours, const std::string& base,
              double ratio, const std::string& goal);

    int goals = 0;
    int missed = 0;
};

std::string Rate(double count, double seconds, const char* unit);
std::string MebibytesPerSecond(double bytes, double seconds);
std::string Microseconds(double seconds);
std::string Milliseconds(double seconds);
std::string Mebibytes(double bytes);

}  // namespace Brantel::Bench
