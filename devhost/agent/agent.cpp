#include "devhost/agent/agent.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <iterator>
#include <utility>

#include "devhost/agent/figures.h"
#include "devhost/outputs/capture_file.h"
#include "devhost/outputs/prometheus.h"
#include "devhost/sampling/catalogue.h"
#include "devhost/support/trouble.h"

namespace agent {

namespace {

constexpr std::chrono::milliseconds kFeedWatch{2000};
constexpr uint32_t kMostStreamed = 64;

std::string lineOf(const std::string& name, const SubscriptionLedger& ledger) {
    return fmt::format(
        "subscription {}: passes {} (failed {}), missed {}, restarts {}, rows {}, records {}, not sent {}, refused {}, "
        "gaps {}, batches {}, bytes {}, encoding {} us, messages {}",
        name, ledger.passes, ledger.failedPasses, ledger.missedBeats, ledger.restarts, ledger.rows, ledger.records,
        ledger.notSent, ledger.refused, ledger.gaps, ledger.batches, ledger.bytes, ledger.encodeTime, ledger.messages);
}

std::string lineOf(std::string_view kind, const std::string& name, const host::Account& account) {
    std::string line = fmt::format("{} {}: offered {}, delivered {}, waiting {}, dropped {}", kind, name,
                                   account.offered, account.delivered, account.waiting, account.allDropped());
    for (size_t reason = 0; reason < account.dropped.size(); ++reason) {
        if (account.dropped[reason] > 0) {
            line += fmt::format(" {} {}", host::kDropNames[reason], account.dropped[reason]);
        }
    }
    return line + fmt::format(", bytes waiting {}, reconnects {}{}", account.bytesWaiting, account.reconnects,
                              account.lastError.empty() ? "" : ", last error: " + account.lastError);
}

gnmi::Settings settingsOf(const Configuration::Gnmi& configured) {
    gnmi::Settings settings;
    settings.listen = configured.listen;
    settings.certificate = configured.certificate;
    settings.key = configured.key;
    settings.clientCa = configured.clientCa;
    settings.insecure = configured.insecure;
    settings.allowRemote = configured.allowRemote;
    settings.maxSubscriptions = configured.maxSubscriptions;
    settings.waitingBytes = configured.buffer;
    return settings;
}

// What is wrong names the key of the configuration.
template <class Work>
auto withGnmiFaults(const Work& work) {
    try {
        return work();
    } catch (const gnmi::SettingError& error) {
        throw host::UsageError(fmt::format("gnmi.{}", error.what()));
    } catch (const std::runtime_error& error) {
        throw std::runtime_error(fmt::format("gnmi: {}", error.what()));
    }
}

void addTo(host::Account& sum, const host::Account& account) {
    sum.offered += account.offered;
    sum.delivered += account.delivered;
    sum.waiting += account.waiting;
    sum.bytesWaiting += account.bytesWaiting;
    sum.reconnects += account.reconnects;
    for (size_t reason = 0; reason < sum.dropped.size(); ++reason) {
        sum.dropped[reason] += account.dropped[reason];
    }
}

}  // namespace

void checkGnmi(const Configuration& configuration) {
    if (configuration.gnmi) {
        withGnmiFaults([&] { check(settingsOf(*configuration.gnmi)); });
    }
}

/* What a stream holds; its end is the subscription's, but not in the middle of a call. */
class Agent::StreamedSampling : public gnmi::Sampling {
  public:
    StreamedSampling(Agent& agent, std::shared_ptr<Streamed> streamed)
        : agent_(agent), streamed_(std::move(streamed)) {}
    ~StreamedSampling() override {
        streamed_->runner->silence();
        agent_.streamed_.remove(streamed_);
        agent_.endedStreamed_.push_back(streamed_);
        agent_.loop_.post([&agent = agent_] { agent.endedStreamed_.clear(); });
    }
    StreamedSampling(const StreamedSampling&) = delete;
    StreamedSampling& operator=(const StreamedSampling&) = delete;

    const host::Source& source() const override { return streamed_->runner->source(); }
    void requestPass() override { streamed_->runner->requestPass(); }

