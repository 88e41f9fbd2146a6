#include "bench/ratio.h"

#include <algorithm>
#include <cmath>
#include <ctime>

namespace bench {

namespace {

double processorSeconds() {
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

// Seconds of one run of a side, over that many runs.
double timeOf(const Side& side, int runs) {
    double seconds = 0;
    if (!side.prepare) {
        const double start = processorSeconds();
        for (int i = 0; i < runs; ++i) {
            side.run();
        }
        seconds = processorSeconds() - start;
    } else {
        for (int i = 0; i < runs; ++i) {
            side.prepare();
            const double start = processorSeconds();
            side.run();
            seconds += processorSeconds() - start;
        }
    }
    return seconds / runs;
}

int runsFor(const Side& side, double seconds) {
    const double one = timeOf(side, 1);
    return std::max(1, static_cast<int>(seconds / std::max(one, 1e-9)));
}

double quantile(std::vector<double> values, double share) {
    std::sort(values.begin(), values.end());
    return values[static_cast<size_t>(std::lround(share * static_cast<double>(values.size() - 1)))];
}

}  // namespace

nlohmann::ordered_json measure(const Comparison& comparison, const Effort& effort) {
    comparison.arrange();
    const int subjectRuns = runsFor(comparison.subject, effort.seconds);
    const int peerRuns = runsFor(comparison.peer, effort.seconds);
    std::vector<double> subject;
    std::vector<double> peer;
    std::vector<double> ratios;
    for (int round = 0; round < effort.rounds; ++round) {
        if (round % 2 == 0) {
            subject.push_back(timeOf(comparison.subject, subjectRuns));
        }
        peer.push_back(timeOf(comparison.peer, peerRuns));
        if (round % 2 != 0) {
            subject.push_back(timeOf(comparison.subject, subjectRuns));
        }
        ratios.push_back(subject.back() / peer.back());
    }
    const auto perItem = [&](const std::vector<double>& times) {
        return quantile(times, 0.5) * 1e9 / comparison.items;
    };
    nlohmann::ordered_json result{
        {"name", comparison.name},
        {"subject", comparison.subject.what},
        {"peer", comparison.peer.what},
        {"subject_ns", perItem(subject)},
        {"peer_ns", perItem(peer)},
        {"ratio", quantile(ratios, 0.5)},
        {"ratio_quartiles", {quantile(ratios, 0.25), quantile(ratios, 0.75)}},
    };
    if (comparison.goal) {
        result["goal"] = *comparison.goal;
    }
    return result;
}

}  // namespace bench
