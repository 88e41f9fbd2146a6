#include "devhost/agent/configuration.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <unistd.h>
#include <yaml-cpp/yaml.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <climits>
#include <concepts>
#include <cstring>
#include <fstream>
#include <functional>
#include <initializer_list>
#include <iterator>
#include <limits>
#include <set>
#include <utility>

#include "devhost/feed/rounds.h"
#include "devhost/support/duration.h"
#include "devhost/support/listen_address.h"

namespace agent {

namespace {

using std::chrono::milliseconds;

constexpr size_t kLongestFile = size_t{1} << 20;
constexpr size_t kMostFaults = 20;
constexpr size_t kLongestName = 64;
constexpr size_t kMostSubscriptions = 256;  // each is a process
constexpr size_t kMostOutputs = 32;
constexpr milliseconds kShortestInterval{100};

/* All that is wrong with a file, so that it need not be mended once for each fault. */
class Faults {
  public:
    explicit Faults(std::string file) : file_(std::move(file)) {}

    void add(const YAML::Mark& mark, const std::string& what) {
        if (lines_.size() < kMostFaults) {
            lines_.push_back(mark.is_null() ? fmt::format("{}: {}", file_, what)
                                            : fmt::format("{}:{}:{}: {}", file_, mark.line + 1, mark.column + 1, what));
        }
    }

    void throwIfAny() const {
        if (!lines_.empty()) {
            throw ConfigurationError(fmt::format("{}", fmt::join(lines_, "\n")));
        }
    }

  private:
    std::string file_;
    std::vector<std::string> lines_;
};

std::string kindOf(const YAML::Node& node) {
    switch (node.Type()) {
        case YAML::NodeType::Map:
            return "a mapping";
        case YAML::NodeType::Sequence:
            return "a list";
        case YAML::NodeType::Null:
            return "nothing";
        default:
            return fmt::format("'{}'", node.Scalar());
    }
}

/* A place in the file, named by the keys that lead there. */
class Place {
  public:
    Place(Faults& faults, const YAML::Node& node, std::string name)
        : faults_(&faults), node_(node), name_(std::move(name)) {}

    const YAML::Node& node() const { return node_; }
    const std::string& name() const { return name_; }

    void fault(const std::string& what) const {
        faults_->add(node_.Mark(), name_.empty() ? what : fmt::format("{}: {}", name_, what));
    }

    Place inner(const std::string& key, const YAML::Node& node) const {
        return {*faults_, node, name_.empty() ? key : fmt::format("{}.{}", name_, key)};
    }

    /* Calls back for each key of a mapping; anything else is a fault, which says what would be right. */
    void eachKey(const char* wanted, const std::function<void(const std::string&, const Place&)>& each) const {
        if (!node_.IsMap()) {
            fault(fmt::format("{} stands here where {} is wanted", kindOf(node_), wanted));
            return;
        }
        std::set<std::string> seen;
        for (const auto& pair : node_) {
            if (!pair.first.IsScalar()) {
                inner("?", pair.first).fault("a key must be a text");
                continue;
            }
            const std::string key = pair.first.Scalar();
            if (!seen.insert(key).second) {
                inner(key, pair.first).fault("stands here a second time");
                continue;
            }
            each(key, inner(key, pair.second));
        }
    }

    /* The text of a scalar; a fault and "" for anything else. */
    std::string text(const char* wanted) const {
        if (!node_.IsScalar() || node_.Scalar().empty()) {
            fault(fmt::format("{} stands here where {} is wanted", kindOf(node_), wanted));
            return {};
        }
        return node_.Scalar();
    }

