/*
 * The rows that subscriptions have brought and that are still there, as series for Prometheus.
 *
 * A row is shown as it was read last, by whichever subscription of its path read it, and until none has it any more:
 *
 *   - A pass whose batches are all rows (SampledPass::whole) takes away those that it lacks, and the worker those that
 *     it says are gone.
 *   - A subscription that sends less than all its rows has a row until it must have sent it again: the period of its
 *     suppression or check and two intervals. Any other must have for 3 intervals, and at least 10 s.
 *   - One that has read nothing to the end for 3 intervals, and at least 10 s, has none, and is down. One that has
 * ended is not known any more.
 *
 * Where a pass takes longer than the interval, an interval is both together: the beats that it missed are skipped.
 */
#ifndef DEVHOST_OUTPUTS_ROW_SERIES_H
#define DEVHOST_OUTPUTS_ROW_SERIES_H

#include <array>
#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "devhost/outputs/exposition.h"
#include "devhost/outputs/path_metrics.h"
#include "devhost/sampling/consumer.h"
#include "devhost/support/figures.h"

namespace outputs {

class RowSeries {
  public:
    using Time = std::chrono::steady_clock::time_point;

    static constexpr size_t kMostRows = 65536;  // of all paths; a record of a row beyond is not taken

    void started(const host::Source& source);

    /* Answers how many of the records it took. */
    size_t batch(const host::SampledBatch& sampled, Time now);
    void passEnded(const host::SampledPass& sampled, Time now);
    void workerLost(const host::Source& source);
    void ended(const host::Source& source);

    /*
     * The series of all rows, a text for each path that has any. A text is made anew only when its path has changed,
     * and then is another object.
     */
    std::vector<std::shared_ptr<const std::string>> render(Exposition form, Time now);

    /* Whether the subscriptions bring what they should. */
    std::vector<host::Figure> figures(Time now) const;

  private:
    struct Holding {
        uint32_t source;
        uint64_t pass;  // of the source, as Reader counts them
        Time read;
        host::RecordPointer record;
    };

    struct Row {
        std::string labels;
        std::vector<Holding> holdings;  // of each source that has it, the newest last
    };

    struct Path {
        PathMetrics metrics;
        std::map<host::RowKey, Row> rows;
        std::array<std::shared_ptr<const std::string>, 2> texts;  // by Exposition; null when they are out of date
    };

    /* A subscription. */
    struct Reader {
        std::string name;
        const host::Catalogued* path;
        std::chrono::milliseconds every;
        std::chrono::milliseconds repeats;      // within which a row that is still there is sent again; 0: in each pass
        uint64_t passes = 0;                    // that have ended, or were lost
        std::optional<Time> complete = {};      // the end of the last pass that was read to its end
        std::chrono::microseconds duration{0};  // of that pass
        bool hasRows = false;                   // maybe

        std::chrono::milliseconds interval() const;
        std::chrono::milliseconds patience() const;
        bool isUp(Time now) const;
    };

    static std::string renderPath(const Path& path, Exposition form);
    Path& pathOf(const host::Catalogued& path);
    Reader& readerOf(const host::Source& source);
    template <class Goes>
    void takeAway(Path& path, uint32_t source, Goes goes);

    std::map<const host::Catalogued*, Path> paths_;
    std::map<uint32_t, Reader> readers_;  // by the source's id
    size_t rows_ = 0;
};

}  // namespace outputs

#endif
