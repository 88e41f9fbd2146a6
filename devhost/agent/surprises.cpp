#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <string_view>

#include "devhost/agent/configuration.h"
#include "devhost/qosdb/feed_mark.h"
#include "devhost/sampling/catalogue.h"
#include "devhost/support/duration.h"

namespace agent {

namespace {

class Surprises {
  public:
    Surprises(const Configuration& configuration, pid_t ownFeed)
        : configuration_(configuration), ownFeed_(static_cast<uint64_t>(ownFeed)) {}

    std::vector<std::string> all() {
        lookAtFeed();
        if (configuration_.subscriptions.empty()) {
            say("subscriptions: there is none, so nothing is sampled but what gNMI subscribers ask for");
        }
        for (const auto& [name, subscription] : configuration_.subscriptions) {
            look(name, subscription);
        }
        return std::move(lines_);
    }

  private:
    template <class... Values>
    void say(fmt::format_string<Values...> text, Values&&... values) {
        lines_.push_back(fmt::format(text, std::forward<Values>(values)...));
    }

    void lookAtFeed() {
        const auto mark = configuration_.database.empty() ? std::nullopt : qosdb::readFeedMark(configuration_.database);
        const bool feeds = configuration_.feed.source != Configuration::Feed::Source::none;
        const bool fresh = mark && mark->isFreshAt(std::chrono::system_clock::now());
        if (feeds && fresh && mark->process != ownFeed_ && mark->mayRun()) {
            say("feed: process {} on {} feeds '{}' already: two feeds on one file do not go; say feed: none to read "
                "what it writes",
                mark->process, mark->host, configuration_.database);
        } else if (!feeds && mark && !fresh) {
            say("database: the data in '{}' is old: feed {}, process {} on {}, had a round due every {}",
                configuration_.database, mark->source, mark->process, mark->host,
                host::durationText(std::chrono::milliseconds(mark->every_ms)));
        } else if (!feeds && !mark) {
            say("database: '{}' has no mark of a feed that can be read, so nothing tells how old its data is",
                configuration_.database);
        }
    }

    void look(const std::string& name, const host::Subscription& subscription) {
        const host::Catalogued& path = *host::findInCatalogue(subscription.alias);
        for (const auto& threshold : subscription.thresholds) {
            const auto* field = path.list->message_type()->FindFieldByNumber(0);
            for (int index = 0; index < path.fieldCount(); ++index) {
                field = path.field(index).json_name() == threshold.field ? &path.field(index) : field;
            }
            if (field != nullptr && field->cpp_type() == google::protobuf::FieldDescriptor::CPPTYPE_UINT64) {
                say("{}: a threshold compares the low 32 bits of {}, which has 64", name, threshold.field);
                break;
            }
        }
        if (subscription.thresholds.size() == 2) {
            say("{}: both thresholds compare {}{}", name, subscription.thresholds.front().field,
                subscription.relation == QOS_TLM_RELATION_SECOND ? ", and only the second one decides" : "");
        }
        for (const auto& condition : subscription.conditions) {
            lookAtCondition(name, path, condition);
        }
        if (subscription.encoding == QOS_TLM_ENCODE_JSON) {
            say("{}: in JSON, counters above 10^15 lose digits; gpb has them all", name);
        }
        if (subscription.period) {
            say("{}: under a period the record by which an interface or slot is seen first is held back, and a record "
                "passes when more than {} s have gone by; interface index or slot 0 is never sent",
                name, *subscription.period);
        }
        if (subscription.redundantPeriod) {
            say("{}: suppression looks at counters, not at rates; a record that was sent again unchanged after {} s is "
                "sent once more in the pass after the next",
                name, *subscription.redundantPeriod);
        }
        if (subscription.period || subscription.redundantPeriod) {
            say("{}: {} keeps track of 256 interfaces or slots; what is beyond them is {}", name,
                subscription.period ? "the period" : "suppression",
                subscription.period ? "never sent" : "sent in every pass");
        }
        if (configuration_.feed.source != Configuration::Feed::Source::none &&
            subscription.every < configuration_.feed.every) {
            say("{}: it samples every {}, the feed has new data every {}", name, host::durationText(subscription.every),
                host::durationText(configuration_.feed.every));
        }
    }

    void lookAtCondition(const std::string& name, const host::Catalogued& path,
                         const host::Subscription::Condition& condition) {
        const auto honoured = std::ranges::find(path.conditions, condition.field, &host::Condition::field);
        if (honoured->kind == host::ConditionKind::pattern &&
            condition.value.find_first_of("*.[](){}+?|^$\\") == std::string::npos) {
            say("{}: {} '{}' is the whole name of one interface: write * where digits may stand, as in eth*", name,
                condition.field, condition.value);
        } else if (honoured->kind == host::ConditionKind::text && condition.value.find('*') != std::string::npos) {
            say("{}: {} '{}' is compared as it stands, * included: {} takes {}", name, condition.field, condition.value,
                path.alias, honoured->takes);
        }
    }

    const Configuration& configuration_;
    uint64_t ownFeed_;  // process
    std::vector<std::string> lines_;
};

}  // namespace

std::vector<std::string> surprises(const Configuration& configuration, pid_t ownFeed) {
    return Surprises(configuration, ownFeed).all();
}

}  // namespace agent
