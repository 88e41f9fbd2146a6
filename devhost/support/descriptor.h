/*
 * A file descriptor with an owner, which closes it. -1 is none.
 */
#ifndef DEVHOST_SUPPORT_DESCRIPTOR_H
#define DEVHOST_SUPPORT_DESCRIPTOR_H

#include <unistd.h>

#include <utility>

namespace host {

class Descriptor {
  public:
    explicit Descriptor(int number = -1) : number_(number) {}
    ~Descriptor() {
        if (number_ >= 0) {
            close(number_);
        }
    }
    Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(number_, other.number_);
        return *this;
    }

    int get() const { return number_; }

    /* Gives it up: somebody else closes it. */
    int release() { return std::exchange(number_, -1); }

  private:
    int number_;
};

}  // namespace host

#endif
