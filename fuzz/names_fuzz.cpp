// Interface-name matching against the C library's regular expressions, which a judge asks within limits of time and
// memory: the pattern is the input's first line, the name is the rest. New worst costs are told on standard error.
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <optional>
#include <regex>

#include "fuzz/input.h"
#include "fuzz/names_judge.h"
#include "nivex_qos/filter.h"

namespace {

class Judge {
  public:
    // Whether the C library finds that a name matches; nothing when it ran out of time, memory or stack.
    std::optional<bool> ask(const std::string& pattern, const std::string& name) {
        if (socket_ < 0) {
            start();
        }
        const std::string message = pattern + '\0' + name + '\0';
        REQUIRE(send(socket_, message.data(), message.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(message.size()));
        MatchCost cost;
        REQUIRE(recv(socket_, &cost, sizeof cost, 0) == sizeof cost);  // it came back
        tell(cost, pattern, name);
        char verdict = 0;
        if (recv(socket_, &verdict, 1, 0) == 1) {
            return verdict != 0;
        }
        close(socket_);
        socket_ = -1;
        waitpid(process_, nullptr, 0);
        return {};
    }

  private:
    void start() {
        int ends[2];
        REQUIRE(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) == 0);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, ends[1], STDIN_FILENO);
        char program[] = NAMES_JUDGE;
        char* arguments[] = {program, nullptr};
        REQUIRE(posix_spawn(&process_, program, &actions, nullptr, arguments, nullptr) == 0);
        posix_spawn_file_actions_destroy(&actions);
        close(ends[1]);
        socket_ = ends[0];
    }
    void tell(const MatchCost& cost, std::string pattern, const std::string& name) {
        if (name.size() >= 32 || (cost.nanoseconds <= worst_.nanoseconds && cost.stackBytes <= worst_.stackBytes)) {
            return;
        }
        worst_.nanoseconds = std::max(worst_.nanoseconds, cost.nanoseconds);
        worst_.stackBytes = std::max(worst_.stackBytes, cost.stackBytes);
        std::replace_if(
            pattern.begin(), pattern.end(), [](char each) { return each < ' ' || each > '~'; }, '?');
        std::fprintf(stderr, "names: at worst %u ns and %u bytes of stack, now with %s\n", worst_.nanoseconds,
                     worst_.stackBytes, pattern.c_str());
    }

    int socket_ = -1;
    pid_t process_ = -1;
    MatchCost worst_ = {};
};

// What the plug-in does not take over from the C library, see docs/fuzzing.md.
bool isAccident(const std::string& pattern, const std::string& name) {
    static const std::regex accidents(R"(\\[ac-rt-vx-z]|\{[0-9,]*\\[,0])");
    return std::regex_search(pattern, accidents) ||
           (name.find('\n') != name.npos && pattern.find_first_of("^$") != pattern.npos);
}

// Whether a pattern may take too many steps for the plug-in, its counts written out.
bool mayBeTooLong(const std::string& pattern, const std::string& name) {
    static const std::regex count(R"([{,]([0-9]+))");
    size_t characters = pattern.size();
    for (std::sregex_iterator each(pattern.begin(), pattern.end(), count); each != std::sregex_iterator(); ++each) {
        characters *= std::clamp<size_t>(strtoul((*each)[1].str().c_str(), nullptr, 10), 1, name.size() + 1);
    }
    return characters > 150;
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static Judge judge;
    static const std::regex backReference(R"(\\[1-9])");
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const size_t line = text.find('\n');
    // As C strings: each ends at its first NUL.
    const std::string pattern = std::string(text.substr(0, line)).c_str();
    const std::string name = line == std::string_view::npos ? "" : std::string(text.substr(line + 1, 64)).c_str();
    const bool matches = QOS_TLM_CheckIfName(pattern.c_str(), name.c_str(), 32) != 0;
    const std::optional<bool> verdict = judge.ask(pattern, name);
    const bool refersBack = std::regex_search(pattern, backReference);
    if (pattern.size() > QOS_TLM_PATTERN_MAX) {
        REQUIRE(!matches);
    } else if (refersBack) {
        REQUIRE(!matches || pattern.find_first_of("[\\") < pattern.find_last_of('\\'));  // elsewhere "\1" may be none
    } else if (verdict.has_value() && matches != *verdict && !isAccident(pattern, name)) {
        REQUIRE(!matches && mayBeTooLong(pattern, name));
    }
    return 0;
}
