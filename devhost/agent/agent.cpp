#include "devhost/agent/agent.h"

#include <fmt/format.h>

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

outputs::WhenFull whenFullOf(const Configuration::CaptureFile& settings) {
    return settings.dropOldest ? outputs::WhenFull::dropOldest : outputs::WhenFull::dropNewest;
}

// Two services do not listen at one port, whatever the host before it.
std::string_view portOf(const Configuration::Gnmi& settings) {
    return std::string_view(settings.listen).substr(settings.listen.rfind(':') + 1);
}

gnmi::Settings settingsOf(const Configuration::Gnmi& configured) {
    gnmi::Settings settings;
    settings.listen = host::ListenAddress(configured.listen);
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
        agent_.endedStreams_[source().path.alias].add(streamed_->runner->ledger());
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
    const Database* const database = nextDatabase_ ? nextDatabase_.get() : database_.get();
    const bool databaseChanges = database == nullptr || configuration.database != database->configured();
    const bool tablesChange = !configuration_ || databaseChanges || configuration_->feed != configuration.feed;
    Outputs outputs = outputsFor(configuration);
    auto nextDatabase = databaseChanges ? std::make_unique<Database>(configuration.database) : nullptr;
    applyGnmi(configuration, tablesChange);

    const bool anew = configuration_.has_value();
    configuration_ = configuration;
    endRunners([&](const std::string& name, const Runner& runner) {
        const auto wanted = configuration.subscriptions.find(name);
        return tablesChange || wanted == configuration.subscriptions.end() ||
               wanted->second != runner.source().subscription;
    });
    exchangeOutputs(std::move(outputs));
    if (tablesChange) {
        if (nextDatabase) {
            nextDatabase_ = std::move(nextDatabase);
        }
        beginTables(anew);
    } else if (tablesReady_) {
        tablesReady();
    }
}

// Those that are there and have the same receiver, under any name; others are made.
Agent::Outputs Agent::outputsFor(const Configuration& configuration) {
    std::map<std::pair<size_t, std::string>, OutputPointer> there;
    for (const auto& [name, output] : outputs_) {
        there[receiverOf(configuration_->outputs.at(name))] = output;
    }
    Outputs wanted;
    for (const auto& [name, settings] : configuration.outputs) {
        OutputPointer& output = wanted[name];
        output = std::exchange(there[receiverOf(settings)], nullptr);
        if (!output) {
            output = makeOutput(settings);
        }
    }
    return wanted;
}

void Agent::exchangeOutputs(Outputs outputs) {
    const auto have = [](const Outputs& all, const OutputPointer& output) {
        return std::ranges::any_of(all, [&](const auto& each) { return each.second == output; });
    };
    for (const auto& [name, output] : outputs_) {
        if (!have(outputs, output)) {
            endOutput(output);
        }
    }
    for (const auto& [name, output] : outputs) {
        if (!have(outputs_, output)) {
            for (const auto& [subscription, runner] : runners_) {
                output->sourceStarted(runner->source());
            }
        }
    }
    outputs_ = std::move(outputs);
    consumers_.clear();
    std::ranges::transform(outputs_, std::back_inserter(consumers_),
                           [](const auto& each) { return each.second.get(); });
    for (const auto& [name, settings] : configuration_->outputs) {
        if (const auto* const capture = std::get_if<Configuration::CaptureFile>(&settings)) {
            static_cast<outputs::CaptureFile&>(*outputs_.at(name)).setBuffer(capture->buffer, whenFullOf(*capture));
        }
    }
}

template <class Ends>
void Agent::endRunners(const Ends& ends) {
    std::erase_if(runners_, [&](const auto& each) {
        const bool isOver = ends(each.first, *each.second);
        anyLost_ = anyLost_ || (isOver && each.second->ledger().anyLost());
        return isOver;
    });
}

std::unique_ptr<gnmi::Service> Agent::makeGnmi(const Configuration::Gnmi& settings) {
    auto service = std::make_unique<gnmi::Service>(loop_, *this, settingsOf(settings));
    host::report(fmt::format("gNMI at {}, {}", service->address(), settings.insecure ? "without TLS" : "with TLS"));
    return service;
}

// Streams of other tables than those that come would go on with what they have no more; certificates may be new ones in
// the same files.
void Agent::applyGnmi(const Configuration& configuration, bool tablesChange) {
    const std::optional<Configuration::Gnmi> before = gnmi_ ? configuration_->gnmi : std::nullopt;
    const auto& wanted = configuration.gnmi;
    checkGnmi(configuration);
    withGnmiFaults([&] {
        if (before == wanted && (!wanted || (!tablesChange && gnmi_->hasFilesOf(settingsOf(*wanted))))) {
            return;
        }
        const bool atOnePort = before && wanted && portOf(*before) == portOf(*wanted);
        auto next = wanted && !atOnePort ? makeGnmi(*wanted) : nullptr;
        endGnmi();
        try {
            gnmi_ = wanted && atOnePort ? makeGnmi(*wanted) : std::move(next);
        } catch (...) {
            gnmi_ = makeGnmi(*before);
            throw;
        }
    });
}

void Agent::endGnmi() {
    if (gnmi_) {
        const auto service = std::exchange(gnmi_, nullptr);
        service->end("the configuration has changed");
        addTo(endedCalls_, service->ended());
    }
}

