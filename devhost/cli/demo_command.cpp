#include <fmt/format.h>
#include <stdlib.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <memory>
#include <system_error>

#include "devhost/cli/commands.h"
#include "devhost/cli/lab.h"
#include "devhost/cli/output.h"
#include "devhost/feed/kernel_feed.h"
#include "devhost/feed/netlink.h"
#include "devhost/feed/sim_feed.h"
#include "devhost/feed/simulated_device.h"
#include "devhost/qosdb/qosdb.h"
#include "devhost/qosdb/store.h"
#include "devhost/sampling/catalogue.h"
#include "devhost/sampling/decode.h"
#include "devhost/sampling/host.h"
#include "devhost/support/exit.h"
#include "devhost/support/shown.h"
#include "devhost/support/stop.h"
#include "devhost/support/trouble.h"

namespace host {

namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

constexpr const char* kAlias = "queue-statistics";
constexpr uint32_t kSubscriptionId = 1;
constexpr size_t kShownQueues = 16;

class TemporaryDirectory {
  public:
    TemporaryDirectory() : path_((std::filesystem::temp_directory_path() / "qos-host-XXXXXX").string()) {
        if (mkdtemp(path_.data()) == nullptr) {
            throw std::system_error(errno, std::generic_category(), "cannot make a directory " + path_);
        }
    }
    ~TemporaryDirectory() { remove(); }
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    std::string file(const char* name) const { return path_ + "/" + name; }

  private:
    void remove() const {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }

    std::string path_;
    AtForcedStop atForcedStop_{[this] { remove(); }};
};

/* A record whose values are found by the names of the schema. */
struct Queue {
    const Catalogued& entry;
    Row row;

    const std::string& operator[](std::string_view field) const {
        const std::vector<std::string> names = entry.fieldNames();
        return row.at(static_cast<size_t>(std::ranges::find(names, field) - names.begin()));
    }
};

struct Sample {
    const char* name;
    Pass pass;
    std::vector<Queue> queues;
};

/* The three parts that the demo joins: the kernel's counters go through the database into the plug-in. */
class Demo {
  public:
    Demo(const std::string& database, const std::string& pluginFile, int netns)
        : database_(database),
          store_(database),
          kernel_(netns),
          feed_(kernel_, store_, [](const std::string& line) { fmt::print("  {}\n", shown(line)); }),
          plugin_(pluginFile),
          path_(plugin_.path(kAlias)),
          entry_(*findInCatalogue(kAlias)) {
        QosDb_SetFile(database_.c_str());
    }

    void feed() {
        std::vector<std::string> troubles;
        try {
            mark_.advance();
            troubles = feed_.round(Clock::now(), std::chrono::system_clock::now(), mark_).troubles;
        } catch (const feed::NetlinkError& error) {
            troubles.emplace_back(error.what());
        }
        for (const std::string& trouble : troubles) {
            report(trouble);
        }
    }

    Sample sample(QosTlmEncodeType encoding) {
        Sample sample = {encoding == QOS_TLM_ENCODE_GPB ? "GPB" : "JSON", runPass(path_, encoding), {}};
        for (Row& row : decodeBatches(entry_, encoding, sample.pass.batches)) {
            sample.queues.push_back({entry_, std::move(row)});
        }
        return sample;
    }

    /* A line for each path: the kernel's records where it has some, else those of the other database. */
    void printPaths(const std::string& simulated) {
        constexpr const char* kLine = "  {:<31} {:<9} {:>7}  {:>10} {:>7}  {:>10} {:>7}\n";
        fmt::print(kLine, "path", "source", "records", "GPB bytes", "batches", "JSON bytes", "batches");
        for (const Path& path : plugin_.paths()) {
            const char* source = "kernel";
            Pass gpb = decodedPass(path, QOS_TLM_ENCODE_GPB);
            if (gpb.records == 0) {
                source = "simulated";
                QosDb_SetFile(simulated.c_str());
                gpb = decodedPass(path, QOS_TLM_ENCODE_GPB);
            }
            const Pass json = decodedPass(path, QOS_TLM_ENCODE_JSON);
            QosDb_SetFile(database_.c_str());
            fmt::print(kLine, shown(path.alias), source, gpb.records, gpb.bytes, gpb.batches.size(), json.bytes,
                       json.batches.size());
            if (gpb.records == 0 || json.records != gpb.records) {
                throw std::runtime_error(
                    fmt::format("{} has {} records in GPB, {} in JSON", path.alias, gpb.records, json.records));
            }
        }
    }

