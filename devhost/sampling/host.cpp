#include "devhost/sampling/host.h"

#include <dlfcn.h>
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <utility>

#include "devhost/platform/stand_in.h"
#include "devhost/qosdb/qosdb.h"
#include "devhost/sampling/catalogue.h"
#include "devhost/support/exit.h"
#include "devhost/support/stop.h"

namespace host {

namespace {

constexpr uint32_t kModuleId = 1;
constexpr const char* kPluginName = "libnivex_qos_plugin.so";

// The plug-in calls back without an argument of ours: this is where its calls leave what they bring.
struct Received {
    std::vector<Path> paths;
    std::vector<Batch> batches;
    std::vector<std::string> messages;
};
Received received;

std::string boundedText(const char* text, size_t size) {
    return {text, strnlen(text, size)};
}

uint32_t registerPath(uint32_t moduleId, const char* xpath, const QosTlmXpathRegInfo* info) noexcept {
    if (moduleId != kModuleId || info->queryFunc == nullptr) {
        return 1;
    }
    received.paths.push_back({boundedText(info->xpathAlias, sizeof info->xpathAlias), xpath, info->queryFunc});
    return 0;
}

uint32_t takeBatch(uint32_t moduleId, const QosTlmSampleData* sample) noexcept {
    if (moduleId != kModuleId || sample->dataLen > sizeof sample->data) {
        return 1;
    }
    received.batches.push_back({
        .hostArg1 = sample->hostArg1,
        .hostArg2 = sample->hostArg2,
        .collectStartTime = sample->collectStartTime,
        .collectEndTime = sample->collectEndTime,
        .encodeTimeSpend = sample->encodeTimeSpend,
        .recordCount = sample->recordCount,
        .payload = {reinterpret_cast<const char*>(sample->data), sample->dataLen},
    });
    return 0;
}

constexpr QosTlmFrmVtbl kFunctionTable = {
    .hostDefined = {}, .sampleXpathRegister = registerPath, .sampleDataUpload = takeBatch};

// The library's handle is never given back: the plug-in stays for the life of the process.
void* loadPlugin(const std::string& pluginFile) {
    std::vector<std::string> candidates = {pluginFile};
    if (pluginFile.empty()) {
        const auto program = std::filesystem::read_symlink("/proc/self/exe");
        candidates = {program.parent_path().parent_path() / "lib" / kPluginName, kPluginName};
    } else if (pluginFile.find('/') == std::string::npos) {
        candidates = {"./" + pluginFile};  // a file, where the loader would search its path for a bare name
    }
    std::vector<std::string> failures;
    for (const std::string& candidate : candidates) {
        if (void* library = dlopen(candidate.c_str(), RTLD_NOW | RTLD_LOCAL)) {
            return library;
        }
        failures.emplace_back(dlerror());
    }
    throw std::runtime_error(fmt::format("cannot load the plug-in: {}", fmt::join(failures, "; ")));
}

// All calls of a pass read one state of the database.
struct ScopedState {
    ScopedState() { QosDb_BeginPass(); }
    ~ScopedState() { QosDb_EndPass(); }
    ScopedState(const ScopedState&) = delete;
    ScopedState& operator=(const ScopedState&) = delete;
};

std::optional<uint64_t> rowsOf(const Path& path) {
    const Catalogued* const entry = findInCatalogue(path.alias);
    uint64_t rows = 0;
    if (entry == nullptr || QosDb_CountRows(entry->table.c_str(), &rows) != 0) {
        return {};
    }
    return rows;
}

}  // namespace

Host::Host(const std::string& pluginFile) {
    void* const library = loadPlugin(pluginFile);
    const auto find = [&](const char* name) {
        if (void* function = dlsym(library, name)) {
            return function;
        }
        throw std::runtime_error(fmt::format("{} is not the plug-in, or too old a one: it has no {}",
                                             pluginFile.empty() ? kPluginName : pluginFile, name));
    };
    const auto initPlugin = reinterpret_cast<decltype(&QOS_TLM_InitPlugin)>(find("QOS_TLM_InitPlugin"));
    const auto setBatchPolicy = reinterpret_cast<decltype(&QOS_TLM_SetBatchPolicy)>(find("QOS_TLM_SetBatchPolicy"));
    devhost::setFunctionTable(&kFunctionTable);
    devhost::setLogSink([](uint32_t, uint32_t, std::string_view text) { received.messages.emplace_back(text); });
    const uint32_t result = initPlugin(kModuleId);
    if (result != 0 || !received.messages.empty() || received.paths.empty()) {
        throw std::runtime_error(fmt::format("the plug-in does not start, result {}, {} paths registered: {}", result,
                                             received.paths.size(), fmt::join(received.messages, " ")));
    }
    if (const uint32_t refused = setBatchPolicy(QOS_TLM_BATCH_BY_PAYLOAD); refused != 0) {
        throw std::runtime_error(fmt::format("the plug-in refuses to end batches by payload, result {}", refused));
    }
    paths_ = std::exchange(received.paths, {});
}

const Path& Host::path(std::string_view name) const {
    std::vector<std::string> aliases;
    for (const Path& path : paths_) {
        if (path.alias == name || path.xpath == name) {
            return path;
        }
        aliases.push_back(path.alias);
    }
    throw UsageError(fmt::format("there is no path '{}'; the paths are {}", name, fmt::join(aliases, ", ")));
}

Pass Host::runPass(const Path& path, const QosTlmQueryParam& request, uint32_t subscriptionId,
                   const std::function<void(Batch)>& onBatch, const std::function<void()>& atEnd) {
    const ScopedState state;
    Pass pass;
    bool sent = false;
    do {
        const size_t messagesBefore = received.messages.size();
        pass.result = path.queryFunc(subscriptionId, nextNumber_, &request);
        sent = !received.batches.empty();
        // A call that had nothing to send leaves its number to the next; one that failed does not, so that a gap shows.
        nextNumber_ += sent || received.messages.size() > messagesBefore || pass.result == QOS_TLM_RESULT_FAILED;
        for (Batch& batch : std::exchange(received.batches, {})) {
            pass.records += batch.recordCount;
            pass.bytes += batch.payload.size();
            pass.encodeTime += batch.encodeTimeSpend;
            onBatch ? onBatch(std::move(batch)) : pass.batches.push_back(std::move(batch));
        }
    } while (pass.result == QOS_TLM_RESULT_MORE && sent && !stopRequested());
    if (pass.result != QOS_TLM_RESULT_FAILED) {  // else both could, for the same reason, which is to be said once
        pass.rows = rowsOf(path);
        if (atEnd) {
            atEnd();
        }
    }
    pass.messages = std::exchange(received.messages, {});
    if (pass.result == QOS_TLM_RESULT_MORE && !sent) {
        pass.messages.push_back(fmt::format("{} says that records remain, but sends none", path.alias));
    }
    return pass;
}

}  // namespace host
