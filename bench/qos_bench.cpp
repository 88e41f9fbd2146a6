// Runs the comparisons and prints their table.
#include <fmt/core.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <ctime>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>

#include "bench/comparisons.h"
#include "bench/host.h"
#include "bench/memory.h"

namespace {

using Json = nlohmann::ordered_json;

constexpr bench::Effort kFull{101, 0.003};
constexpr bench::Effort kQuick{1, 0};

std::string processor() {
    std::ifstream info("/proc/cpuinfo");
    for (std::string line; std::getline(info, line);) {
        if (line.rfind("model name", 0) == 0) {
            return line.substr(line.find(':') + 2);
        }
    }
    return "unknown";
}

Json settings(const bench::Effort& effort) {
    utsname machine{};
    uname(&machine);
    char date[sizeof "2026-01-01"] = "";
    const std::time_t now = std::time(nullptr);
    std::strftime(date, sizeof date, "%Y-%m-%d", std::gmtime(&now));
    return {
        {"date", date},
        {"machine", fmt::format("{}, {} processors, {}", processor(), sysconf(_SC_NPROCESSORS_ONLN), machine.machine)},
        {"compiler", NIVEX_QOS_COMPILER},
        {"build", NIVEX_QOS_BUILD},
        {"rounds", effort.rounds},
        {"seconds of a side in a round", effort.seconds}};
}

constexpr const char* kLine = "| {:73} | {:>8} | {:>8} | {:>6} | {:>13} | {:>4} | {:6} |\n";

void printHeader() {
    fmt::print(kLine, "The plug-in, against", "ns", "peer, ns", "ratio", "quartiles", "goal", "");
    fmt::print("|{:-<75}|{:->9}:|{:->9}:|{:->7}:|{:->14}:|{:->5}:|{:-<8}|\n", "", "", "", "", "", "", "");
}

void printRow(const Json& row) {
    const auto number = [](const Json& value, int digits) {
        return fmt::format("{:.{}f}", value.get<double>(), digits);
    };
    const Json& quartiles = row["ratio_quartiles"];
    const bool hasGoal = row.contains("goal");
    fmt::print(kLine, row["name"].get<std::string>(), number(row["subject_ns"], 1), number(row["peer_ns"], 1),
               number(row["ratio"], 3), fmt::format("{} - {}", number(quartiles[0], 3), number(quartiles[1], 3)),
               hasGoal ? number(row["goal"], 2) : "",
               !hasGoal                      ? ""
               : row["ratio"] <= row["goal"] ? "met"
                                             : "missed");
    std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app("Ratios of the plug-in's speed to peers and limits, and what it holds in memory");
    bool quick = false;
    std::string filter;
    std::string jsonFile;
    app.add_flag("--quick", quick, "Check every comparison and run it once: shows that it works, not how fast");
    app.add_option("--filter", filter, "Only comparisons whose name contains this");
    app.add_option("--json", jsonFile, "Also write the results to this file");
    CLI11_PARSE(app, argc, argv);

    const bench::Effort& effort = quick ? kQuick : kFull;
    Json results{{"settings", settings(effort)}, {"comparisons", Json::array()}};
    for (const auto& [name, value] : results["settings"].items()) {
        fmt::print("{}: {}\n", name, value.is_string() ? value.get<std::string>() : value.dump());
    }
    fmt::print("\n");
    printHeader();
    for (const bench::Comparison& comparison : bench::comparisons()) {
        if (comparison.name.find(filter) != std::string::npos) {
            printRow(results["comparisons"].emplace_back(bench::measure(comparison, effort)));
        }
    }
    if (filter.empty()) {
        results["memory"] = bench::memoryFigures();
    }
    if (!jsonFile.empty() && !(std::ofstream(jsonFile) << results.dump(2) << '\n')) {
        bench::fail(fmt::format("cannot write '{}'", jsonFile));
    }
    return 0;
}
