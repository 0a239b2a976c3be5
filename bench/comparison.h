/**
 * @file comparison.h
 * @brief Measures two ways to do the same in interleaved rounds of one run, and compares their
 *   medians.
 */
#ifndef COMPARISON_H
#define COMPARISON_H

#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <string>
#include <vector>

/** "name bare" and "name" are registered benchmarks; the second may cost this much more. */
struct Comparison {
    std::string name;
    double boundNs;
    double boundPercent = 0;  // of the bare one; where above 0, instead of boundNs
};

/** Prints as usual, and keeps the medians, in processor time: others may use the machine. */
class MedianKeeper : public benchmark::ConsoleReporter {
public:
    MedianKeeper() : ConsoleReporter(OO_None) {}

    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs) {
            failed = failed || run.error_occurred;
            if (run.aggregate_name == "median") {
                medians[run.run_name.function_name] = run.GetAdjustedCPUTime();
            }
        }
    }

    std::map<std::string, double> medians;
    bool failed = false;
};

inline bool Compare(const MedianKeeper& kept, const std::vector<Comparison>& comparisons) {
    bool within = !kept.failed;
    std::printf("\n%-32s %10s %10s %10s %10s\n", "medians, ns", "bare", "whole", "own", "bound");
    for (const Comparison& comparison : comparisons) {
        const double bare = kept.medians.at(comparison.name + " bare");
        const double whole = kept.medians.at(comparison.name);
        const double bound =
            comparison.boundPercent > 0 ? bare * comparison.boundPercent / 100 : comparison.boundNs;
        within = within && whole - bare <= bound;
        std::printf("%-32s %10.1f %10.1f %10.1f %10.1f\n", comparison.name.c_str(), bare, whole,
                    whole - bare, bound);
    }
    std::puts(within ? "\nAll within their bounds." : "\nA bound is exceeded.");
    return within;
}

/** Runs what is registered; the exit status says whether all stay within their bounds. */
inline int RunComparisons(int argc, char** argv, const std::vector<Comparison>& comparisons) {
    std::vector<char*> arguments(argv, argv + argc);
    char interleave[] = "--benchmark_enable_random_interleaving=true";
    char repeat[] = "--benchmark_repetitions=15";
    char shorten[] = "--benchmark_min_time=0.02";
    char medians[] = "--benchmark_display_aggregates_only=true";
    arguments.insert(arguments.begin() + 1, {interleave, repeat, shorten, medians});
    int count = static_cast<int>(arguments.size());
    benchmark::Initialize(&count, arguments.data());
    if (benchmark::ReportUnrecognizedArguments(count, arguments.data())) return 2;

    MedianKeeper keeper;
    benchmark::RunSpecifiedBenchmarks(&keeper);
    return Compare(keeper, comparisons) ? 0 : 1;
}

#endif  // COMPARISON_H
