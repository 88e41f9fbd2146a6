/*
 * The host side of the plug-in: loads it as a device would, hands it the host function table, remembers what it
 * registers, and runs passes over its paths.
 *
 * One Host per process, made before the first sampling call and alive until the process ends; the plug-in is never
 * unloaded. The plug-in finds the platform's functions in this process and libdb_qos beside itself. It reads the
 * database named with QosDb_SetFile. Calls are made from one thread.
 */
#ifndef DEVHOST_SAMPLING_HOST_H
#define DEVHOST_SAMPLING_HOST_H

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "devhost/sampling/batch.h"
#include "nivex_qos/plugin.h"
#include "nivex_qos/sample.h"

namespace host {

/* A registered path. */
struct Path {
    std::string alias;
    std::string xpath;
    QosTlmQueryFunc queryFunc;
};

/* All sampling calls from the beginning to the end of a path's table, or to the first that failed. */
struct Pass {
    uint32_t result = QOS_TLM_RESULT_DONE;  // of the last call; MORE when a stop was requested in mid-pass
    uint64_t records = 0;                   // of all batches, as their headers count them
    uint64_t bytes = 0;                     // of payload
    uint64_t encodeTime = 0;                // microseconds
    std::vector<Batch> batches;             // in the order of upload; none where they were handed on
    std::vector<std::string> messages;      // what the plug-in and the database logged meanwhile
    std::optional<uint64_t> rows;           // of the table; none after a failure, and of a path that is not known
};

class Host {
  public:
    /*
     * Loads and starts the plug-in: pluginFile, or when it is empty the library beside this program or where the loader
     * finds it. Throws std::runtime_error, with all that was tried or logged, when it cannot run.
     */
    explicit Host(const std::string& pluginFile = {});
    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;

    /* In the order of their registration. */
    const std::vector<Path>& paths() const { return paths_; }

    /* By alias or xpath; throws UsageError, which names the aliases, for any other text. */
    const Path& path(std::string_view name) const;

    /*
     * Calls the path until its pass ends, a call fails, or a stop is requested. onBatch gets each batch as it arrives;
     * without it they are kept for the end. The running numbers of this process's batches follow each other; one is
     * left out for a call that failed. atEnd is called while the database still shows the state of the pass, unless a
     * call failed.
     */
    Pass runPass(const Path& path, const QosTlmQueryParam& request, uint32_t subscriptionId,
                 const std::function<void(Batch)>& onBatch = {}, const std::function<void()>& atEnd = {});

  private:
    std::vector<Path> paths_;
    uint32_t nextNumber_ = 1;
};

}  // namespace host

#endif
