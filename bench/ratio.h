/*
 * Ratios between two ways of doing the same.
 *
 * The sides of a comparison take turns, a few milliseconds of processor time each, and their order changes from round
 * to round: a machine that changes its speed every second, as virtual ones do, then does so for both. Each round gives
 * a ratio, and the median of these is the result. (Google Benchmark runs one side's repetitions in a row, or both
 * sides' at random; on such a machine its medians compare one speed with the other.)
 */
#ifndef BENCH_RATIO_H
#define BENCH_RATIO_H

#include <functional>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

namespace bench {

struct Side {
    std::string what;
    std::function<void()> run;
    std::function<void()> prepare{}; /* before each run, not timed */
};

struct Comparison {
    std::string name;              /* what is measured */
    std::function<void()> arrange; /* once: fills tables, and ends the program when the sides disagree */
    Side subject;                  /* the plug-in */
    Side peer;                     /* what it is held against */
    double items = 1;              /* rows, or whatever one run goes through, for times per item */
    std::optional<double> goal{};  /* the ratio may be this much */
};

struct Effort {
    int rounds;
    double seconds; /* of each side in a round; a side runs at least once */
};

/* Times a comparison: name, median times per item in nanoseconds, ratio with its quartiles, goal. */
nlohmann::ordered_json measure(const Comparison& comparison, const Effort& effort);

}  // namespace bench

#endif
