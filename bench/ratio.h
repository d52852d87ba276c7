/* Runs a program's benchmarks, five repetitions unless told otherwise, and prints ratios of their medians. */
#ifndef MIX_BENCH_RATIO_H
#define MIX_BENCH_RATIO_H

#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <string>
#include <vector>

namespace mixbench
{

/* One line of the result: what is measured, beside what, and the bound that it is held to (0: none). */
struct ratio {
    const char *measured;
    const char *beside;
    double bound;
    bool at_least = false; /* the bound is a lower one, of beside / measured: how many times as fast */
};

/* A bound on one time, in nanoseconds. */
struct limit {
    const char *measured;
    double nanoseconds;
    double items = 1; /* the time is divided by these, e.g. rows */
    const char *item = "a call";
};

class median_reporter : public benchmark::ConsoleReporter
{
  public:
    median_reporter() : ConsoleReporter(OO_Tabular) {}

    void ReportRuns(const std::vector<Run> &runs) override
    {
        for (const Run &run : runs)
            if (run.run_type == Run::RT_Aggregate && run.aggregate_name == "median")
                medians[run.run_name.function_name +
                        (run.run_name.args.empty() ? "" : "/" + run.run_name.args) +
                        (run.run_name.time_type.empty() ? "" : "/" + run.run_name.time_type)] =
                    run.GetAdjustedRealTime() / benchmark::GetTimeUnitMultiplier(run.time_unit) * 1e9;
        ConsoleReporter::ReportRuns(runs);
    }

    std::map<std::string, double> medians; /* nanoseconds of one iteration */
};

inline void print_verdict(bool met)
{
    std::printf("%s\n", met ? "" : "   NOT MET");
}

inline int run(int argc, char **argv, const std::vector<ratio> &ratios, const std::vector<limit> &limits = {})
{
    std::vector<char *> words(argv, argv + argc);
    char repetitions[] = "--benchmark_repetitions=5",
         aggregates[] = "--benchmark_report_aggregates_only=true";
    words.insert(words.begin() + 1, {repetitions, aggregates});
    int count = static_cast<int>(words.size());
    benchmark::Initialize(&count, words.data());
    median_reporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);

    std::printf("\n");
    auto &medians = reporter.medians;
    for (const ratio &each : ratios) {
        if (!medians.contains(each.measured) || !medians.contains(each.beside))
            continue;
        const double value = each.at_least ? medians[each.beside] / medians[each.measured]
                                           : medians[each.measured] / medians[each.beside];
        std::printf("%-44s %s %-36s %8.3f", each.measured, each.at_least ? "faster than" : "beside",
                    each.beside, value);
        if (each.bound != 0)
            std::printf("   (%s %.2f)", each.at_least ? "at least" : "at most", each.bound);
        print_verdict(each.bound == 0 || (each.at_least ? value >= each.bound : value <= each.bound));
    }
    for (const limit &each : limits) {
        if (!medians.contains(each.measured))
            continue;
        const double value = medians[each.measured] / each.items;
        std::printf("%-44s %8.2f ns %s   (at most %.0f ns)", each.measured, value, each.item,
                    each.nanoseconds);
        print_verdict(value <= each.nanoseconds);
    }
    return 0;
}

} // namespace mixbench

#endif
