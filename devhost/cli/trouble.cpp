#include "devhost/cli/trouble.h"

#include <fmt/format.h>

#include <cstdio>

namespace host {

void Trouble::tell(const std::vector<std::string>& messages) {
    if (messages.empty()) {
        if (inARow_ > 0) {
            fmt::print(stderr, "qos-host: {} goes on after {} without success\n", what_, inARow_);
        }
        inARow_ = 0;
        told_.clear();
        return;
    }
    ever_ = true;
    ++inARow_;
    if (messages != told_) {
        for (const std::string& message : messages) {
            fmt::print(stderr, "qos-host: {}\n", message);
        }
        told_ = messages;
    }
}

}  // namespace host
