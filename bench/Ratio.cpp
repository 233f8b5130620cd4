#include "Ratio.h"

#include <cstdio>

namespace bench {
namespace {

std::vector<Ratio>& ratios() {
    static std::vector<Ratio> declared;
    return declared;
}

std::vector<std::pair<std::string, double>>& limits() {
    static std::vector<std::pair<std::string, double>> declared;
    return declared;
}

std::vector<std::pair<std::string, std::function<std::pair<std::string, bool>()>>>& checks() {
    static std::vector<std::pair<std::string, std::function<std::pair<std::string, bool>()>>>
        declared;
    return declared;
}

}  // namespace

bool declareCheck(const std::string& subject, std::function<std::pair<std::string, bool>()> check) {
    checks().emplace_back(subject, std::move(check));
    return true;
}

bool declareLimit(const std::string& subject, double seconds) {
    limits().emplace_back(subject, seconds);
    return true;
}

bool declareRatio(const std::string& subject, const std::string& reference, double goal) {
    ratios().push_back({subject, reference, goal});
    return true;
}

void RatioReporter::ReportRuns(const std::vector<Run>& runs) {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
        if (run.run_type == Run::RT_Iteration && !run.error_occurred) {
            const double seconds =
                run.GetAdjustedRealTime() / benchmark::GetTimeUnitMultiplier(run.time_unit);
            _times.emplace_back(run.benchmark_name(), seconds);
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
        std::printf("ratio %s / %s = %.3g (goal < %.2f): %s\n", ratio.subject.c_str(),
                    ratio.reference.c_str(), value, ratio.goal, ok ? "ok" : "MISSED");
    }
    for (const auto& [subject, limit] : limits()) {
        const double time = timeOf(subject);
        if (time < 0) {
            continue;
        }
        const bool ok = time < limit;
        _missed += ok ? 0 : 1;
        std::printf("limit %s = %.3f ms (goal < %.3f ms): %s\n", subject.c_str(), time * 1e3,
                    limit * 1e3, ok ? "ok" : "MISSED");
    }
    for (const auto& [subject, check] : checks()) {
        if (timeOf(subject) < 0) {
            continue;
        }
        const auto [line, ok] = check();
        _missed += ok ? 0 : 1;
        std::printf("check %s: %s: %s\n", subject.c_str(), line.c_str(), ok ? "ok" : "MISSED");
    }
}

}  // namespace bench
