/*
 * The subcommands of qos-host. Each lives in its own source; command_line.cpp fills the options and runs it.
 *
 * A command answers an exit code. It throws UsageError for arguments that only it can judge and any other
 * std::exception when the work fails. SIGPIPE is ignored: a reader that goes away shows as a failed write, which ends
 * the program quietly. An empty pluginFile: the plug-in is looked for.
 */
#ifndef DEVHOST_CLI_COMMANDS_H
#define DEVHOST_CLI_COMMANDS_H

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "nivex_qos/sample.h"

namespace host {

struct PathsOptions {
    bool json = false;
};

struct SampleOptions {
    std::string path;
    std::string database;
    std::string encoding = "gpb";
    std::optional<std::string> output;  // "table", but "none" with a capture on standard output
    std::vector<std::string> columns;
    std::vector<std::string> conditions;
    std::vector<std::string> thresholds;
    std::string relation;
    std::string capture;
    std::chrono::milliseconds every{0};
    std::optional<uint64_t> count;
    uint32_t subscription = 1;
    std::optional<uint32_t> period;
    std::optional<uint32_t> redundantPeriod;

    QosTlmEncodeType encodeType() const { return encoding == "json" ? QOS_TLM_ENCODE_JSON : QOS_TLM_ENCODE_GPB; }
};

struct DecodeOptions {
    std::string file;
    std::optional<std::string> output;  // "table"
    std::vector<std::string> columns;
};

struct DemoOptions {
    uint32_t seconds = 8;
    std::string database;
};

int runPaths(const PathsOptions& options, const std::string& pluginFile);
int runSample(const SampleOptions& options, const std::string& pluginFile);
int runDecode(const DecodeOptions& options);
int runDemo(const DemoOptions& options, const std::string& pluginFile);

}  // namespace host

#endif
