// What Prometheus is told of rows: no value outlives its row, and none stands twice.
#include "devhost/outputs/row_series.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <regex>

#include "tests/outputs/feed.h"

namespace outputs {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class RowSeriesTest : public testing::Test {
  protected:
    void pass(Feed& feed, const std::vector<host::RecordPointer>& records) {
        feed.pass(
            records, [&](const auto& batch) { series.batch(batch, now); },
            [&](const auto& end) { series.passEnded(end, now); });
    }

    /* The series of passed packets, as interface/class=value. */
    std::vector<std::string> shown() {
        static const std::regex kLine(
            "qos_queue_pass_packets_total\\{interface=\"(.*)\",queue=\"\\d\",service_class=\"(.*)\"\\} (\\d+)\n");
        std::vector<std::string> found;
        for (const auto& text : series.render(Exposition::prometheus, now)) {
            for (auto each = std::sregex_iterator(text->begin(), text->end(), kLine); each != std::sregex_iterator();
                 ++each) {
                found.push_back((*each)[1].str() + "/" + (*each)[2].str() + "=" + (*each)[3].str());
            }
        }
        return found;
    }

    uint64_t up(const Feed& feed) {
        const auto figures = series.figures(now);
        for (const auto& sample : figures[0].samples) {
            if (sample.labels[0].second == feed.source.name) {
                return std::get<uint64_t>(sample.value);
            }
        }
        return UINT64_MAX;
    }

