/*
 * The host's side of the platform that stands in for the device's: what the program around it sets.
 *
 * The platform functions are those of platform/, and are exported from the program that links this. All state is the
 * process's. The log, the allocator and the clock may be used on any thread; set everything else before the plug-in
 * starts.
 */
#ifndef DEVHOST_PLATFORM_STAND_IN_H
#define DEVHOST_PLATFORM_STAND_IN_H

#include <cstdint>
#include <functional>
#include <optional>
#include <string_view>

#include "nivex_qos/plugin.h"

namespace devhost {

/* What COMP_GetVTable hands out; the host keeps it for the life of the process. With none it answers 1. */
void setFunctionTable(const QosTlmFrmVtbl* table);

/* Takes each message of the log; without one, a message is a line "qos-plugin: text" on standard error. */
using LogSink = std::function<void(uint32_t level, uint32_t logId, std::string_view text)>;
void setLogSink(LogSink sink);

/* Stops the clock at this many milliseconds since 1970, or lets it run again. */
void setClock(std::optional<uint64_t> milliseconds);

}  // namespace devhost

#endif