// The feed that is there ends before the next one begins, which may have its database.
void Agent::beginTables(bool anew) {
    tablesReady_ = false;
    if (stopped_) {
        return;
    }
    if (anew && feed_) {
        feed_->end([this] {
            loop_.post([this] {
                feed_.reset();
                beginTables(false);
            });
        });
        return;
    }
    if (nextDatabase_) {
        database_ = std::move(nextDatabase_);
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
    if (stopped_) {
        return;
    }
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

Agent::OutputPointer Agent::makeOutput(const Configuration::Output& settings) {
    if (const auto* const prometheus = std::get_if<Configuration::Prometheus>(&settings)) {
        return std::make_shared<outputs::Prometheus>(loop_, prometheus->listen, [this] { return figures(); });
    }
    const auto& capture = std::get<Configuration::CaptureFile>(settings);
    return std::make_shared<outputs::CaptureFile>(
        loop_, outputs::CaptureFile::Settings{
                   .file = capture.file, .bufferBytes = capture.buffer, .whenFull = whenFullOf(capture)});
}

void Agent::endOutput(const OutputPointer& output) {
    ending_.push_back(output);
    output->flush(kFlush, [this, ends = output.get()] {
        loop_.post([this, ends] {
            addTo(ended_, ends->account());
            std::erase_if(ending_, [&](const OutputPointer& each) { return each.get() == ends; });
            if (stopped_) {
                oneEnded();
            }
        });
    });
}

void Agent::stop(std::chrono::milliseconds within, std::function<void()> done) {
    watchFeed_.cancel();
    lastSubscriptions_ = subscriptionLines();
    stopped_ = true;
    endRunners([](const std::string&, const Runner&) { return true; });
    consumers_.clear();
    stopDone_ = std::move(done);
    endsLeft_ = 1 + outputs_.size() + ending_.size() + (gnmi_ ? 1 : 0);
    for (const auto& [name, output] : outputs_) {
        output->flush(within, [this] { loop_.post([this] { oneEnded(); }); });
    }
    if (gnmi_) {
        gnmi_->stop(within, [this] {
            endGnmi();
            oneEnded();
        });
    }
    oneEnded();
}

// Of what a stop waits for; the feed is the last.
void Agent::oneEnded() {
    if (--endsLeft_ > 0) {
        return;
    }
    if (feed_) {
        feed_->end(stopDone_);
    } else {
        stopDone_();
    }
}

void Agent::watchFeed() {
    feedWatch_->look();
    watchFeed_.start(kFeedWatch);
}

std::vector<std::string> Agent::subscriptionLines() const {
    std::vector<std::string> lines;
    for (const auto& [name, runner] : runners_) {
        lines.push_back(lineOf(name, runner->ledger()));
    }
    for (const auto& streamed : streamed_) {
        lines.push_back(lineOf(streamed->runner->source().name, streamed->runner->ledger()));
    }
    return lines;
}

std::vector<std::string> Agent::ledgerLines() const {
    std::vector<std::string> lines = stopped_ ? lastSubscriptions_ : subscriptionLines();
    const size_t subscriptions = lines.size();
    for (const auto& [path, ledger] : endedStreams_) {
        lines.push_back(lineOf(fmt::format("gnmi (ended) {}", path), ledger));
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
    if (const host::Account ended = endedOutputs(); ended.offered > 0) {
        lines.push_back(lineOf("output", "(ended)", ended));
    }
    lines.push_back(fmt::format("ledger of {} subscriptions and {} outputs: {}", subscriptions, outputs_.size(),
                                anyDropped() ? "records were dropped" : "nothing was dropped"));
    return lines;
}

host::Account Agent::endedOutputs() const {
    host::Account sum = ended_;
    for (const OutputPointer& output : ending_) {
        addTo(sum, output->account());
    }
    return sum;
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
    std::map<std::string, SubscriptionLedger> streams = endedStreams_;
    for (const auto& streamed : streamed_) {
        streams[streamed->runner->source().path.alias].add(streamed->runner->ledger());
        workers += uint64_t{streamed->runner->process() > 0};
    }
    for (const auto& [path, ledger] : streams) {
        ledgers.push_back({"(gnmi)", path, ledger});
    }
    std::map<std::string, host::Account> accounts;
    for (const auto& [name, output] : outputs_) {
        accounts[name] = output->account();
    }
    if (const host::Account ended = endedOutputs(); ended.offered > 0) {
        accounts["(ended)"] = ended;
    }
    uint64_t calls = 0;
    if (const host::Account ended = endedCalls(); gnmi_ || ended.offered > 0) {
        accounts["(gnmi)"] = ended;
    }
    if (gnmi_) {
        for (const gnmi::CallAccount& call : gnmi_->calls()) {
            addTo(accounts["(gnmi)"], call.account);
            ++calls;
        }
    }
    std::vector<host::Figure> figures = subscriptionFigures(ledgers);
    figures.push_back(
        {{"qos_agent_build_info", host::MetricType::info, "", "The agent's version, and the device's name."},
         {{{{"version", QOS_AGENT_VERSION}, {"device", configuration_->device}}, uint64_t{1}}}});
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
    const auto lost = [this](const host::Account& account) {
        return account.allDropped() > 0 || (stopped_ && account.waiting > 0);
    };
    const auto runnerLost = [](const auto& each) { return each.second->ledger().anyLost(); };
    const auto streamLost = [](const auto& each) { return each.second.anyLost(); };
    return anyLost_ || std::ranges::any_of(runners_, runnerLost) || std::ranges::any_of(endedStreams_, streamLost) ||
           lost(endedOutputs()) || lost(endedCalls()) ||
           std::ranges::any_of(outputs_, [&](const auto& each) { return lost(each.second->account()); }) ||
           (gnmi_ && std::ranges::any_of(gnmi_->calls(), [&](const auto& each) { return lost(each.account); }));
}

}  // namespace agent
