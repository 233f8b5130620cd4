#include "Ratio.h"

#include <cstdio>

namespace bench {
namespace {

std::vector<Ratio>& ratios() {
    static std::vector<Ratio> declared;
    return declared;
}

}  // namespace

bool declareRatio(const std::string& subject, const std::string& reference, double goal) {
    ratios().push_back({subject, reference, goal});
    return true;
}

void RatioReporter::ReportRuns(const std::vector<Run>& runs) {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
        if (run.run_type == Run::RT_Iteration && !run.error_occurred) {
            _times.emplace_back(run.benchmark_name(), run.GetAdjustedRealTime());
        }
    }
}

void RatioReporter::Finalize() {
    ConsoleReporter::Finalize();
    auto timeOf = [this](const std::string& name) {
        for (const auto& [runName, time] : _times) {
            if (runName == name) {
                return time;
            }
        }
        return -1.0;
    };
    for (const Ratio& ratio : ratios()) {
        const double subject = timeOf(ratio.subject);
        const double reference = timeOf(ratio.reference);
        if (subject < 0 || reference <= 0) {
            continue;
        }
        const double value = subject / reference;
        const bool ok = value < ratio.goal;
        _missed += ok ? 0 : 1;
        std::printf("ratio %s / %s = %.3f (goal < %.2f): %s\n", ratio.subject.c_str(),
                    ratio.reference.c_str(), value, ratio.goal, ok ? "ok" : "MISSED");
    }
}

}  // namespace bench
