/*
 * The agent's child processes: its own program, started again with the name of a work and an order (order.h).
 */
#ifndef DEVHOST_AGENT_CHILDREN_H
#define DEVHOST_AGENT_CHILDREN_H

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "devhost/support/descriptor.h"
#include "devhost/support/loop.h"

namespace agent {

/* One for the process: collects every child that has ended, so that none is left as a zombie. */
class Children {
  public:
    explicit Children(host::Loop& loop);

    /* A child of this process; killed and forgotten with this object. */
    class Child {
      public:
        ~Child();
        Child(const Child&) = delete;
        Child& operator=(const Child&) = delete;

        pid_t process() const { return process_; }
        /* A byte to its control file; false when it takes none at the moment. */
        bool send(char byte) const;
        void signal(int number) const;

      private:
        friend class Children;
        Child(Children& children, pid_t process, host::Descriptor control);
        void readMore();
        void ended(int status);

        Children& children_;
        pid_t process_;
        bool alive_ = true;
        host::Descriptor control_;
        host::Loop::Watch readable_;
        std::function<void(std::string_view)> onBytes_;
        std::function<void(const std::string&)> onEnd_;
    };

    /*
     * Starts the program with the argument and hands it the order. onBytes gets what it sends, onEnd for people how it
     * ended, once; the Child may be destroyed in either. Throws std::system_error when it cannot be started.
     */
    std::unique_ptr<Child> start(const char* argument, const std::string& order,
                                 std::function<void(std::string_view)> onBytes,
                                 std::function<void(const std::string&)> onEnd);

  private:
    void collect();

    host::Loop& loop_;
    host::Loop::Watch ended_;
    std::map<pid_t, Child*> alive_;
};

using Child = Children::Child;

/* How long to wait before the next try: 1, 2, 4 ... 30 s, and from 1 s again after something has worked for 30 s. */
class Backoff {
  public:
    using Clock = std::chrono::steady_clock;

    void began() { began_ = Clock::now(); }
    std::chrono::milliseconds next();

  private:
    static constexpr std::chrono::seconds kLongest{30};

    std::chrono::seconds wait_{1};
    Clock::time_point began_ = Clock::now();
};

}  // namespace agent

#endif
