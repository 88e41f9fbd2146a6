/*
 * Which metrics the records of a path become. Rules make them of the schema's names and units, so that a new leaf has
 * its metric without a line here.
 *
 * The name is qos_, the words of the path without "statistics", the words of the leaf: "queue-statistics" and
 * "pass-packets" become qos_queue_pass_packets_total. What the leaf repeats of the path's end stands once.
 *
 * Labels are the leaves that say where a record was counted: interface-name (interface), queue-id (queue), slot-id
 * (slot), service-class (service_class with the class's name, and queue with the number). "queueN-" at the front of a
 * leaf's name is a label, too: eight leaves become one metric.
 *
 * Of the units, "packets" or "bytes" that the leaf's name ends in make a counter, _packets_total; "packets per second"
 * a gauge, _packets_per_second; "percent" a gauge, _ratio, from 0 to 1. Another unit stands at the end of the name.
 * Without units it is a gauge as the database has it.
 *
 * Of the texts, a date and time is a gauge, _timestamp_seconds since 1970, read as UTC; one that is none has no sample.
 */
#ifndef DEVHOST_OUTPUTS_PATH_METRICS_H
#define DEVHOST_OUTPUTS_PATH_METRICS_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "devhost/sampling/catalogue.h"
#include "devhost/sampling/records.h"
#include "devhost/support/figures.h"

namespace outputs {

struct PathMetrics {
    enum class Reading : uint8_t { number, percent, time };

    struct Leaf {
        size_t field;       // of the record
        std::string label;  // what it adds to the labels of its row, as in `,queue="3"`; often nothing
        Reading reading;
    };

    struct Entry {
        host::Metric metric;
        std::vector<Leaf> leaves;
    };

    std::vector<Entry> entries;     // no two of one name
    bool labelsBesideKeys = false;  // whether a row's labels may change
};

PathMetrics pathMetrics(const host::Catalogued& path);

/* The labels of a record's row with a brace before and none behind them: `{interface="eth0",queue="1"`. */
std::string labelsOf(const host::Catalogued& path, const host::Record& record);

/* Appends the value as the metric has it; false, with nothing appended, when it has none. */
bool writeValue(std::string& text, PathMetrics::Reading reading, const host::Value& value);

}  // namespace outputs

#endif
