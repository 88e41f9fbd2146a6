#include "devhost/agent/order.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <system_error>
#include <type_traits>

namespace agent {

namespace {

// Both ends are the same program: numbers and records go as they lie in memory, texts behind their size.
class Writer {
  public:
    template <class Value>
    void add(const Value& value) {
        static_assert(std::is_trivially_copyable_v<Value>);
        bytes_.append(reinterpret_cast<const char*>(&value), sizeof value);
    }
    void add(const std::string& text) {
        add(text.size());
        bytes_ += text;
    }
    std::string take() { return std::move(bytes_); }

  private:
    std::string bytes_;
};

class Reader {
  public:
    explicit Reader(int file) : file_(file) {}

    template <class Value>
    void take(Value& value) {
        static_assert(std::is_trivially_copyable_v<Value>);
        read(reinterpret_cast<char*>(&value), sizeof value);
    }
    void take(std::string& text) {
        size_t size = 0;
        take(size);
        text.resize(size);
        read(text.data(), size);
    }

  private:
    void read(char* bytes, size_t size) const {
        while (size > 0) {
            const ssize_t got = ::read(file_, bytes, size);
            if (got == 0) {
                throw std::runtime_error("there is no order: this argument is for the agent itself");
            }
            if (got < 0 && errno != EINTR) {
                throw std::system_error(errno, std::generic_category(), "cannot read the order");
            }
            bytes += got > 0 ? got : 0;
            size -= got > 0 ? static_cast<size_t>(got) : 0;
        }
    }

    int file_;
};

// Each order is written and read by the same list.
template <class Order, class Each>
void eachPart(Order& order, const Each& each) requires requires {
    order.plugin;
}
{
    each(order.plugin);
    each(order.database);
    each(order.alias);
    each(order.subscription);
    each(order.every);
    each(order.followRows);
    each(order.request);
}

template <class Order, class Each>
void eachPart(Order& order, const Each& each) requires requires {
    order.feed;
}
{
    each(order.database);
    each(order.feed);
}

template <class Order>
std::string bytesOf(const Order& order) {
    Writer writer;
    eachPart(order, [&writer](const auto& part) { writer.add(part); });
    return writer.take();
}

template <class Order>
Order readOrder(int file) {
    Order order;
    Reader reader(file);
    eachPart(order, [&reader](auto& part) { reader.take(part); });
    return order;
}

}  // namespace

std::string WorkerOrder::bytes() const {
    return bytesOf(*this);
}

WorkerOrder WorkerOrder::read(int file) {
    return readOrder<WorkerOrder>(file);
}

std::string FeedOrder::bytes() const {
    return bytesOf(*this);
}

FeedOrder FeedOrder::read(int file) {
    return readOrder<FeedOrder>(file);
}

}  // namespace agent
