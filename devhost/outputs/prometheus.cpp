#include "devhost/outputs/prometheus.h"

#include <fmt/format.h>

#include <utility>
#include <vector>

#include "devhost/outputs/process_figures.h"
#include "devhost/support/trouble.h"

namespace outputs {

Prometheus::Prometheus(host::Loop& loop, std::string_view listen, host::FigureSource ledger)
    : ledger_(std::move(ledger)), server_(loop, listen) {
    server_.route("/metrics", [this](const HttpServer::Request& request) {
        const Exposition form = expositionFor(request.header("Accept"));
        return HttpServer::Response{.contentType = std::string(contentTypeOf(form)), .body = metrics(form)};
    });
    const auto greeting = std::make_shared<const std::string>("Prometheus finds its metrics at /metrics.\n");
    server_.route("/", [greeting](const HttpServer::Request&) { return HttpServer::Response{.body = {greeting}}; });
    host::report(fmt::format("metrics at http://{}/metrics", server_.address()));
}

void Prometheus::batch(const host::SampledBatch& sampled) {
    const size_t offered = sampled.records.size();
    account_.offered += offered;
    if (stopped_) {
        account_.drop(host::Drop::stopped, offered);
        return;
    }
    const size_t taken = series_.batch(sampled, Clock::now());
    account_.delivered += taken;
    if (taken < offered) {
        account_.drop(host::Drop::full, offered - taken);
        account_.lastError = fmt::format("{} rows are shown, no more are", RowSeries::kMostRows);
    }
}

void Prometheus::passEnded(const host::SampledPass& sampled) {
    series_.passEnded(sampled, Clock::now());
}

void Prometheus::flush(std::chrono::milliseconds /*within*/, std::function<void()> done) {
    stopped_ = true;
    done();
}

std::string Prometheus::renderFigures(Exposition form, Clock::time_point now) const {
    std::string text;
    for (const auto& figures : {series_.figures(now), ledger_(), processFigures()}) {
        for (const host::Figure& figure : figures) {
            writeFigure(text, form, figure);
        }
    }
    text += endOf(form);
    return text;
}

HttpServer::Body Prometheus::metrics(Exposition form) {
    const auto now = Clock::now();
    HttpServer::Body body = series_.render(form, now);
    Rendered& figures = figures_[static_cast<size_t>(form)];
    if (!figures.text || now - figures.when >= kFreshness) {
        figures = {std::make_shared<const std::string>(renderFigures(form, now)), now};
    }
    body.push_back(figures.text);
    return body;
}

}  // namespace outputs
