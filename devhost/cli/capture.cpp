#include "devhost/cli/capture.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <concepts>
#include <stdexcept>
#include <string_view>
#include <system_error>

namespace host {

namespace {

constexpr std::string_view kMagic = "QOS-CAPTURE ";
constexpr std::string_view kVersion = "1\n";
constexpr size_t kFixedPart = 38;
constexpr size_t kLongestAlias = 255;
constexpr size_t kShortestRecord = kFixedPart + 1;
constexpr size_t kLongestRecord = kFixedPart + kLongestAlias + QOS_TLM_PAYLOAD_SIZE;

template <std::unsigned_integral Number>
std::string littleEndian(Number number) {
    std::string bytes;
    for (size_t index = 0; index < sizeof number; ++index) {
        bytes += static_cast<char>(static_cast<unsigned char>(number >> (8 * index)));
    }
    return bytes;
}

// Takes a number off the front of the bytes, which hold it.
template <std::unsigned_integral Number>
Number takeNumber(std::string_view& bytes) {
    Number number = 0;
    for (size_t index = sizeof number; index-- > 0;) {
        number = static_cast<Number>(uint64_t{number} << 8 | static_cast<unsigned char>(bytes[index]));
    }
    bytes.remove_prefix(sizeof number);
    return number;
}

[[noreturn]] void throwErrno(const std::string& what) {
    throw std::system_error(errno, std::generic_category(), what);
}

}  // namespace

CaptureWriter::CaptureWriter(const std::string& file)
    : name_(file), file_(open(file.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666)) {
    struct stat status = {};
    if (file_.get() < 0 || fstat(file_.get(), &status) != 0) {
        throwErrno(fmt::format("cannot write the capture '{}'", name_));
    }
    if (status.st_size > 0) {
        throw std::runtime_error(
            fmt::format("the capture '{}' exists and is not empty: remove it or name another file", name_));
    }
    append(fmt::format("{}{}", kMagic, kVersion));
}

void CaptureWriter::add(const std::string& alias, QosTlmEncodeType encoding, const Batch& batch) {
    const size_t size = kFixedPart + alias.size() + batch.payload.size();
    append(littleEndian(static_cast<uint32_t>(size)) + littleEndian(batch.hostArg1) + littleEndian(batch.hostArg2) +
           littleEndian(batch.collectStartTime) + littleEndian(batch.collectEndTime) +
           littleEndian(batch.encodeTimeSpend) + littleEndian(batch.recordCount) +
           littleEndian(static_cast<uint8_t>(encoding)) + littleEndian(static_cast<uint8_t>(alias.size())) + alias +
           batch.payload);
}

void CaptureWriter::append(const std::string& bytes) const {
    // One write takes all, unless the disk is full or the file is a pipe: the next write then tells why.
    for (size_t done = 0; done < bytes.size();) {
        const ssize_t written = write(file_.get(), bytes.data() + done, bytes.size() - done);
        if (written < 0) {
            throwErrno(done == 0
                           ? fmt::format("cannot write the capture '{}'", name_)
                           : fmt::format("cannot write the capture '{}', which now ends in {} of a record's {} bytes",
                                         name_, done, bytes.size()));
        }
        done += static_cast<size_t>(written);
    }
}

CaptureReader::CaptureReader(const std::string& file) : name_(file), file_(std::fopen(file.c_str(), "rbe")) {
    if (file_ == nullptr) {
        throwErrno(fmt::format("cannot read the capture '{}'", name_));
    }
    if (read(kMagic.size()) != kMagic) {
        fail(0, fmt::format("this is no capture: it does not begin with \"{}\"", kMagic));
    }
    if (read(kVersion.size()) != kVersion) {
        fail(kMagic.size(), "the capture has another version than 1, the one that is read here");
    }
}

std::optional<CapturedBatch> CaptureReader::next() {
    CapturedBatch captured = {};
    captured.offset = offset_;
    const std::string lengthBytes = read(sizeof(uint32_t));
    if (lengthBytes.empty()) {
        return std::nullopt;
    }
    if (lengthBytes.size() < sizeof(uint32_t)) {
        fail(captured.offset, fmt::format("the record is cut off: {} bytes of its length", lengthBytes.size()));
    }
    std::string_view rest = lengthBytes;
    const auto length = takeNumber<uint32_t>(rest);
    if (length < kShortestRecord || length > kLongestRecord) {
        fail(captured.offset,
             fmt::format("{} is no length of a record, {} to {} bytes", length, kShortestRecord, kLongestRecord));
    }
    const std::string bytes = read(length);
    if (bytes.size() < length) {
        fail(captured.offset, fmt::format("the record is cut off: {} of {} bytes", bytes.size(), length));
    }
    rest = bytes;
    Batch& batch = captured.batch;
    batch.hostArg1 = takeNumber<uint32_t>(rest);
    batch.hostArg2 = takeNumber<uint32_t>(rest);
    batch.collectStartTime = takeNumber<uint64_t>(rest);
    batch.collectEndTime = takeNumber<uint64_t>(rest);
    batch.encodeTimeSpend = takeNumber<uint64_t>(rest);
    batch.recordCount = takeNumber<uint32_t>(rest);
    const auto encoding = takeNumber<uint8_t>(rest);
    if (encoding > QOS_TLM_ENCODE_JSON) {
        fail(captured.offset, fmt::format("the record has encoding {}, neither 0 nor 1", encoding));
    }
    captured.encoding = static_cast<QosTlmEncodeType>(encoding);
    const size_t aliasSize = takeNumber<uint8_t>(rest);
    if (aliasSize == 0 || aliasSize > rest.size()) {
        fail(captured.offset, fmt::format("the record has an alias of {} bytes in {}", aliasSize, rest.size()));
    }
    captured.alias = rest.substr(0, aliasSize);
    batch.payload = rest.substr(aliasSize);
    return captured;
}

// Up to so many bytes: fewer at the end of the file.
std::string CaptureReader::read(size_t size) {
    std::string bytes(size, '\0');
    bytes.resize(std::fread(bytes.data(), 1, size, file_.get()));
    if (std::ferror(file_.get()) != 0) {
        throwErrno(fmt::format("cannot read the capture '{}'", name_));
    }
    offset_ += bytes.size();
    return bytes;
}

void CaptureReader::fail(uint64_t offset, const std::string& what) const {
    throw std::runtime_error(fmt::format("'{}', byte {}: {}", name_, offset, what));
}

}  // namespace host
