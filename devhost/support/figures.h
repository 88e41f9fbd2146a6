/*
 * What the agent can say of itself in numbers: the ledger and its like. Whoever keeps some gives them out in this form,
 * and whoever shows them (the metrics, the page, the log) asks for it.
 */
#ifndef DEVHOST_SUPPORT_FIGURES_H
#define DEVHOST_SUPPORT_FIGURES_H

#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace host {

enum class MetricType : uint8_t {
    counter,  // only grows, from 0 when its keeper started
    gauge,
    info,  // always 1; its labels tell
};

struct Metric {
    /*
     * In small letters, digits and underscores. Ends in its unit, a counter in "_total" behind that, an info in
     * "_info": "qos_output_sent_bytes_total".
     */
    std::string name;
    MetricType type = MetricType::gauge;
    std::string unit = {};  // as in the name, "bytes"; empty for what is counted without one
    std::string help;       // a sentence
};

/* A metric with its values of this moment. */
struct Figure {
    struct Sample {
        std::vector<std::pair<std::string, std::string>> labels;  // names as a metric's; values with any bytes
        std::variant<uint64_t, double> value;
    };

    Metric metric;
    std::vector<Sample> samples;  // no two with the same labels
};

/* Gives out figures of this moment, no two of one name; called on the loop's thread, and often. */
using FigureSource = std::function<std::vector<Figure>()>;

}  // namespace host

#endif
