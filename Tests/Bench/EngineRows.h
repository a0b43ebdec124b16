#pragma once

#include <string>

namespace Brantel::Bench {

class Report;

// The groups of lines of EngineBench. Each works in a folder of its own that exists and is empty.
void MeasureAppends(Report& report, const std::string& folder);
void MeasureSmallAppends(Report& report, const std::string& folder);
void MeasureReads(Report& report, const std::string& folder);
void MeasureLookups(Report& report, const std::string& folder);
void MeasureRing(Report& report, const std::string& folder);
void MeasureMemory(Report& report, const std::string& folder);
void MeasureStart(Report& report, const std::string& folder);

}  // namespace Brantel::Bench