  private:
    Agent& agent_;
    std::shared_ptr<Streamed> streamed_;
};

Agent::Agent(host::Loop& loop, std::string pluginFile, std::function<void()> ready)
    : loop_(loop),
      pluginFile_(std::move(pluginFile)),
      ready_(std::move(ready)),
      children_(loop),
      watchFeed_(loop.timer([this] { watchFeed(); })) {}

Agent::~Agent() = default;

void Agent::apply(const Configuration& configuration) {
    // What may fail comes first.
    std::map<std::string, OutputPointer> outputs;
    for (const auto& [name, settings] : configuration.outputs) {
        const auto known = configuration_ ? configuration_->outputs.find(name) : configuration.outputs.end();
        const bool same = configuration_ && known != configuration_->outputs.end() && known->second == settings;
        outputs[name] = same ? outputs_.at(name) : makeOutput(configuration, settings);
    }
    const bool tablesChange = !configuration_ || configuration_->feed != configuration.feed ||
                              configuration_->database != configuration.database;
    applyGnmi(configuration, tablesChange);
    std::optional<Configuration> before = std::exchange(configuration_, configuration);

    if (tablesChange) {
        runners_.clear();
    }
    for (const auto& [name, output] : outputs_) {
        const auto kept = outputs.find(name);
        if (kept == outputs.end() || kept->second != output) {
            endOutput(output, kFlush, [] {});
        }
    }
    for (const auto& [name, output] : outputs) {
        const auto there = outputs_.find(name);
        if (there == outputs_.end() || there->second != output) {
            for (const auto& [subscription, runner] : runners_) {
                output->sourceStarted(runner->source());
            }
        }
    }
    outputs_ = std::move(outputs);
    consumers_.clear();
    std::ranges::transform(outputs_, std::back_inserter(consumers_),
                           [](const auto& each) { return each.second.get(); });
    std::erase_if(runners_, [&](const auto& each) {
        const auto wanted = configuration.subscriptions.find(each.first);
        return wanted == configuration.subscriptions.end() || wanted->second != each.second->source().subscription;
    });
    if (tablesChange) {
        beginTables(before.has_value());
    } else if (tablesReady_) {
        tablesReady();
    }
}

std::unique_ptr<gnmi::Service> Agent::makeGnmi(const Configuration::Gnmi& settings) {
    auto service = std::make_unique<gnmi::Service>(loop_, *this, settingsOf(settings));
    host::report(fmt::format("gNMI at {}, {}", fmt::join(service->addresses(), ", "),
                             settings.insecure ? "without TLS" : "with TLS"));
    return service;
}

// Streams of other tables than those that come would go on with what they have no more; certificates may be new ones in
// the same files.
void Agent::applyGnmi(const Configuration& configuration, bool tablesChange) {
    const std::optional<Configuration::Gnmi> before = configuration_ ? configuration_->gnmi : std::nullopt;
    checkGnmi(configuration);
    withGnmiFaults([&] {
        if (before == configuration.gnmi && !tablesChange &&
            (!gnmi_ || gnmi_->hasFilesOf(settingsOf(*configuration.gnmi)))) {
            return;
        }
        endGnmi();
        try {
            gnmi_ = configuration.gnmi ? makeGnmi(*configuration.gnmi) : nullptr;
        } catch (...) {
            gnmi_ = before ? makeGnmi(*before) : nullptr;
            throw;
        }
    });
}

void Agent::endGnmi() {
    if (gnmi_) {
        const auto service = std::exchange(gnmi_, nullptr);
        service->end();
        addTo(endedCalls_, service->ended());
    }
}

// The feed that is there ends before the next one begins, which may have its database.
void Agent::beginTables(bool anew) {
    tablesReady_ = false;
    if (anew && feed_) {
        feed_->end([this] {
            loop_.post([this] {
                feed_.reset();
                beginTables(false);
            });
        });
        return;
    }
    if (!database_ || configuration_->database != database_->configured()) {
        database_.emplace(configuration_->database);
    }
    // What is to be known of the kernel's counters a feed of the agent's own says by itself.
    const bool ownFeed = configuration_->feed.source != Configuration::Feed::Source::none;
    feedWatch_.emplace(database_->file(), ownFeed ? "" : "queue-statistics");
    watchFeed_.start(kFeedWatch);
    if (configuration_->feed.source == Configuration::Feed::Source::none) {
        tablesReady();
        return;
    }
    feed_ = std::make_unique<FeedRunner>(loop_, children_, FeedOrder{database_->file(), configuration_->feed},
                                         [this] { tablesReady(); });
}

// Begins the subscriptions that do not run yet.
void Agent::tablesReady() {
    tablesReady_ = true;
    for (const auto& [name, subscription] : configuration_->subscriptions) {
        auto& runner = runners_[name];
        if (!runner) {
            runner = makeRunner(name, subscription, consumers_);
            runner->begin(database_->file());
        }
    }
    for (const auto& streamed : streamed_) {
        streamed->runner->begin(database_->file());
    }
    if (const auto ready = std::exchange(ready_, {})) {
        ready();
    }
}

std::unique_ptr<Runner> Agent::makeRunner(std::string name, const host::Subscription& subscription,
                                          const Consumers& consumers) {
    host::Source source = {.name = std::move(name),
                           .id = ++lastId_,
                           .path = *host::findInCatalogue(subscription.alias),
                           .subscription = subscription};
    WorkerOrder order;
    order.plugin = pluginFile_;
    return std::make_unique<Runner>(loop_, children_, std::move(source), std::move(order), consumers);
}

std::unique_ptr<gnmi::Sampling> Agent::start(const host::Subscription& subscription, host::Consumer& consumer) {
    const uint32_t most = configuration_->gnmi ? configuration_->gnmi->maxSubscriptions : kMostStreamed;
    if (streamed_.size() >= most) {
        throw gnmi::TooManySubscriptions(fmt::format("{} subscriptions run, which is the most that is allowed", most));
    }
    auto streamed = std::make_shared<Streamed>();
    streamed->consumers = {&consumer};
    streamed->runner = makeRunner(fmt::format("gnmi-{}", ++streamedStarted_), subscription, streamed->consumers);
    streamed_.push_back(streamed);
    if (tablesReady_) {
        streamed->runner->begin(database_->file());
    }
    return std::make_unique<StreamedSampling>(*this, std::move(streamed));
}

Agent::OutputPointer Agent::makeOutput(const Configuration& configuration, const Configuration::Output& settings) {
    if (const auto* const prometheus = std::get_if<Configuration::Prometheus>(&settings)) {
        return std::make_shared<outputs::Prometheus>(
            loop_,
            outputs::Prometheus::Settings{
                .listen = prometheus->listen, .version = QOS_AGENT_VERSION, .device = configuration.device},
            [this] { return figures(); });
    }
    const auto& capture = std::get<Configuration::CaptureFile>(settings);
    return std::make_shared<outputs::CaptureFile>(
        loop_, outputs::CaptureFile::Settings{
                   .file = capture.file,
                   .bufferBytes = capture.buffer,
                   .whenFull = capture.dropOldest ? outputs::WhenFull::dropOldest : outputs::WhenFull::dropNewest});
}

void Agent::endOutput(const OutputPointer& output, std::chrono::milliseconds within,
                      const std::function<void()>& done) {
    ending_.push_back(output);
    output->flush(within, [this, output, done] {
        loop_.post([this, output, done] {
            addTo(ended_, output->account());
            ending_.remove(output);
            done();
        });
    });
}

void Agent::stop(std::chrono::milliseconds within, std::function<void()> done) {
    watchFeed_.cancel();
    runners_.clear();
    consumers_.clear();
    auto left = std::make_shared<size_t>(1);
    const auto oneLess = [this, left, done = std::move(done)] {
        if (--*left > 0) {
            return;
        }
        if (feed_) {
            feed_->end(done);
        } else {
            done();
        }
    };
    for (const auto& [name, output] : std::exchange(outputs_, {})) {
        ++*left;
        endOutput(output, within, oneLess);
    }
    if (gnmi_) {
        ++*left;
        gnmi_->stop(within, [this, oneLess] {
            endGnmi();
            oneLess();
        });
    }
    oneLess();
}

void Agent::watchFeed() {
    feedWatch_->look();
    watchFeed_.start(kFeedWatch);
}

std::vector<std::string> Agent::ledgerLines() const {
    std::vector<std::string> lines;
    for (const auto& [name, runner] : runners_) {
        lines.push_back(lineOf(name, runner->ledger()));
    }
    for (const auto& streamed : streamed_) {
        lines.push_back(lineOf(streamed->runner->source().name, streamed->runner->ledger()));
    }
    for (const auto& [name, output] : outputs_) {
        lines.push_back(lineOf("output", name, output->account()));
    }
    if (gnmi_) {
        for (const gnmi::CallAccount& call : gnmi_->calls()) {
            lines.push_back(lineOf("gnmi", fmt::format("{} {}", call.peer, call.what), call.account));
        }
    }
    if (const host::Account ended = endedCalls(); ended.offered > 0) {
        lines.push_back(lineOf("gnmi", "(ended)", ended));
    }
    if (ended_.offered > 0) {
        lines.push_back(lineOf("output", "(ended)", ended_));
    }
    lines.push_back(fmt::format("ledger of {} subscriptions and {} outputs: {}", runners_.size() + streamed_.size(),
                                outputs_.size(), anyDropped() ? "records were dropped" : "nothing was dropped"));
    return lines;
}

host::Account Agent::endedCalls() const {
    host::Account sum = endedCalls_;
    if (gnmi_) {
        addTo(sum, gnmi_->ended());
    }
    return sum;
}

std::vector<host::Figure> Agent::figures() const {
    std::vector<NamedLedger> ledgers;
    uint64_t workers = 0;
    for (const auto& [name, runner] : runners_) {
        ledgers.push_back({name, runner->source().path.alias, runner->ledger()});
        workers += uint64_t{runner->process() > 0};
    }
    for (const auto& streamed : streamed_) {
        workers += uint64_t{streamed->runner->process() > 0};
    }
    std::map<std::string, host::Account> accounts;
    for (const auto& [name, output] : outputs_) {
        accounts[name] = output->account();
    }
    if (ended_.offered > 0) {
        accounts["(ended)"] = ended_;
    }
    uint64_t calls = 0;
    if (gnmi_) {
        host::Account& sum = accounts["(gnmi)"];
        sum = endedCalls();
        for (const gnmi::CallAccount& call : gnmi_->calls()) {
            addTo(sum, call.account);
            ++calls;
        }
    }
    std::vector<host::Figure> figures = subscriptionFigures(ledgers);
    std::ranges::move(outputFigures(accounts), std::back_inserter(figures));
    if (feed_) {
        figures.push_back(
            {{"qos_feed_restarts_total", host::MetricType::counter, "", "Times that the feed was started anew."},
             {{{}, feed_->restarts()}}});
    }
    if (const auto& mark = feedWatch_ ? feedWatch_->lastMark() : std::nullopt) {
        figures.push_back({{"qos_feed_rounds_missed_total", host::MetricType::counter, "",
                            "Rounds of the feed that were due and not written."},
                           {{{}, mark->missed}}});
        figures.push_back({{"qos_feed_last_round_timestamp_seconds", host::MetricType::gauge, "seconds",
                            "When the feed wrote its last round, since 1970."},
                           {{{}, static_cast<double>(mark->time_ms) / 1e3}}});
    }
    figures.push_back({{"qos_agent_workers", host::MetricType::gauge, "", "Workers that run."}, {{{}, workers}}});
    figures.push_back({{"qos_agent_gnmi_calls", host::MetricType::gauge, "", "gNMI calls that run."}, {{{}, calls}}});
    return figures;
}

bool Agent::anyDropped() const {
    return ended_.allDropped() > 0 || endedCalls().allDropped() > 0 ||
           std::ranges::any_of(outputs_, [](const auto& each) { return each.second->account().allDropped() > 0; });
}

}  // namespace agent
