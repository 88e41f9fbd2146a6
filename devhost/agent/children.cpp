#include "devhost/agent/children.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <system_error>
#include <utility>

#include "devhost/agent/order.h"

namespace agent {

namespace {

[[noreturn]] void fail(int code, const char* what) {
    throw std::system_error(code, std::generic_category(), what);
}

/*
 * What the new process does before it is the program, with nothing but system calls, since threads of this one may hold
 * locks. From the start it ends with its agent, even while it is stopped.
 */
[[noreturn]] void becomeChild(pid_t agent, int control, char* const* arguments) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != agent) {
        _exit(0);
    }
    setpgid(0, 0);  // a Ctrl-C at the terminal is for the agent alone
    for (const int number : {SIGPIPE, SIGXFSZ, SIGHUP, SIGINT, SIGTERM, SIGUSR1, SIGCHLD}) {
        std::signal(number, SIG_DFL);
    }
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    if (control == kControlFile ? fcntl(control, F_SETFD, 0) == 0 : dup2(control, kControlFile) == kControlFile) {
        // The program that runs, even if another one has its name by now.
        execve("/proc/self/exe", arguments, environ);
    }
    _exit(127);
}

std::string howEnded(int status) {
    if (WIFSIGNALED(status)) {
        return fmt::format("was killed by signal {} ({})", WTERMSIG(status), strsignal(WTERMSIG(status)));
    }
    return fmt::format("ended with {}", WEXITSTATUS(status));
}

}  // namespace

Children::Children(host::Loop& loop) : loop_(loop), ended_(loop.onSignal(SIGCHLD, [this] { collect(); })) {}

std::unique_ptr<Child> Children::start(const char* argument, const std::string& order,
                                       std::function<void(std::string_view)> onBytes,
                                       std::function<void(const std::string&)> onEnd) {
    std::array<int, 2> sockets{};
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sockets.data()) != 0) {
        fail(errno, "cannot make the socket of a child process");
    }
    host::Descriptor ours(sockets[0]);
    const host::Descriptor theirs(sockets[1]);
    std::array<char, 16> name{"qos-agent"};
    std::string work = argument;
    const std::array<char*, 3> arguments = {name.data(), work.data(), nullptr};
    const pid_t agent = getpid();
    // Until the child has the default handlers, it would write what it catches into the loop that it shares.
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    const pid_t process = fork();
    const int failure = errno;
    if (process == 0) {
        becomeChild(agent, theirs.get(), arguments.data());
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    if (process < 0) {
        fail(failure, "cannot start a child process");
    }
    std::unique_ptr<Child> child(new Child(*this, process, std::move(ours)));
    child->onBytes_ = std::move(onBytes);
    child->onEnd_ = std::move(onEnd);
    // It fits the socket's buffer; a child that ended at once is collected like any other.
    send(child->control_.get(), order.data(), order.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    return child;
}

void Children::collect() {
    int status = 0;
    while (const pid_t process = waitpid(-1, &status, WNOHANG)) {
        if (process < 0) {
            break;
        }
        const auto child = alive_.extract(process);
        if (!child.empty()) {
            child.mapped()->ended(status);
        }
    }
}

Child::Child(Children& children, pid_t process, host::Descriptor control)
    : children_(children),
      process_(process),
      control_(std::move(control)),
      readable_(children.loop_.onReadable(control_.get(), [this] { readMore(); })) {
    children_.alive_[process_] = this;
}

Child::~Child() {
    if (alive_) {
        children_.alive_.erase(process_);
        kill(process_, SIGKILL);
    }
}

bool Child::send(char byte) const {
    return ::send(control_.get(), &byte, 1, MSG_NOSIGNAL | MSG_DONTWAIT) == 1;
}

void Child::signal(int number) const {
    if (alive_) {
        kill(process_, number);
    }
}

void Child::readMore() {
    std::array<char, 65536> bytes;
    const ssize_t size = recv(control_.get(), bytes.data(), bytes.size(), MSG_DONTWAIT);
    if (size > 0) {
        const auto onBytes = onBytes_;  // which may destroy this object
        onBytes({bytes.data(), static_cast<size_t>(size)});
    } else if (size == 0 || (errno != EAGAIN && errno != EINTR)) {
        readable_.cancel();  // its end is told when it is collected
    }
}

void Child::ended(int status) {
    alive_ = false;
    readable_.cancel();
    // What it sent before it ended. The callbacks are kept here: each of them may destroy this object.
    std::string rest;
    std::array<char, 65536> bytes;
    ssize_t size = 0;
    while ((size = recv(control_.get(), bytes.data(), bytes.size(), MSG_DONTWAIT)) > 0) {
        rest.append(bytes.data(), static_cast<size_t>(size));
    }
    const auto onBytes = std::move(onBytes_);
    const auto onEnd = std::move(onEnd_);
    if (!rest.empty()) {
        onBytes(rest);
    }
    onEnd(howEnded(status));
}

std::chrono::milliseconds Backoff::next() {
    if (Clock::now() - began_ >= kLongest) {
        wait_ = std::chrono::seconds(1);
    }
    return std::exchange(wait_, std::min(wait_ * 2, kLongest));
}

}  // namespace agent
