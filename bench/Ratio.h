#pragma once

#include <benchmark/benchmark.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace bench {

/// A ratio to report after the run: the time of one benchmark over the time of
/// a reference measured in the same run, with the goal it must stay under.
struct Ratio {
    std::string subject;
    std::string reference;
    double goal;
};

/// Declares a ratio; use from a static initialiser next to the benchmarks.
bool declareRatio(const std::string& subject, const std::string& reference, double goal);

/// Declares an absolute goal: the benchmark's time an iteration must stay
/// under `seconds`.
bool declareLimit(const std::string& subject, double seconds);

/// Declares a check that is not a time, run after the benchmarks when the
/// benchmark `subject` ran: check returns the line to print and whether the
/// goal was met.
bool declareCheck(const std::string& subject, std::function<std::pair<std::string, bool>()> check);

/// Console output plus, at the end, one line a declared ratio:
/// "ratio <subject> / <reference> = <value> (goal < <goal>): ok|MISSED", one a
/// declared limit and one a declared check whose benchmarks ran.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override;
    void Finalize() override;

    /// Number of ratios and limits that missed their goal.
    int missed() const { return _missed; }

private:
    std::vector<std::pair<std::string, double>> _times;
    int _missed = 0;
};

}  // namespace bench
