#include "devhost/agent/figures.h"

#include <utility>

namespace agent {

namespace {

using host::Figure;
using host::MetricType;

/* A metric and where its value stands. */
template <class Keeper>
struct Column {
    host::Metric metric;
    std::variant<uint64_t, double> (*value)(const Keeper&);
};

double seconds(uint64_t microseconds) {
    return static_cast<double>(microseconds) / 1e6;
}

using SubscriptionColumn = Column<SubscriptionLedger>;
using Ledger = const SubscriptionLedger&;
using Value = std::variant<uint64_t, double>;

const std::vector<SubscriptionColumn>& subscriptionColumns() {
    static const std::vector<SubscriptionColumn> columns = {
        {{"qos_subscription_passes_total", MetricType::counter, "", "Passes that ended, the failed ones among them."},
         [](Ledger of) -> Value { return of.passes; }},
        {{"qos_subscription_failed_passes_total", MetricType::counter, "", "Passes whose last sampling call failed."},
         [](Ledger of) -> Value { return of.failedPasses; }},
        {{"qos_subscription_missed_passes_total", MetricType::counter, "", "Passes that were due and not made."},
         [](Ledger of) -> Value { return of.missedBeats; }},
        {{"qos_subscription_restarts_total", MetricType::counter, "", "Times that the worker was started anew."},
         [](Ledger of) -> Value { return of.restarts; }},
        {{"qos_subscription_rows_total", MetricType::counter, "", "Rows that the table had, over all passes."},
         [](Ledger of) -> Value { return of.rows; }},
        {{"qos_subscription_records_total", MetricType::counter, "", "Records that the plug-in sent."},
         [](Ledger of) -> Value { return of.records; }},
        {{"qos_subscription_rows_not_sent_total", MetricType::counter, "",
          "Rows without a record: filtered, suppressed, or lost with a call that failed."},
         [](Ledger of) -> Value { return of.notSent; }},
        {{"qos_subscription_records_refused_total", MetricType::counter, "",
          "Records in batches that do not fit the schema."},
         [](Ledger of) -> Value { return of.refused; }},
        {{"qos_subscription_batches_total", MetricType::counter, "", "Batches that the plug-in sent."},
         [](Ledger of) -> Value { return of.batches; }},
        {{"qos_subscription_batches_lost_total", MetricType::counter, "", "Running numbers that were left out."},
         [](Ledger of) -> Value { return of.gaps; }},
        {{"qos_subscription_payload_bytes_total", MetricType::counter, "bytes", "Payload of the batches."},
         [](Ledger of) -> Value { return of.bytes; }},
        {{"qos_subscription_encode_seconds_total", MetricType::counter, "seconds", "Time spent encoding."},
         [](Ledger of) -> Value { return seconds(of.encodeTime); }},
        {{"qos_subscription_pass_seconds_total", MetricType::counter, "seconds", "Time that the passes took."},
         [](Ledger of) -> Value { return seconds(of.passTime); }},
        {{"qos_subscription_messages_total", MetricType::counter, "",
          "Lines that the plug-in and the database logged."},
         [](Ledger of) -> Value { return of.messages; }},
        {{"qos_subscription_lateness_seconds", MetricType::gauge, "seconds",
          "By how much the last pass began later than it was due."},
         [](Ledger of) -> Value { return seconds(of.lastLateness); }},
        {{"qos_subscription_last_pass_timestamp_seconds", MetricType::gauge, "seconds",
          "When the last pass began, since 1970; 0 before the first."},
         [](Ledger of) -> Value { return static_cast<double>(of.lastPass) / 1e3; }},
    };
    return columns;
}

const std::vector<Column<host::Account>>& outputColumns() {
    using Account = const host::Account&;
    static const std::vector<Column<host::Account>> columns = {
        {{"qos_output_records_offered_total", MetricType::counter, "",
          "Records that the output was offered: delivered, waiting or dropped."},
         [](Account of) -> Value { return of.offered; }},
        {{"qos_output_records_delivered_total", MetricType::counter, "", "Records that the output handed on."},
         [](Account of) -> Value { return of.delivered; }},
        {{"qos_output_records_waiting", MetricType::gauge, "", "Records that wait in the output."},
         [](Account of) -> Value { return of.waiting; }},
        {{"qos_output_waiting_bytes", MetricType::gauge, "bytes", "What waits in the output."},
         [](Account of) -> Value { return of.bytesWaiting; }},
        {{"qos_output_reconnects_total", MetricType::counter, "", "Times that the receiver was reached again."},
         [](Account of) -> Value { return of.reconnects; }},
    };
    return columns;
}

}  // namespace

std::vector<Figure> subscriptionFigures(const std::vector<NamedLedger>& ledgers) {
    std::vector<Figure> figures;
    for (const SubscriptionColumn& column : subscriptionColumns()) {
        Figure& figure = figures.emplace_back(Figure{column.metric, {}});
        for (const NamedLedger& each : ledgers) {
            figure.samples.push_back({{{"subscription", each.name}, {"path", each.path}}, column.value(each.ledger)});
        }
    }
    return figures;
}

std::vector<Figure> outputFigures(const std::map<std::string, host::Account>& accounts) {
    std::vector<Figure> figures;
    for (const auto& column : outputColumns()) {
        Figure& figure = figures.emplace_back(Figure{column.metric, {}});
        for (const auto& [name, account] : accounts) {
            figure.samples.push_back({{{"output", name}}, column.value(account)});
        }
    }
    Figure& dropped = figures.emplace_back(Figure{
        {"qos_output_records_dropped_total", MetricType::counter, "", "Records that were not handed on, by why."}, {}});
    for (const auto& [name, account] : accounts) {
        for (size_t reason = 0; reason < account.dropped.size(); ++reason) {
            dropped.samples.push_back(
                {{{"output", name}, {"reason", std::string(host::kDropNames[reason])}}, account.dropped[reason]});
        }
    }
    return figures;
}

}  // namespace agent