  private:
    Pass runPass(const Path& path, QosTlmEncodeType encoding) {
        QosTlmQueryParam request = {};
        request.encodeType = encoding;
        Pass pass = plugin_.runPass(path, request, kSubscriptionId);
        for (const std::string& message : pass.messages) {
            report(message);
        }
        if (stopRequested()) {
            throw Stopped();
        }
        if (pass.result == QOS_TLM_RESULT_FAILED || !pass.messages.empty()) {
            throw std::runtime_error(fmt::format("sampling {} failed", path.alias));
        }
        return pass;
    }

    // Decodes what it brings as well, which finds faults in it.
    Pass decodedPass(const Path& path, QosTlmEncodeType encoding) {
        Pass pass = runPass(path, encoding);
        if (const Catalogued* entry = findInCatalogue(path.alias)) {
            decodeBatches(*entry, encoding, pass.batches);
        }
        return pass;
    }

    std::string database_;
    qosdb::Store store_;
    feed::NetlinkSocket kernel_;
    feed::KernelFeed feed_;
    qosdb::FeedMark mark_ = qosdb::FeedMark::ofThisProcess("kernel", 1s);
    Host plugin_;
    const Path& path_;
    const Catalogued& entry_;
};

void printSample(const Sample& sample) {
    fmt::print("  {:<4}  records {}, bytes {}, batches {}, encoding time {} us\n", sample.name, sample.pass.records,
               sample.pass.bytes, sample.pass.batches.size(), sample.pass.encodeTime);
}

void printQueues(const std::vector<Queue>& queues) {
    constexpr const char* kLine = "  {:<15} {:>5}  {:>12} {:>12} {:>12}  {:>12} {:>12}\n";
    fmt::print(kLine, "interface", "queue", "pass pkt/s", "pass byte/s", "pass packets", "drop pkt/s", "drop packets");
    for (size_t index = 0; index < std::min(queues.size(), kShownQueues); ++index) {
        const Queue& queue = queues[index];
        fmt::print(kLine, shown(queue["interface-name"]), queue["service-class"], queue["pass-packet-rate"],
                   queue["pass-byte-rate"], queue["pass-packets"], queue["discard-packet-rate"],
                   queue["discard-packets"]);
    }
    if (queues.size() > kShownQueues) {
        fmt::print("  ... and {} more\n", queues.size() - kShownQueues);
    }
}

void sleepUntil(Clock::time_point time) {
    if (waitUntil(time)) {
        throw Stopped();
    }
}

// A round each second.
void showRounds(Demo& demo, uint32_t seconds) {
    demo.feed();
    const auto begin = Clock::now();
    for (uint32_t second = 1; second <= seconds; ++second) {
        sleepUntil(begin + std::chrono::seconds(second));
        demo.feed();
        const Sample gpb = demo.sample(QOS_TLM_ENCODE_GPB);
        const Sample json = demo.sample(QOS_TLM_ENCODE_JSON);
        fmt::print("\nsecond {} of {}\n", second, seconds);
        printQueues(gpb.queues);
        printSample(gpb);
        printSample(json);
        flushOutput();
    }
}

void printAllPaths(Demo& demo, const std::string& simulated) {
    constexpr feed::SimulatedDevice::Milliseconds kSimulated = 10s;
    feed::SimOptions options;
    options.startTime = std::chrono::floor<feed::SimulatedDevice::Milliseconds>(
        std::chrono::system_clock::now().time_since_epoch() - kSimulated);
    feed::SimulatedDevice device(options);
    qosdb::Store store(simulated);
    feed::SimFeed feed(device, store);
    device.advance(kSimulated);
    feed.round();
    fmt::print("\nall paths; where the kernel has no records, {} s of a simulated device of {} slots with {} ports\n",
               kSimulated / 1s, options.slots, options.ports);
    demo.printPaths(simulated);
    flushOutput();
}

// Prints what differs; answers how many classes are as tc says.
size_t compare(const Sample& sample, const std::vector<ClassCounters>& classes) {
    size_t equal = 0;
    for (size_t index = 0; index < classes.size(); ++index) {
        const ClassCounters& counters = classes[index];
        const auto queue = std::ranges::find_if(
            sample.queues, [&](const Queue& each) { return each["service-class"] == std::to_string(index); });
        if (queue == sample.queues.end()) {
            fmt::print("  class {}: the {} sample has no queue {}\n", counters.handle, sample.name, index);
            continue;
        }
        bool same = true;
        const auto expect = [&](const char* field, uint64_t value) {
            if ((*queue)[field] != std::to_string(value)) {
                fmt::print("  class {}: {} is {} in the {} sample, tc says {}\n", counters.handle, field,
                           (*queue)[field], sample.name, value);
                same = false;
            }
        };
        expect("pass-packets", counters.packets);
        expect("pass-bytes", counters.bytes);
        expect("discard-packets", counters.drops);
        equal += same ? 1 : 0;
    }
    return equal;
}

// Waits until nothing is queued any more.
void drain(const Lab& lab) {
    const auto deadline = Clock::now() + 5s;
    const auto queued = [](const ClassCounters& counters) { return counters.queued != 0; };
    while (std::ranges::any_of(lab.readClasses(), queued)) {
        if (Clock::now() > deadline) {
            throw std::runtime_error("the lab's queues do not empty");
        }
        sleepUntil(Clock::now() + 50ms);
    }
}

int checkAgainstTc(Demo& demo, const Lab& lab) {
    constexpr int kAttempts = 5;
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        const std::vector<ClassCounters> classes = lab.readClasses();
        demo.feed();
        const Sample samples[] = {demo.sample(QOS_TLM_ENCODE_GPB), demo.sample(QOS_TLM_ENCODE_JSON)};
        if (lab.readClasses() != classes) {
            continue;
        }
        fmt::print("\nafter the traffic\n");
        printQueues(samples[0].queues);
        for (const ClassCounters& counters : classes) {
            if (counters.packets == 0) {
                throw std::runtime_error(fmt::format("no traffic has passed class {}", counters.handle));
            }
        }
        bool good = true;
        for (const Sample& sample : samples) {
            const size_t equal = compare(sample, classes);
            good = good && equal == classes.size() && sample.queues.size() == classes.size();
            fmt::print("the plug-in's {} sample equals tc: {} of {} classes\n", sample.name, equal, classes.size());
        }
        return good ? kDone : kFailed;
    }
    throw std::runtime_error("the lab's counters do not come to rest");
}

