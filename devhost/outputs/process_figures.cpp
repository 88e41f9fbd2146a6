#include "devhost/outputs/process_figures.h"

#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <system_error>
#include <utility>

namespace outputs {

namespace {

using host::MetricType;

void add(std::vector<host::Figure>& figures, host::Metric metric, std::variant<uint64_t, double> value) {
    figures.push_back({std::move(metric), {{{}, value}}});
}

/* The fields of /proc/self/stat behind the program's name, which may have any character. */
std::vector<uint64_t> statFields() {
    std::ifstream file("/proc/self/stat");
    std::string line;
    std::getline(file, line);
    std::istringstream rest(line.substr(std::min(line.rfind(')') + 1, line.size())));
    std::string state;
    rest >> state;
    std::vector<uint64_t> fields;
    for (std::string field; rest >> field;) {
        fields.push_back(field.front() == '-' ? 0 : std::stoull(field));
    }
    return fields;
}

/* Seconds since 1970 at which the machine started; 0 when unknown. */
uint64_t bootTime() {
    std::ifstream file("/proc/stat");
    for (std::string line; std::getline(file, line);) {
        constexpr std::string_view kName = "btime ";
        if (line.starts_with(kName)) {
            return std::stoull(line.substr(kName.size()));
        }
    }
    return 0;
}

}  // namespace

std::vector<host::Figure> processFigures() {
    // As proc(5) counts them, the program's name being the second and its state the third.
    constexpr size_t kFirst = 4;
    constexpr size_t kUserTime = 14 - kFirst;
    constexpr size_t kSystemTime = 15 - kFirst;
    constexpr size_t kStartTime = 22 - kFirst;
    constexpr size_t kVirtualSize = 23 - kFirst;
    constexpr size_t kPages = 24 - kFirst;
    const std::vector<uint64_t> fields = statFields();
    const auto ticks = static_cast<double>(sysconf(_SC_CLK_TCK));
    std::vector<host::Figure> figures;
    if (fields.size() > kPages) {
        static const auto booted = static_cast<double>(bootTime());
        add(figures,
            {"process_cpu_seconds_total", MetricType::counter, "seconds", "User and system time that the agent took."},
            static_cast<double>(fields[kUserTime] + fields[kSystemTime]) / ticks);
        add(figures, {"process_resident_memory_bytes", MetricType::gauge, "bytes", "Memory of the agent in use."},
            fields[kPages] * static_cast<uint64_t>(sysconf(_SC_PAGESIZE)));
        add(figures, {"process_virtual_memory_bytes", MetricType::gauge, "bytes", "Memory of the agent in addresses."},
            fields[kVirtualSize]);
        add(figures,
            {"process_start_time_seconds", MetricType::gauge, "seconds", "When the agent started, since 1970."},
            booted + static_cast<double>(fields[kStartTime]) / ticks);
    }
    std::error_code error;
    const std::filesystem::directory_iterator files("/proc/self/fd", error);
    if (!error) {
        const auto open = std::distance(begin(files), end(files));
        // One of them reads the folder.
        add(figures, {"process_open_fds", MetricType::gauge, "", "Open files of the agent."},
            static_cast<uint64_t>(open - 1));
    }
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) == 0) {
        add(figures, {"process_max_fds", MetricType::gauge, "", "Files that the agent may have open."},
            uint64_t{limit.rlim_cur});
    }
    return figures;
}

}  // namespace outputs