    RowSeries series;
    RowSeries::Time now{1000h};
    const host::RecordPointer one = queueRecord("eth0", 0, 1);
    const host::RecordPointer two = queueRecord("eth1", 5, UINT64_MAX);
};

TEST_F(RowSeriesTest, RowsGoWithTheirPassAndSubscription) {
    Feed feed(1);
    series.started(feed.source);
    EXPECT_EQ(up(feed), 0u);
    pass(feed, {one, two});
    EXPECT_THAT(shown(), ElementsAre("eth0/be=1", "eth1/ef=18446744073709551615"));
    pass(feed, {two});
    EXPECT_THAT(shown(), ElementsAre("eth1/ef=18446744073709551615"));
    EXPECT_EQ(up(feed), 1u);

    // A pass that fails takes nothing away, and a worker that is lost in a pass leaves nothing behind.
    feed.result = QOS_TLM_RESULT_FAILED;
    pass(feed, {one});
    EXPECT_THAT(shown(), SizeIs(2));
    series.workerLost(feed.source);
    feed.result = QOS_TLM_RESULT_DONE;
    pass(feed, {two});
    EXPECT_THAT(shown(), SizeIs(1));

    now += 10s;
    EXPECT_THAT(shown(), SizeIs(1));
    EXPECT_EQ(up(feed), 1u);
    now += 1ms;
    EXPECT_THAT(shown(), IsEmpty());
    EXPECT_EQ(up(feed), 0u);
    pass(feed, {one});
    EXPECT_THAT(shown(), SizeIs(1));
    series.ended(feed.source);
    EXPECT_THAT(shown(), IsEmpty());
    EXPECT_EQ(up(feed), UINT64_MAX);

    // Passes of 20 s are as slow as the subscription.
    Feed slow(2);
    slow.duration = 20'000'000;
    pass(slow, {one});
    now += 62s;
    EXPECT_EQ(up(slow), 1u);
    EXPECT_THAT(shown(), SizeIs(1));
    now += 2s;
    EXPECT_EQ(up(slow), 0u);
    EXPECT_THAT(shown(), IsEmpty());
}

TEST_F(RowSeriesTest, SuppressedRowsStayUntilTheyMustHaveComeAgain) {
    Feed feed(1, 1s, 60);
    pass(feed, {one, two});
    for (int second = 1; second <= 62; ++second) {
        now += 1s;
        pass(feed, {});
    }
    EXPECT_THAT(shown(), SizeIs(2));
    now += 1s;
    pass(feed, {two});
    EXPECT_THAT(shown(), ElementsAre("eth1/ef=18446744073709551615"));
    feed.gone = {host::rowKeyOf({"eth1", "5"})};
    pass(feed, {one});
    EXPECT_THAT(shown(), ElementsAre("eth0/be=1"));
}

TEST_F(RowSeriesTest, OfTwoSubscriptionsTheNewestReadIsShown) {
    Feed all(1);
    Feed some(2);
    pass(all, {one, two});
    pass(some, {queueRecord("eth0", 0, 2)});
    EXPECT_THAT(shown(), ElementsAre("eth0/be=2", "eth1/ef=18446744073709551615"));
    pass(all, {queueRecord("eth0", 0, 3)});
    EXPECT_THAT(shown(), ElementsAre("eth0/be=3"));
    series.ended(all.source);
    EXPECT_THAT(shown(), ElementsAre("eth0/be=2"));
    pass(some, {});
    EXPECT_THAT(shown(), IsEmpty());
}

TEST_F(RowSeriesTest, TextsAreMadeOncePerChangeAndRowsAreBounded) {
    Feed feed(1);
    pass(feed, {one});
    const auto first = series.render(Exposition::openMetrics, now);
    now += 1s;
    pass(feed, {queueRecord("eth0", 0, 1)});
    EXPECT_EQ(series.render(Exposition::openMetrics, now), first);
    pass(feed, {queueRecord("eth0", 0, 2)});
    EXPECT_NE(series.render(Exposition::openMetrics, now), first);

    std::vector<host::RecordPointer> many;
    for (size_t index = 0; index < RowSeries::kMostRows + 2; ++index) {
        many.push_back(queueRecord("x" + std::to_string(index), 0, index));
    }
    size_t taken = 0;
    const auto count = [&](const host::SampledBatch& batch) { taken = series.batch(batch, now); };
    const auto end = [&](const host::SampledPass& ended) { series.passEnded(ended, now); };
    feed.pass(many, count, end);
    EXPECT_EQ(taken, RowSeries::kMostRows - 1);  // eth0 was there until the pass ended
    feed.pass(many, count, end);
    EXPECT_EQ(taken, RowSeries::kMostRows);
}

TEST(Exposition, IsWhatTheRequestAccepts) {
    const std::string open = "application/openmetrics-text";
    for (const std::string& accept :
         {open, open + ";version=1.0.0,text/plain", "text/plain ; q=0.5 ," + open + "; Q=0.5", "*/*;q=0.1," + open,
          open + ";version=1.0.0," + open + ";version=0.0.1;q=0.75,text/plain;version=0.0.4;q=0.5,*/*;q=0.1"}) {
        EXPECT_EQ(expositionFor(accept), Exposition::openMetrics) << accept;
    }
    for (const std::string& accept :
         {std::string(), std::string("*/*"), std::string(",;=;,q"), open + ";version=2.0.0", open + ";q=0",
          open + ";q=0.4,text/plain;q=0.5", open + ";q=0.4,*/*", open + ";q=x", open + ";q=-1", open + ";q=nan"}) {
        EXPECT_EQ(expositionFor(accept), Exposition::prometheus) << accept;
    }
}

TEST(Exposition, NamesMetricsAsEachFormDoes) {
    const host::Figure figure{{"a_bytes_total", host::MetricType::counter, "bytes", "A \"b\" \\."},
                              {{{{"l", "a\"\n\\\xff"}}, uint64_t{5}}, {{}, 0.5}}};
    const std::string samples = "a_bytes_total{l=\"a\\\"\\\\x0a\\\\\\\\\\\\xff\"} 5\na_bytes_total 0.5\n";
    std::string text;
    writeFigure(text, Exposition::prometheus, figure);
    EXPECT_EQ(text, "# HELP a_bytes_total A \"b\" \\\\.\n# TYPE a_bytes_total counter\n" + samples);
    text.clear();
    writeFigure(text, Exposition::openMetrics, figure);
    EXPECT_EQ(text, "# HELP a_bytes A \\\"b\\\" \\\\.\n# TYPE a_bytes counter\n# UNIT a_bytes bytes\n" + samples);
}

}  // namespace
}  // namespace outputs
