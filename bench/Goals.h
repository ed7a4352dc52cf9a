// Speed goals of a benchmark program, printed once at its end for the table of goals that
// scripts/run-bench builds from every program's output.
#pragma once

#include <cstdio>
#include <map>
#include <string>

namespace bench {

struct Goal {
    double measured;
    const char* op;  // "<=" or ">="
    double target;
};

/// Goals by metric; a benchmark run again (Google Benchmark repeats short runs) replaces its
/// earlier figure, so the last, longest run is the one reported.
inline std::map<std::string, Goal>& goals() {
    static std::map<std::string, Goal> all;
    return all;
}

inline void recordGoal(const std::string& metric, double measured, const char* op, double target) {
    goals()[metric] = {measured, op, target};
}

/// One line per goal: goal|<metric>|<measured>|<op>|<target>.
inline void printGoals() {
    for (const auto& [metric, goal] : goals())
        std::printf("goal|%s|%.3f|%s|%.2f\n", metric.c_str(), goal.measured, goal.op, goal.target);
    std::fflush(stdout);
}

}  // namespace bench

/// BENCHMARK_MAIN, then the goal lines.
#define BENCHMARK_MAIN_WITH_GOALS()                                 \
    int main(int argc, char** argv) {                               \
        ::benchmark::Initialize(&argc, argv);                       \
        if (::benchmark::ReportUnrecognizedArguments(argc, argv)) return 1; \
        ::benchmark::RunSpecifiedBenchmarks();                      \
        ::benchmark::Shutdown();                                    \
        ::bench::printGoals();                                      \
        return 0;                                                   \
    }
