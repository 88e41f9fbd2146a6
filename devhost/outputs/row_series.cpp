#include "devhost/outputs/row_series.h"

#include <algorithm>
#include <utility>

namespace outputs {

namespace {

constexpr std::chrono::milliseconds kLeastPatience{10000};

}  // namespace

std::chrono::milliseconds RowSeries::Reader::interval() const {
    return duration > every ? every + std::chrono::ceil<std::chrono::milliseconds>(duration) : every;
}

std::chrono::milliseconds RowSeries::Reader::patience() const {
    return std::max(3 * interval(), kLeastPatience);
}

bool RowSeries::Reader::isUp(Time now) const {
    return complete && now - *complete <= patience();
}

RowSeries::Path& RowSeries::pathOf(const host::Catalogued& path) {
    const auto [entry, isNew] = paths_.try_emplace(&path);
    if (isNew) {
        entry->second.metrics = pathMetrics(path);
    }
    return entry->second;
}

RowSeries::Reader& RowSeries::readerOf(const host::Source& source) {
    const host::Subscription& subscription = source.subscription;
    const uint32_t seconds = std::max(subscription.period.value_or(0), subscription.redundantPeriod.value_or(0));
    return readers_
        .try_emplace(source.id, Reader{.name = source.name,
                                       .path = &source.path,
                                       .every = subscription.every,
                                       .repeats = std::chrono::seconds(seconds)})
        .first->second;
}

void RowSeries::started(const host::Source& source) {
    readerOf(source);
}

size_t RowSeries::batch(const host::SampledBatch& sampled, Time now) {
    Path& path = pathOf(sampled.source.path);
    const uint32_t source = sampled.source.id;
    Reader& reader = readerOf(sampled.source);
    size_t taken = 0;
    bool changed = false;
    for (const host::RecordPointer& record : sampled.records) {
        host::RowKey key = host::rowKeyOf(sampled.source.path, *record);
        auto found = path.rows.lower_bound(key);
        if (found == path.rows.end() || found->first != key) {
            if (rows_ == kMostRows) {
                continue;
            }
            ++rows_;
            found = path.rows.emplace_hint(found, std::move(key), Row{});
        }
        Row& row = found->second;
        changed = changed || row.holdings.empty() || row.holdings.back().record->values != record->values;
        std::erase_if(row.holdings, [&](const Holding& each) { return each.source == source; });
        row.holdings.push_back({.source = source, .pass = reader.passes, .read = now, .record = record});
        if (row.labels.empty() || path.metrics.labelsBesideKeys) {
            row.labels = labelsOf(sampled.source.path, *record);
        }
        ++taken;
    }
    reader.hasRows = reader.hasRows || taken > 0;
    if (changed) {
        path.texts = {};
    }
    return taken;
}

/* Takes the rows from the source for which goes(key, holding) says so. */
template <class Goes>
void RowSeries::takeAway(Path& path, uint32_t source, Goes goes) {
    const size_t before = path.rows.size();
    for (auto row = path.rows.begin(); row != path.rows.end();) {
        auto& holdings = row->second.holdings;
        if (std::erase_if(holdings, [&](const Holding& holding) {
                return holding.source == source && goes(row->first, holding);
            }) > 0) {
            path.texts = {};
        }
        row = holdings.empty() ? path.rows.erase(row) : std::next(row);
    }
    rows_ -= before - path.rows.size();
}

void RowSeries::passEnded(const host::SampledPass& sampled, Time now) {
    const uint32_t source = sampled.source.id;
    Reader& reader = readerOf(sampled.source);
    const uint64_t pass = reader.passes++;
    if (sampled.end.result == QOS_TLM_RESULT_DONE) {
        reader.complete = now;
        reader.duration = std::chrono::microseconds(sampled.end.duration);
    }
    if (sampled.whole) {
        takeAway(pathOf(sampled.source.path), source,
                 [&](const host::RowKey&, const Holding& holding) { return holding.pass != pass; });
        return;
    }
    const auto keeps = reader.repeats.count() > 0 ? reader.repeats + 2 * reader.interval() : reader.patience();
    takeAway(pathOf(sampled.source.path), source, [&](const host::RowKey& key, const Holding& holding) {
        return now - holding.read > keeps || std::ranges::find(sampled.gone, key) != sampled.gone.end();
    });
}

/* What the lost pass brought is of none that ends. */
void RowSeries::workerLost(const host::Source& source) {
    ++readerOf(source).passes;
}

void RowSeries::ended(const host::Source& source) {
    readers_.erase(source.id);
    takeAway(pathOf(source.path), source.id, [](const host::RowKey&, const Holding&) { return true; });
}

std::string RowSeries::renderPath(const Path& path, Exposition form) {
    std::vector<std::pair<const Row*, const host::Record*>> shown;
    size_t lineSize = 0;
    for (const auto& [key, row] : path.rows) {
        shown.emplace_back(&row, row.holdings.back().record.get());
        lineSize = std::max(lineSize, row.labels.size());
    }
    std::string text;
    for (const PathMetrics::Entry& entry : path.metrics.entries) {
        text.reserve(text.size() + shown.size() * entry.leaves.size() * (entry.metric.name.size() + lineSize + 32));
        writeMetric(text, form, entry.metric);
        for (const auto& [row, record] : shown) {
            for (const PathMetrics::Leaf& leaf : entry.leaves) {
                const size_t begin = text.size();
                text += entry.metric.name;
                text += row->labels;
                text += leaf.label;
                text += "} ";
                if (writeValue(text, leaf.reading, record->values[leaf.field])) {
                    text += '\n';
                } else {
                    text.resize(begin);
                }
            }
        }
    }
    return text;
}

std::vector<std::shared_ptr<const std::string>> RowSeries::render(Exposition form, Time now) {
    for (auto& each : readers_) {
        Reader& reader = each.second;
        if (reader.hasRows && !reader.isUp(now)) {
            reader.hasRows = false;
            takeAway(pathOf(*reader.path), each.first, [&](const host::RowKey&, const Holding& holding) {
                const bool isOld = now - holding.read > reader.patience();
                reader.hasRows = reader.hasRows || !isOld;
                return isOld;
            });
        }
    }
    std::vector<std::shared_ptr<const std::string>> texts;
    for (auto& [catalogued, path] : paths_) {
        auto& text = path.texts[static_cast<size_t>(form)];
        if (!text && !path.rows.empty()) {
            text = std::make_shared<const std::string>(renderPath(path, form));
        }
        if (text) {
            texts.push_back(text);
        }
    }
    return texts;
}

std::vector<host::Figure> RowSeries::figures(Time now) const {
    using host::MetricType;
    host::Figure up{{"qos_subscription_up", MetricType::gauge, "",
                     "Whether the subscription has read its table to the end lately."},
                    {}};
    host::Figure age{{"qos_subscription_sample_age_seconds", MetricType::gauge, "seconds",
                      "Time since the last pass that read the table to its end began."},
                     {}};
    host::Figure interval{{"qos_subscription_interval_seconds", MetricType::gauge, "seconds",
                           "Time from pass to pass that the subscription asks for."},
                          {}};
    const auto seconds = [](auto time) { return std::chrono::duration<double>(time).count(); };
    for (const auto& [id, reader] : readers_) {
        const host::Figure::Sample sample{{{"subscription", reader.name}, {"path", reader.path->alias}}, uint64_t{0}};
        up.samples.push_back(sample);
        up.samples.back().value = uint64_t{reader.isUp(now)};
        interval.samples.push_back(sample);
        interval.samples.back().value = seconds(reader.every);
        if (reader.complete) {
            age.samples.push_back(sample);
            age.samples.back().value = seconds(now - *reader.complete + reader.duration);
        }
    }
    return {std::move(up), std::move(age), std::move(interval)};
}

}  // namespace outputs
