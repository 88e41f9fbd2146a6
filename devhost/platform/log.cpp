#include "platform/log.h"

#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <string>
#include <utility>

#include "devhost/platform/stand_in.h"

namespace {

std::mutex sinkMutex;
devhost::LogSink currentSink;

__attribute__((format(printf, 1, 0))) std::string formatted(const char* format, va_list arguments) {
    va_list measured;
    va_copy(measured, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, measured);
    va_end(measured);
    if (length < 0) {
        return "(a message that cannot be formatted)";
    }
    std::string text(static_cast<size_t>(length), '\0');
    std::vsnprintf(text.data(), text.size() + 1, format, arguments);
    return text;
}

}  // namespace

int32_t IM_Agent_ReportLogById(uint32_t level, uint32_t logId, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const std::string text = formatted(format, arguments);
    va_end(arguments);

    devhost::LogSink sink;
    {
        const std::lock_guard lock(sinkMutex);
        sink = currentSink;  // called without the lock: a sink may set another
    }
    if (sink) {
        sink(level, logId, text);
    } else {
        std::fprintf(stderr, "qos-plugin: %s\n", text.c_str());
    }
    return 0;
}

namespace devhost {

void setLogSink(LogSink sink) {
    const std::lock_guard lock(sinkMutex);
    currentSink.swap(sink);
}

}  // namespace devhost
