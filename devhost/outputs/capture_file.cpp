#include "devhost/outputs/capture_file.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <exception>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <utility>

#include "devhost/sampling/capture.h"

namespace outputs {

namespace {

constexpr std::chrono::seconds kShortestPause{1};
constexpr std::chrono::seconds kLongestPause{30};

[[noreturn]] void throwErrno(const std::string& what) {
    throw std::system_error(errno, std::generic_category(), what);
}

/* Where the last whole record of a capture ends, from the beginning of the file; as far as `stop` lets it read. */
template <class Stop>
off_t endOfRecords(int file, const std::string& name, Stop stop) {
    host::CaptureParser parser;
    std::array<char, 65536> bytes;
    off_t at = 0;
    while (!stop()) {
        const ssize_t size = pread(file, bytes.data(), bytes.size(), at);
        if (size < 0) {
            throwErrno(fmt::format("cannot read the capture '{}'", name));
        }
        at += size;
        parser.feed({bytes.data(), static_cast<size_t>(size)});
        try {
            while (parser.next()) {
            }
        } catch (const std::runtime_error& error) {
            throw std::runtime_error(fmt::format("cannot write behind what '{}' has, byte {}: {}; name another file",
                                                 name, parser.offset(), error.what()));
        }
        if (size == 0) {
            break;
        }
    }
    try {
        parser.finish();
        return at;
    } catch (const std::runtime_error&) {
        return static_cast<off_t>(parser.offset());
    }
}

}  // namespace

AppendedCapture::AppendedCapture(std::string file) : name_(std::move(file)) {
    // What it is shows before it is opened, which some devices take as an order.
    struct stat status = {};
    if (stat(name_.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) {
        throw std::runtime_error(fmt::format("the capture '{}' would go to what is no regular file: name one", name_));
    }
    file_ = host::Descriptor(open(name_.c_str(), O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC | O_NOCTTY, 0666));
    if (file_.get() < 0) {
        throwErrno(fmt::format("cannot write the capture '{}'", name_));
    }
    if (flock(file_.get(), LOCK_EX | LOCK_NB) != 0) {
        throw std::runtime_error(fmt::format("the capture '{}' is being written by another program", name_));
    }
    // Its first bytes tell what is no capture.
    endOfRecords(file_.get(), name_, [read = false]() mutable { return std::exchange(read, true); });
}

void AppendedCapture::begin(const std::function<bool()>& stop) {
    if (begun_) {
        return;
    }
    const off_t end = endOfRecords(file_.get(), name_, stop);
    if (stop()) {
        throw std::runtime_error(fmt::format("the capture '{}' was not read to its end", name_));
    }
    if (ftruncate(file_.get(), end) != 0) {
        throwErrno(fmt::format("cannot cut off what is half a record in the capture '{}'", name_));
    }
    append(std::string(host::captureHead()));
    begun_ = true;
}

void AppendedCapture::append(const std::string& record) {
    // One write takes all, unless the disk is full: the next one then tells why.
    for (size_t done = 0; done < record.size();) {
        const ssize_t written = ::write(file_.get(), record.data() + done, record.size() - done);
        if (written < 0) {
            const int why = errno;
            const off_t end = lseek(file_.get(), 0, SEEK_CUR);
            if (done > 0 && (end < 0 || ftruncate(file_.get(), end - static_cast<off_t>(done)) != 0)) {
                file_ = host::Descriptor();  // who opens it anew cuts off the half record
            }
            throw std::system_error(why, std::generic_category(), fmt::format("cannot write the capture '{}'", name_));
        }
        done += static_cast<size_t>(written);
    }
}

bool AppendedCapture::isInPlace() const {
    struct stat named = {};
    struct stat opened = {};
    return stat(name_.c_str(), &named) == 0 && fstat(file_.get(), &opened) == 0 && named.st_dev == opened.st_dev &&
           named.st_ino == opened.st_ino && (opened.st_size > 0 || !begun_);
}

CaptureFile::CaptureFile(host::Loop& loop, const Settings& settings)
    : loop_(loop),
      name_(settings.file),
      queue_(settings.bufferBytes, settings.whenFull),
      file_(std::in_place, settings.file),
      trouble_(fmt::format("writing the capture '{}'", settings.file)),
      deadline_(loop.timer([this] {
          queue_.abandon();
          flushed();
      })) {
    thread_ = std::thread([this] { write(); });
}

CaptureFile::~CaptureFile() {
    queue_.abandon();
    thread_.join();
}

/* The thread: until the queue is closed and empty. */
void CaptureFile::write() {
    const auto stop = [this] { return queue_.isAbandoned(); };
    try {
        file_->begin(stop);
    } catch (const std::exception& error) {
        trouble_.tell({error.what()});
    }
    std::chrono::seconds pause{0};
    while (const auto entry = queue_.take()) {
        try {
            if (!file_ || !file_->isInPlace()) {
                file_.reset();
                file_.emplace(name_);
                queue_.reconnected();
            }
            file_->begin(stop);
            file_->append(entry->item);
            queue_.delivered(*entry);
            trouble_.tell({});
            pause = {};
        } catch (const std::exception& error) {
            queue_.dropped(*entry, host::Drop::refused, error.what());
            trouble_.tell({error.what()});
            pause = std::clamp(2 * pause, kShortestPause, kLongestPause);
            queue_.waitForClose(std::chrono::steady_clock::now() + pause);
        }
    }
    loop_.post([self = std::weak_ptr(self_)] {
        if (const auto alive = self.lock()) {
            (*alive)->flushed();
        }
    });
}

void CaptureFile::flush(std::chrono::milliseconds within, std::function<void()> done) {
    done_ = std::move(done);
    deadline_.start(within);
    queue_.close();
}

void CaptureFile::flushed() {
    deadline_.cancel();
    if (const auto done = std::exchange(done_, nullptr)) {
        done();
    }
}

}  // namespace outputs
