/*
 * The one thread on which a server does its work, woken by files, times, signals and other threads (libevent).
 *
 * Everything but post() and stop() is called on the loop's thread, or before run(). What is watched ends with its
 * object. An exception that leaves a callback is a fault of the program and ends it.
 */
#ifndef DEVHOST_SUPPORT_LOOP_H
#define DEVHOST_SUPPORT_LOOP_H

#include <chrono>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>

struct event;
struct event_base;

namespace host {

class Loop {
  public:
    Loop();
    ~Loop();
    Loop(const Loop&) = delete;
    Loop& operator=(const Loop&) = delete;

    /* Calls back until stop(). */
    void run();
    void stop();

    /* Has the work done on the loop's thread, after what was posted before it. From any thread. */
    void post(std::function<void()> work);

    /* Something that is watched. */
    class Watch {
      public:
        Watch();
        Watch(Watch&&) noexcept;
        Watch& operator=(Watch&&) noexcept;
        ~Watch();

        /* For a timer: calls back once after the time, or anew. */
        void start(std::chrono::milliseconds after);
        void cancel();

      private:
        friend class Loop;
        struct State;
        std::unique_ptr<State> state_;
    };

    /* Calls back whenever the file can be read, or has come to its end. */
    Watch onReadable(int file, std::function<void()> callback);
    Watch onSignal(int number, std::function<void()> callback);
    /* Does not run before start(). */
    Watch timer(std::function<void()> callback);

    event_base* base() { return base_; }

  private:
    Watch watch(int file, short what, std::function<void()> callback);
    void runPosted();

    event_base* base_;
    event* wake_;
    std::mutex mutex_;
    std::deque<std::function<void()>> posted_;
};

}  // namespace host

#endif
