/*
 * The agent: subscriptions in workers of their own, a feed, outputs and gNMI, as a configuration says, and the ledger
 * of what became of every record. Used on the loop's thread.
 */
#ifndef DEVHOST_AGENT_AGENT_H
#define DEVHOST_AGENT_AGENT_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "devhost/agent/children.h"
#include "devhost/agent/configuration.h"
#include "devhost/agent/database.h"
#include "devhost/agent/feed_runner.h"
#include "devhost/agent/runner.h"
#include "devhost/gnmi/sampler.h"
#include "devhost/gnmi/service.h"
#include "devhost/outputs/output.h"
#include "devhost/sampling/feed_watch.h"
#include "devhost/support/figures.h"
#include "devhost/support/loop.h"

namespace agent {

/* What an output or a stream that ends has to deliver what waits. */
constexpr std::chrono::milliseconds kFlush{5000};

/* Throws what would keep the gNMI service of a configuration from ever beginning; reads its files. */
void checkGnmi(const Configuration& configuration);

class Agent : public gnmi::Sampler {
  public:
    /* pluginFile: the plug-in; empty: the library beside this program. ready: called once all has begun. */
    Agent(host::Loop& loop, std::string pluginFile, std::function<void()> ready);
    ~Agent() override;
    Agent(const Agent&) = delete;
    Agent& operator=(const Agent&) = delete;

    /*
     * Makes the configuration what runs: begins what is new or has changed, ends what is no more, and leaves alone the
     * rest. Throws std::exception when a part of it cannot begin, with everything as it was before.
     */
    void apply(const Configuration& configuration);

    /*
     * Ends everything, giving outputs and streams so long to deliver what waits; then calls done. What still waits when
     * the object is destroyed before, is lost and counts as dropped.
     */
    void stop(std::chrono::milliseconds within, std::function<void()> done);

    /* The ledger, a line for each subscription and output, for people. */
    std::vector<std::string> ledgerLines() const;

    /* The ledger in numbers, of the subscriptions and outputs that the configuration names, and of the agent itself. */
    std::vector<host::Figure> figures() const;

    /* The process of the agent's own feed; 0 when there is none at the moment. */
    pid_t feedProcess() const { return feed_ ? feed_->process() : 0; }

    /* Whether any record was dropped, or lost on its way to the agent, since it began. */
    bool anyDropped() const;

    std::unique_ptr<gnmi::Sampling> start(const host::Subscription& subscription, host::Consumer& consumer) override;

  private:
    /* A subscription of a stream; outlives the stream's interest in it until the loop's next turn. */
    struct Streamed {
        Consumers consumers;
        std::unique_ptr<Runner> runner;
    };
    class StreamedSampling;

    std::unique_ptr<Runner> makeRunner(std::string name, const host::Subscription& subscription,
                                       const Consumers& consumers);
    using OutputPointer = std::shared_ptr<outputs::Output>;
    using Outputs = std::map<std::string, OutputPointer>;
    OutputPointer makeOutput(const Configuration::Output& settings);
    Outputs outputsFor(const Configuration& configuration);
    void exchangeOutputs(Outputs outputs);
    template <class Ends>
    void endRunners(const Ends& ends);
    std::unique_ptr<gnmi::Service> makeGnmi(const Configuration::Gnmi& settings);
    void applyGnmi(const Configuration& configuration, bool tablesChange);
    void endGnmi();
    host::Account endedCalls() const;
    host::Account endedOutputs() const;
    void beginTables(bool anew);
    void tablesReady();
    void endOutput(const OutputPointer& output);
    void oneEnded();
    std::vector<std::string> subscriptionLines() const;
    void watchFeed();

    host::Loop& loop_;
    std::string pluginFile_;
    std::function<void()> ready_;
    Children children_;
    std::optional<Configuration> configuration_;  // what runs
    std::unique_ptr<Database> database_;
    std::unique_ptr<Database> nextDatabase_;  // takes its place when the feed has ended
    std::unique_ptr<FeedRunner> feed_;
    bool tablesReady_ = false;
    std::optional<host::FeedWatch> feedWatch_;
    host::Loop::Watch watchFeed_;

    Consumers consumers_;  // the outputs
    Outputs outputs_;
    std::list<OutputPointer> ending_;  // outputs that are no more, but deliver what waits
    host::Account ended_;              // sum of those that are through with that
    std::map<std::string, std::unique_ptr<Runner>> runners_;
    bool anyLost_ = false;      // by runners that are no more
    host::Account endedCalls_;  // sum of those of services that are no more
    std::list<std::shared_ptr<Streamed>> streamed_;
    std::list<std::shared_ptr<Streamed>> endedStreamed_;
    std::map<std::string, SubscriptionLedger> endedStreams_;  // sums by path
    uint32_t lastId_ = 0;
    uint64_t streamedStarted_ = 0;

    bool stopped_ = false;
    std::vector<std::string> lastSubscriptions_;  // lines of the ledger, as it was stopped
    size_t endsLeft_ = 0;                         // that a stop waits for
    std::function<void()> stopDone_;

    std::unique_ptr<gnmi::Service> gnmi_;  // the last: its streams end with it
};

}  // namespace agent

#endif
