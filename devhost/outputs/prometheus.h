/*
 * The output that Prometheus fetches: /metrics, with the rows of all subscriptions (row_series.h), how the
 * subscriptions do, the agent's ledger and its process.
 *
 * A record is delivered once it stands in what is fetched: nothing waits, and a row that nobody fetches is no loss.
 * Rows beyond RowSeries::kMostRows are dropped as full.
 *
 * A flood of requests costs no more than its bytes: the text of a path is made once per change, all the rest at most
 * once in kFreshness.
 */
#ifndef DEVHOST_OUTPUTS_PROMETHEUS_H
#define DEVHOST_OUTPUTS_PROMETHEUS_H

#include <array>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "devhost/outputs/exposition.h"
#include "devhost/outputs/http_server.h"
#include "devhost/outputs/output.h"
#include "devhost/outputs/row_series.h"
#include "devhost/support/figures.h"

namespace outputs {

class Prometheus : public Output {
  public:
    static constexpr std::chrono::milliseconds kFreshness{100};

    /* Listens from now on, and says where; throws as HttpServer does. The ledger is asked while the object lives. */
    Prometheus(host::Loop& loop, std::string_view listen, host::FigureSource ledger);

    void sourceStarted(const host::Source& source) override { series_.started(source); }
    void batch(const host::SampledBatch& sampled) override;
    void passEnded(const host::SampledPass& sampled) override;
    void message(const host::Source& /*source*/, const host::LogLine& /*line*/, const std::string& /*frame*/) override {
    }
    void missed(const host::Source& /*source*/, const host::MissedBeats& /*missed*/,
                const std::string& /*frame*/) override {}
    void workerLost(const host::Source& source, const std::string& /*why*/) override { series_.workerLost(source); }
    void sourceEnded(const host::Source& source) override { series_.ended(source); }

    host::Account account() const override { return account_; }
    void flush(std::chrono::milliseconds within, std::function<void()> done) override;

  private:
    using Clock = std::chrono::steady_clock;

    HttpServer::Body metrics(Exposition form);
    std::string renderFigures(Exposition form, Clock::time_point now) const;

    struct Rendered {
        std::shared_ptr<const std::string> text;
        Clock::time_point when;
    };

    host::FigureSource ledger_;
    RowSeries series_;
    host::Account account_;
    bool stopped_ = false;
    std::array<Rendered, 2> figures_;  // by Exposition
    HttpServer server_;
};

}  // namespace outputs

#endif