  private:
    Faults* faults_;
    YAML::Node node_;
    std::string name_;
};

/* What a key does, by its name; any other key is a fault. */
struct Key {
    std::string_view name;
    std::function<void(const Place&)> take;
};

void takeKeys(const Place& place, const char* wanted, const std::vector<Key>& keys) {
    place.eachKey(wanted, [&](const std::string& name, const Place& value) {
        const auto key = std::ranges::find(keys, name, &Key::name);
        if (key == keys.end()) {
            std::vector<std::string_view> names;
            std::ranges::transform(keys, std::back_inserter(names), &Key::name);
            value.fault(fmt::format("there is no such key; the keys here are {}", fmt::join(names, ", ")));
        } else {
            key->take(value);
        }
    });
}

template <std::unsigned_integral Number>
void takeNumber(const Place& place, Number& number, Number least, Number most) {
    const std::string text = place.node().IsScalar() ? place.node().Scalar() : "";
    Number read = 0;
    const char* const end = text.data() + text.size();
    if (const auto [rest, error] = std::from_chars(text.data(), end, read);
        error != std::errc{} || rest != end || read < least || read > most) {
        place.fault(fmt::format("{} is no whole number from {} to {}", kindOf(place.node()), least, most));
    } else {
        number = read;
    }
}

void takeTruth(const Place& place, bool& truth) {
    const std::string text = place.node().IsScalar() ? place.node().Scalar() : "";
    if (text != "true" && text != "false") {
        place.fault(fmt::format("{} is neither true nor false", kindOf(place.node())));
    } else {
        truth = text == "true";
    }
}

milliseconds takeSpan(const Place& place) {
    const std::string text = place.text("a time span, as in 500ms, 1s, 2m or 1h,");
    if (!text.empty()) {
        try {
            return host::parseDuration(text);
        } catch (const host::UsageError& error) {
            place.fault(error.what());
        }
    }
    return {};
}

void takeInterval(const Place& place, milliseconds& every) {
    const milliseconds span = takeSpan(place);
    if (span.count() > 0 && span < kShortestInterval) {
        place.fault(
            fmt::format("'{}' is shorter than {}", place.node().Scalar(), host::durationText(kShortestInterval)));
    } else if (span.count() > 0) {
        every = span;
    }
}

// A span that the plug-in takes in whole seconds.
void takeSeconds(const Place& place, std::optional<uint32_t>& seconds) {
    const milliseconds span = takeSpan(place);
    if (span % std::chrono::seconds(1) != milliseconds(0)) {
        place.fault(fmt::format("'{}' is no whole number of seconds", place.node().Scalar()));
    } else if (span.count() > 0) {
        seconds = static_cast<uint32_t>(span / std::chrono::seconds(1));
    }
}

void takeSize(const Place& place, uint64_t& size, uint64_t least, uint64_t most) {
    constexpr std::array<std::pair<std::string_view, int>, 3> kUnits = {{{"KiB", 10}, {"MiB", 20}, {"GiB", 30}}};
    const std::string text = place.text("a size, as in 64MiB,");
    if (text.empty()) {
        return;
    }
    uint64_t number = 0;
    const auto [rest, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    const auto* const unit =
        std::ranges::find(kUnits, std::string_view(rest), &std::pair<std::string_view, int>::first);
    if (error != std::errc{} || unit == kUnits.end() || number > most >> unit->second ||
        number << unit->second < least) {
        place.fault(fmt::format("'{}' is no size from {}KiB to {}GiB: write a whole number and KiB, MiB or GiB", text,
                                least >> 10, most >> 30));
        return;
    }
    size = number << unit->second;
}

template <class Choice>
void takeChoice(const Place& place, Choice& choice,
                std::initializer_list<std::pair<std::string_view, Choice>> choices) {
    const std::string text = place.node().IsScalar() ? place.node().Scalar() : "";
    std::vector<std::string_view> names;
    for (const auto& [name, value] : choices) {
        if (name == text) {
            choice = value;
            return;
        }
        names.push_back(name);
    }
    place.fault(fmt::format("{} stands here where one of {} is wanted", kindOf(place.node()), fmt::join(names, ", ")));
}

void takeFile(const Place& place, std::string& file) {
    file = place.text("the name of a file");
    if (file.size() >= PATH_MAX) {
        place.fault(fmt::format("the name of a file has at most {} bytes, this one {}", PATH_MAX - 1, file.size()));
    } else if (!file.empty() && file.front() != '/') {
        place.fault(fmt::format("'{}' is no whole path: begin it with /", file));
    }
}

void takeAddress(const Place& place, Configuration::Address& address) {
    const std::string text = place.text("an address, as in 127.0.0.1:9464,");
    if (text.empty()) {
        return;
    }
    try {
        const host::ListenAddress checked(text);
    } catch (const host::UsageError& error) {
        place.fault(error.what());
        return;
    }
    address = text;
}

// A name that files, labels and message keys can carry.
bool checkName(const Place& place, const std::string& name) {
    constexpr std::string_view kCharacters = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_.-";
    if (name.empty() || name.size() > kLongestName || name.find_first_not_of(kCharacters) != std::string::npos) {
        place.fault(fmt::format("a name has 1 to {} letters, digits, '_', '.' and '-'", kLongestName));
        return false;
    }
    return true;
}

void takeFeed(const Place& place, Configuration::Feed& feed) {
    using Source = Configuration::Feed::Source;
    if (place.node().IsScalar()) {
        takeChoice<Source>(place, feed.source,
                           {{"none", Source::none}, {"kernel", Source::kernel}, {"sim", Source::sim}});
        return;
    }
    std::vector<Place> simulated;
    const auto ofDevice = [&](std::string_view name, auto& number, auto least, auto most) {
        return Key{name, [&, least, most](const Place& value) {
                       takeNumber(value, number, decltype(least)(least), decltype(least)(most));
                       simulated.push_back(value);
                   }};
    };
    takeKeys(place, "a mapping with a source, or none",
             {{"source",
               [&](const Place& value) {
                   takeChoice<Source>(value, feed.source,
                                      {{"kernel", Source::kernel}, {"sim", Source::sim}, {"none", Source::none}});
               }},
              {"every", [&](const Place& value) { takeInterval(value, feed.every); }},
              ofDevice("slots", feed.device.slots, 1U, feed::SimOptions::kMaxSlots),
              ofDevice("ports", feed.device.ports, 1U, feed::SimOptions::kMaxPorts),
              ofDevice("load", feed.device.load, 0U, feed::SimOptions::kMaxLoad),
              ofDevice("seed", feed.device.seed, uint64_t{0}, std::numeric_limits<uint64_t>::max()),
              ofDevice("speed", feed.speed, 1U, feed::SimFeedOptions::kMaxSpeed)});
    for (const Place& value : simulated) {
        if (feed.source != Source::sim) {
            value.fault("only a feed with source: sim has this");
        }
    }
}

void takeConditions(const Place& place, std::vector<host::Subscription::Condition>& conditions) {
    place.eachKey("a mapping of fields to values", [&](const std::string& field, const Place& value) {
        // A list of values are as many conditions, all of which must hold.
        if (value.node().IsSequence()) {
            for (const auto& each : value.node()) {
                conditions.push_back({field, value.inner(field, each).text("a value")});
            }
        } else {
            conditions.push_back({field, value.text("a value")});
        }
    });
}

void takeThresholds(const Place& place, std::vector<host::Subscription::Threshold>& thresholds) {
    const auto take = [&](const Place& one) {
        const std::string text = one.text("a comparison, as in pass-packets>100,");
        if (text.empty()) {
            return;
        }
        try {
            thresholds.push_back(host::parseThreshold(text));
        } catch (const host::SubscriptionError& error) {
            one.fault(error.what());
        }
    };
    if (place.node().IsSequence()) {
        for (const auto& each : place.node()) {
            take(place.inner("", each));
        }
    } else {
        take(place);
    }
}

void takeSubscription(const Place& place, const std::string& name, Configuration& configuration) {
    host::Subscription subscription;
    subscription.every = milliseconds(1000);
    std::map<std::string, Place> places;
    const auto key = [&](std::string_view keyName, auto take) {
        return Key{keyName, [&, take](const Place& value) {
                       places.insert_or_assign(value.name().substr(value.name().rfind('.') + 1), value);
                       take(value);
                   }};
    };
    takeKeys(
        place, "a mapping with a path",
        {key("path", [&](const Place& value) { subscription.alias = value.text("the alias of a path"); }),
         key("every", [&](const Place& value) { takeInterval(value, subscription.every); }),
         key("encoding",
             [&](const Place& value) {
                 takeChoice<QosTlmEncodeType>(value, subscription.encoding,
                                              {{"gpb", QOS_TLM_ENCODE_GPB}, {"json", QOS_TLM_ENCODE_JSON}});
             }),
         key("where", [&](const Place& value) { takeConditions(value, subscription.conditions); }),
         key("threshold", [&](const Place& value) { takeThresholds(value, subscription.thresholds); }),
         key("relation",
             [&](const Place& value) {
                 QosTlmThresholdRelation relation = QOS_TLM_RELATION_AND;
                 takeChoice<QosTlmThresholdRelation>(
                     value, relation, {{"and", QOS_TLM_RELATION_AND}, {"second", QOS_TLM_RELATION_SECOND}});
                 subscription.relation = relation;
             }),
         key("period", [&](const Place& value) { takeSeconds(value, subscription.period); }),
         key("suppress-redundant", [&](const Place& value) { takeSeconds(value, subscription.redundantPeriod); })});
    if (!places.contains("path")) {
        place.fault("the subscription names no path: add path: and one of the aliases");
        return;
    }
    if (host::findInCatalogue(subscription.alias) == nullptr) {
        std::vector<std::string_view> aliases;
        std::ranges::transform(host::catalogue(), std::back_inserter(aliases), &host::Catalogued::alias);
        if (!subscription.alias.empty()) {
            places.at("path").fault(
                fmt::format("there is no path '{}'; the paths are {}", subscription.alias, fmt::join(aliases, ", ")));
        }
        return;
    }
    try {
        requestOf(subscription);
    } catch (const host::SubscriptionError& error) {
        const auto at = places.find(error.setting());
        (at == places.end() ? place : at->second).fault(error.what());
        return;
    }
    configuration.subscriptions.emplace(name, std::move(subscription));
}

void addOutput(const Place& place, const std::string& name, Configuration::Output output,
               Configuration& configuration) {
    const auto receiver = receiverOf(output);
    const auto other = std::ranges::find_if(configuration.outputs,
                                            [&](const auto& each) { return receiverOf(each.second) == receiver; });
    if (other != configuration.outputs.end() && !receiver.second.ends_with(":0")) {
        place.fault(fmt::format("the output {} has '{}' already: each needs its own", other->first, receiver.second));
        return;
    }
    configuration.outputs.emplace(name, std::move(output));
}

void takeOutput(const Place& place, const std::string& name, Configuration& configuration) {
    enum class Type : uint8_t { none, prometheus, capture };
    Type type = Type::none;
    const YAML::Node typeNode = place.node().IsMap() ? place.node()["type"] : YAML::Node();
    if (!typeNode) {
        place.fault("an output is a mapping with a type, one of prometheus, capture");
        return;
    }
    takeChoice<Type>(place.inner("type", typeNode), type,
                     {{"prometheus", Type::prometheus}, {"capture", Type::capture}});
    const Key typeKey = {"type", [](const Place&) {}};
    if (type == Type::prometheus) {
        Configuration::Prometheus output;
        takeKeys(place, "a mapping",
                 {typeKey, {"listen", [&](const Place& value) { takeAddress(value, output.listen); }}});
        addOutput(place, name, output, configuration);
    } else if (type == Type::capture) {
        Configuration::CaptureFile output;
        takeKeys(place, "a mapping",
                 {typeKey,
                  {"file", [&](const Place& value) { takeFile(value, output.file); }},
                  {"buffer",
                   [&](const Place& value) { takeSize(value, output.buffer, uint64_t{256} << 10, uint64_t{4} << 30); }},
                  {"when-full", [&](const Place& value) {
                       takeChoice<bool>(value, output.dropOldest, {{"drop-oldest", true}, {"drop-newest", false}});
                   }}});
        if (output.file.empty()) {
            place.fault("a capture needs a file: add file: and a path");
            return;
        }
        addOutput(place, name, output, configuration);
    }
}

void takeGnmi(const Place& place, std::optional<Configuration::Gnmi>& gnmi) {
    Configuration::Gnmi read;
    takeKeys(
        place, "a mapping",
        {{"listen", [&](const Place& value) { takeAddress(value, read.listen); }},
         {"certificate", [&](const Place& value) { takeFile(value, read.certificate); }},
         {"key", [&](const Place& value) { takeFile(value, read.key); }},
         {"client-ca", [&](const Place& value) { takeFile(value, read.clientCa); }},
         {"insecure", [&](const Place& value) { takeTruth(value, read.insecure); }},
         {"allow-remote", [&](const Place& value) { takeTruth(value, read.allowRemote); }},
         {"max-subscriptions", [&](const Place& value) { takeNumber(value, read.maxSubscriptions, 1U, 1000U); }},
         {"buffer", [&](const Place& value) { takeSize(value, read.buffer, uint64_t{64} << 10, uint64_t{1} << 30); }}});
    if (read.certificate.empty() != read.key.empty()) {
        place.fault("certificate and key belong together: give both, or neither");
    } else if (read.certificate.empty() && !read.insecure) {
        place.fault("give certificate and key, or insecure: true to speak without TLS");
    } else if (!read.certificate.empty() && read.insecure) {
        place.fault("insecure: true leaves no use for the certificate: leave one of them out");
    } else if (!read.clientCa.empty() && read.certificate.empty()) {
        place.fault("client-ca needs certificate and key");
    }
    gnmi = read;
}

std::string nameOfMachine() {
    std::array<char, HOST_NAME_MAX + 1> name{};
    return gethostname(name.data(), name.size() - 1) == 0 ? name.data() : "localhost";
}

/* At most so many; the first one too many is a fault, and the rest is not looked at. */
template <class Take>
Key entries(std::string_view name, const char* wanted, size_t most, const Take& take) {
    return {name, [=](const Place& place) {
                size_t count = 0;
                place.eachKey(wanted, [&](const std::string& key, const Place& value) {
                    ++count;
                    if (count == most + 1) {
                        value.fault(
                            fmt::format("there are at most {} {}: leave out this one and those after it", most, name));
                    } else if (count <= most && checkName(value, key)) {
                        take(value, key);
                    }
                });
            }};
}

}  // namespace

std::pair<size_t, std::string> receiverOf(const Configuration::Output& settings) {
    const auto* const prometheus = std::get_if<Configuration::Prometheus>(&settings);
    return {settings.index(),
            prometheus != nullptr ? prometheus->listen : std::get<Configuration::CaptureFile>(settings).file};
}

Configuration parseConfiguration(const std::string& text, const std::string& file) {
    Faults faults(file);
    Configuration configuration;
    configuration.device = nameOfMachine();
    try {
        const Place whole(faults, YAML::Load(text), "");
        takeKeys(whole, "a mapping, as in subscriptions: {queues: {path: queue-statistics}},",
                 {{"device",
                   [&](const Place& value) {
                       configuration.device = value.text("a name");
                       if (!configuration.device.empty()) {
                           checkName(value, configuration.device);
                       }
                   }},
                  {"feed", [&](const Place& value) { takeFeed(value, configuration.feed); }},
                  {"database", [&](const Place& value) { takeFile(value, configuration.database); }},
                  entries("subscriptions", "a mapping of names to subscriptions", kMostSubscriptions,
                          [&](const Place& value, const std::string& name) {
                              takeSubscription(value, name, configuration);
                          }),
                  entries("outputs", "a mapping of names to outputs", kMostOutputs,
                          [&](const Place& value, const std::string& name) { takeOutput(value, name, configuration); }),
                  {"gnmi", [&](const Place& value) { takeGnmi(value, configuration.gnmi); }}});
        if (configuration.feed.source == Configuration::Feed::Source::none && configuration.database.empty()) {
            whole.fault("without a feed there is nothing to read: name a database, or a feed");
        }
    } catch (const YAML::Exception& error) {
        faults.add(error.mark, fmt::format("this is no YAML: {}", error.msg));
    }
    faults.throwIfAny();
    return configuration;
}

Configuration readConfiguration(const std::string& file) {
    std::ifstream stream(file, std::ios::binary);
    std::string text(kLongestFile + 1, '\0');
    if (!stream || (stream.read(text.data(), static_cast<std::streamsize>(text.size())), stream.bad())) {
        throw ConfigurationError(fmt::format("cannot read the configuration '{}': {}", file, std::strerror(errno)));
    }
    text.resize(static_cast<size_t>(stream.gcount()));
    if (text.size() > kLongestFile) {
        throw ConfigurationError(fmt::format("the configuration '{}' has more than {} bytes", file, kLongestFile));
    }
    return parseConfiguration(text, file);
}

Configuration defaultConfiguration() {
    Configuration configuration;
    configuration.device = nameOfMachine();
    for (const host::Catalogued& path : host::catalogue()) {
        // The kernel knows neither chips nor lossless queues.
        if (path.alias != "tm-chip-buffer-usage-statistics" && path.alias != "intf-ing-buf-usage-statistics") {
            host::Subscription subscription;
            subscription.alias = path.alias;
            subscription.every = milliseconds(1000);
            configuration.subscriptions.emplace(path.alias, std::move(subscription));
        }
    }
    configuration.outputs.emplace("metrics", Configuration::Prometheus());
    Configuration::Gnmi gnmi;
    gnmi.insecure = true;
    configuration.gnmi = gnmi;
    return configuration;
}

}  // namespace agent
