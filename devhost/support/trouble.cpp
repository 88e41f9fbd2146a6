#include "devhost/support/trouble.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>

#include "devhost/support/shown.h"

namespace host {

namespace {
const char* programName = "qos-host";
}

void setProgramName(const char* name) {
    programName = name;
}

void report(std::string_view message) {
    std::fputs(fmt::format("{}: {}\n", programName, shown(message)).c_str(), stderr);
}

void reportLines(std::string_view messages) {
    while (!messages.empty()) {
        const size_t end = std::min(messages.find('\n'), messages.size());
        report(messages.substr(0, end));
        messages.remove_prefix(std::min(end + 1, messages.size()));
    }
}

void Trouble::tell(const std::vector<std::string>& messages) {
    if (messages.empty()) {
        if (inARow_ > 0) {
            report(fmt::format("{} goes on after {} without success", what_, inARow_));
        }
        inARow_ = 0;
        told_.clear();
        return;
    }
    ever_ = true;
    ++inARow_;
    if (messages != told_) {
        for (const std::string& message : messages) {
            report(message);
        }
        told_ = messages;
    }
}

}  // namespace host