std::unique_ptr<Lab> makeLab() {
    try {
        auto lab = std::make_unique<Lab>();
        fmt::print(
            "Lab: a network of two namespaces; HTB with classes 1:10 to 1:17, from 400 to 1800 kbit/s.\n"
            "Traffic: UDP into every class, from 70 to 210 percent of its rate.\n");
        return lab;
    } catch (const LabUnavailable& error) {
        fmt::print("No lab on this machine ({}): sampling its own disciplines, with nothing to check them against.\n",
                   shown(error.what()));
        return nullptr;
    }
}

int runDemoToItsEnd(const DemoOptions& options, const std::string& pluginFile) {
    const TemporaryDirectory directory;
    const std::string database = options.database.empty() ? directory.file("qos.db") : options.database;
    const std::unique_ptr<Lab> lab = makeLab();
    flushOutput();
    Demo demo(database, pluginFile, lab ? lab->netns() : -1);
    if (lab) {
        lab->startTraffic();
    }
    showRounds(demo, options.seconds);
    printAllPaths(demo, directory.file("simulated.db"));
    if (!lab) {
        return kDone;
    }
    lab->stopTraffic();
    drain(*lab);
    return checkAgainstTc(demo, *lab);
}

}  // namespace

int runDemo(const DemoOptions& options, const std::string& pluginFile) {
    try {
        return runDemoToItsEnd(options, pluginFile);
    } catch (const Stopped&) {
        return stopCode();
    }
}

}  // namespace host
