#include "devhost/sampling/capture.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <concepts>
#include <limits>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace host {

namespace {

constexpr std::string_view kMagic = "QOS-CAPTURE ";
constexpr std::string_view kHead = "QOS-CAPTURE 2\n";
constexpr uint64_t kUnknownRows = std::numeric_limits<uint64_t>::max();
constexpr size_t kLongestAlias = 255;
constexpr size_t kLongestText = 4096;

// Sizes behind a record's length. Version 1 has batches only; in version 2 a record begins with what all kinds have.
constexpr size_t kFixedPart1 = 38;
constexpr size_t kLongestRecord1 = kFixedPart1 + kLongestAlias + QOS_TLM_PAYLOAD_SIZE;
constexpr size_t kFixedPart2 = 22;
constexpr size_t kLongestRecord2 = 65536;  // the magic as a length is more

// The kinds of records, and what they have behind the alias.
constexpr uint8_t kBatch = 1;
constexpr size_t kBatchPart = 33;  // without its payload
constexpr uint8_t kPassEnd = 2;
constexpr size_t kPassEndPart = 41;
constexpr uint8_t kLogLine = 3;
constexpr size_t kLogLinePart = 8;  // without its text
constexpr uint8_t kMissedBeats = 4;
constexpr size_t kMissedBeatsPart = 8;
constexpr uint8_t kRowGone = 5;
constexpr size_t kLongestKey = 255;

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

std::string contentBytes(const CapturedBatch& captured) {
    const Batch& batch = captured.batch;
    return littleEndian(batch.hostArg2) + littleEndian(batch.collectStartTime) + littleEndian(batch.collectEndTime) +
           littleEndian(batch.encodeTimeSpend) + littleEndian(batch.recordCount) +
           littleEndian(static_cast<uint8_t>(captured.encoding)) + batch.payload;
}

std::string contentBytes(const PassEnd& end) {
    return littleEndian(end.result) + littleEndian(end.records) + littleEndian(end.rows.value_or(kUnknownRows)) +
           littleEndian(end.beginTime) + littleEndian(end.duration) + littleEndian(end.lateness);
}

std::string contentBytes(const LogLine& line) {
    return littleEndian(line.time) + line.text.substr(0, kLongestText);
}

std::string contentBytes(const MissedBeats& missed) {
    return littleEndian(missed.count);
}

std::string contentBytes(const RowGone& row) {
    std::string bytes;
    for (const std::string& key : row.keys) {
        const std::string_view kept = std::string_view(key).substr(0, kLongestKey);
        bytes += littleEndian(static_cast<uint8_t>(kept.size()));
        bytes += kept;
    }
    return bytes;
}

std::string contentBytes(const UnknownKind&) {
    throw std::logic_error("a record of unknown kind is not written");
}

[[noreturn]] void throwErrno(const std::string& what) {
    throw std::system_error(errno, std::generic_category(), what);
}

// What follows in a record is no more and no less than so many bytes.
void requireSize(std::string_view rest, size_t least, size_t most) {
    if (rest.size() < least || rest.size() > most) {
        throw std::runtime_error(
            fmt::format("the record has {} bytes behind its alias, {} are due", rest.size(),
                        least == most ? std::to_string(least) : fmt::format("{} to {}", least, most)));
    }
}

QosTlmEncodeType takeEncoding(std::string_view& rest) {
    const auto encoding = takeNumber<uint8_t>(rest);
    if (encoding > QOS_TLM_ENCODE_JSON) {
        throw std::runtime_error(fmt::format("the record has encoding {}, neither 0 nor 1", encoding));
    }
    return static_cast<QosTlmEncodeType>(encoding);
}

std::string takeAlias(std::string_view& rest, size_t size, size_t least) {
    if (size < least || size > rest.size()) {
        throw std::runtime_error(fmt::format("the record has an alias of {} bytes in {}", size, rest.size()));
    }
    std::string alias(rest.substr(0, size));
    rest.remove_prefix(size);
    return alias;
}

// What the fields of a batch have in common in both versions, from its running number on.
void takeBatch(std::string_view& rest, Batch& batch) {
    batch.hostArg2 = takeNumber<uint32_t>(rest);
    batch.collectStartTime = takeNumber<uint64_t>(rest);
    batch.collectEndTime = takeNumber<uint64_t>(rest);
    batch.encodeTimeSpend = takeNumber<uint64_t>(rest);
    batch.recordCount = takeNumber<uint32_t>(rest);
}

CaptureRecord readVersion1(std::string_view rest) {
    CaptureRecord record;
    CapturedBatch captured;
    record.subscription = captured.batch.hostArg1 = takeNumber<uint32_t>(rest);
    takeBatch(rest, captured.batch);
    captured.encoding = takeEncoding(rest);
    const size_t aliasSize = takeNumber<uint8_t>(rest);
    record.alias = takeAlias(rest, aliasSize, 1);
    captured.batch.payload = rest;
    record.content = std::move(captured);
    return record;
}

CaptureRecord readVersion2(std::string_view rest) {
    CaptureRecord record;
    const auto kind = takeNumber<uint8_t>(rest);
    if (kind < kBatch || kind > kRowGone) {
        record.content = UnknownKind{kind};
        return record;
    }
    const size_t aliasSize = takeNumber<uint8_t>(rest);
    record.run = takeNumber<uint64_t>(rest);
    record.subscription = takeNumber<uint32_t>(rest);
    record.pass = takeNumber<uint64_t>(rest);
    record.alias = takeAlias(rest, aliasSize, kind == kLogLine ? 0 : 1);
    if (kind == kBatch) {
        requireSize(rest, kBatchPart, kBatchPart + QOS_TLM_PAYLOAD_SIZE);
        CapturedBatch captured;
        captured.batch.hostArg1 = record.subscription;
        takeBatch(rest, captured.batch);
        captured.encoding = takeEncoding(rest);
        captured.batch.payload = rest;
        record.content = std::move(captured);
    } else if (kind == kPassEnd) {
        requireSize(rest, kPassEndPart, kPassEndPart);
        PassEnd end;
        end.result = takeNumber<uint8_t>(rest);
        end.records = takeNumber<uint64_t>(rest);
        if (const auto rows = takeNumber<uint64_t>(rest); rows != kUnknownRows) {
            end.rows = rows;
        }
        end.beginTime = takeNumber<uint64_t>(rest);
        end.duration = takeNumber<uint64_t>(rest);
        end.lateness = takeNumber<uint64_t>(rest);
        record.content = end;
    } else if (kind == kMissedBeats) {
        requireSize(rest, kMissedBeatsPart, kMissedBeatsPart);
        record.content = MissedBeats{takeNumber<uint64_t>(rest)};
    } else if (kind == kRowGone) {
        RowGone row;
        while (!rest.empty()) {
            const size_t size = takeNumber<uint8_t>(rest);
            requireSize(rest, size, rest.size());
            row.keys.emplace_back(rest.substr(0, size));
            rest.remove_prefix(size);
        }
        record.content = std::move(row);
    } else {
        requireSize(rest, kLogLinePart, kLogLinePart + kLongestText);
        const auto time = takeNumber<uint64_t>(rest);
        record.content = LogLine{time, std::string(rest)};
    }
    return record;
}

bool isSameFile(const struct stat& one, const struct stat& other) {
    return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

}  // namespace

std::string captureBytes(const CaptureRecord& record) {
    const std::string content = std::visit([](const auto& each) { return contentBytes(each); }, record.content);
    const auto kind = static_cast<uint8_t>(kBatch + record.content.index());
    return littleEndian(static_cast<uint32_t>(kFixedPart2 + record.alias.size() + content.size())) +
           littleEndian(kind) + littleEndian(static_cast<uint8_t>(record.alias.size())) +
           littleEndian(record.run.value()) + littleEndian(record.subscription) + littleEndian(record.pass) +
           record.alias + content;
}

bool isStandardOutput(const std::string& file) {
    struct stat named = {};
    struct stat output = {};
    return file == "-" ||
           (stat(file.c_str(), &named) == 0 && fstat(STDOUT_FILENO, &output) == 0 && isSameFile(named, output));
}

CaptureWriter::CaptureWriter(const std::string& file) : name_(file) {
    const auto refuse = [this](std::string_view why) {
        throw std::runtime_error(fmt::format("the capture '{}' {}", name_, why));
    };
    const bool toOutput = isStandardOutput(file);
    // What it is shows before it is opened, which some devices take as an order.
    struct stat status = {};
    if ((toOutput ? fstat(STDOUT_FILENO, &status) : stat(file.c_str(), &status)) == 0) {
        if (S_ISDIR(status.st_mode)) {
            refuse("is a directory: name a file in it");
        }
        if (S_ISCHR(status.st_mode) || S_ISBLK(status.st_mode)) {
            refuse(
                "would go to a device or terminal: name a file, a FIFO, or - with standard output in a pipe or file");
        }
        struct stat messages = {};
        if (fstat(STDERR_FILENO, &messages) == 0 && isSameFile(status, messages)) {
            refuse("would have messages in it: standard error goes to the same file");
        }
        if (S_ISREG(status.st_mode) && status.st_size > 0 && !toOutput) {
            refuse("exists and is not empty: remove it or name another file");
        }
    }
    file_ = Descriptor(toOutput ? fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0)
                                : open(file.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NOCTTY, 0666));
    if (file_.get() < 0) {
        throwErrno(fmt::format("cannot write the capture '{}'", name_));
    }
    append(std::string(kHead));
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

std::string_view captureHead() {
    return kHead;
}

void CaptureParser::feed(std::string_view bytes) {
    bytes_.erase(0, std::exchange(taken_, 0));
    recordBegin_ = 0;
    bytes_ += bytes;
}

bool CaptureParser::headBegins() const {
    constexpr size_t kLengthSize = sizeof(uint32_t);
    return version_ == '\0' || rest().substr(0, kLengthSize) == kMagic.substr(0, kLengthSize);
}

// Fails unless what is there of a first line is right.
void CaptureParser::checkHead(bool complete) {
    recordOffset_ = offset_;
    const std::string_view head = rest().substr(0, kHead.size());
    const size_t magicSize = complete ? kMagic.size() : std::min(kMagic.size(), head.size());
    if (head.substr(0, kMagic.size()) != kMagic.substr(0, magicSize)) {
        throw std::runtime_error(fmt::format("this is no capture: it does not begin with \"{}\"", kMagic));
    }
    if (const std::string_view version = head.substr(std::min(kMagic.size(), head.size()));
        complete && version != "1\n" && version != "2\n") {
        recordOffset_ += kMagic.size();
        throw std::runtime_error("the capture has another version than 1 and 2, those that are read here");
    }
}

std::optional<CaptureRecord> CaptureParser::next() {
    constexpr size_t kLengthSize = sizeof(uint32_t);
    while (headBegins()) {
        const bool complete = rest().size() >= kHead.size();
        checkHead(complete);
        if (!complete) {
            return std::nullopt;
        }
        version_ = rest()[kMagic.size()];
        ++captures_;
        taken_ += kHead.size();
        offset_ += kHead.size();
    }
    recordOffset_ = offset_;
    std::string_view bytes = rest();
    if (bytes.size() < kLengthSize) {
        return std::nullopt;
    }
    const auto length = takeNumber<uint32_t>(bytes);
    const size_t least = version_ == '1' ? kFixedPart1 + 1 : kFixedPart2;
    const size_t most = version_ == '1' ? kLongestRecord1 : kLongestRecord2;
    if (length < least || length > most) {
        throw std::runtime_error(fmt::format("{} is no length of a record, {} to {} bytes", length, least, most));
    }
    if (bytes.size() < length) {
        return std::nullopt;
    }
    bytes = bytes.substr(0, length);
    recordBegin_ = taken_;
    taken_ += kLengthSize + length;
    offset_ += kLengthSize + length;
    return version_ == '1' ? readVersion1(bytes) : readVersion2(bytes);
}

void CaptureParser::finish() {
    std::string_view bytes = rest();
    if (headBegins()) {
        checkHead(true);
    }
    if (bytes.empty()) {
        return;
    }
    if (bytes.size() < sizeof(uint32_t)) {
        throw std::runtime_error(fmt::format("the record is cut off: {} bytes of its length", bytes.size()));
    }
    const auto length = takeNumber<uint32_t>(bytes);
    throw std::runtime_error(fmt::format("the record is cut off: {} of {} bytes", bytes.size(), length));
}

CaptureReader::CaptureReader(const std::string& file)
    : name_(file),
      file_(file == "-" ? fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0) : open(file.c_str(), O_RDONLY | O_CLOEXEC)) {
    if (file_.get() < 0) {
        throwErrno(fmt::format("cannot read the capture '{}'", name_));
    }
}

std::optional<CaptureRecord> CaptureReader::next() {
    try {
        for (;;) {
            if (auto record = parser_.next()) {
                return record;
            }
            if (ended_) {
                parser_.finish();
                return std::nullopt;
            }
            std::array<char, 65536> bytes;
            const ssize_t size = read(file_.get(), bytes.data(), bytes.size());
            if (size < 0 && errno != EINTR) {
                throwErrno(fmt::format("cannot read the capture '{}'", name_));
            }
            ended_ = size == 0;
            parser_.feed({bytes.data(), static_cast<size_t>(std::max<ssize_t>(size, 0))});
        }
    } catch (const std::system_error&) {
        throw;
    } catch (const std::runtime_error& error) {
        throw std::runtime_error(fmt::format("'{}', byte {}: {}", name_, parser_.offset(), error.what()));
    }
}

}  // namespace host
