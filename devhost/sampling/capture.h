/*
 * A capture: what sampling brought, as records in a file or a pipe; docs/capture.md describes it byte by byte.
 *
 * Every failure is a std::runtime_error that names the file and, for its contents, the byte offset.
 */
#ifndef DEVHOST_SAMPLING_CAPTURE_H
#define DEVHOST_SAMPLING_CAPTURE_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "devhost/sampling/batch.h"
#include "devhost/support/descriptor.h"
#include "nivex_qos/sample.h"

namespace host {

struct CapturedBatch {
    QosTlmEncodeType encoding = QOS_TLM_ENCODE_GPB;
    Batch batch;  // its hostArg1 is the record's subscription
};

struct PassEnd {
    uint8_t result = QOS_TLM_RESULT_DONE;
    uint64_t records = 0;               // of all batches
    std::optional<uint64_t> rows = {};  // of the table; none when they were not counted
    uint64_t beginTime = 0;             // milliseconds since 1970
    uint64_t duration = 0;              // microseconds
    uint64_t lateness = 0;              // microseconds from the time that was due
};

/* A line that the plug-in or the database logged. */
struct LogLine {
    uint64_t time = 0;  // milliseconds since 1970
    std::string text;   // what is longer than 4096 bytes is cut
};

/* Passes that were due and not made, because the one before them took too long. */
struct MissedBeats {
    uint64_t count = 0;
};

/* A row that the table had in the pass before and has no more. */
struct RowGone {
    std::vector<std::string> keys;  // its values of the path's keys, each up to 255 bytes
};

/* Of a kind that this program does not know. */
struct UnknownKind {
    uint8_t kind;
};

struct CaptureRecord {
    std::optional<uint64_t> run;  // a random number of the process that sampled; none in version 1
    uint32_t subscription = 0;
    uint64_t pass = 0;  // from 1 in each run of a subscription; 0 outside of a pass, and in version 1
    std::string alias;  // 1 to 255 bytes; may be empty for a LogLine
    std::variant<CapturedBatch, PassEnd, LogLine, MissedBeats, RowGone, UnknownKind> content;
};

/* The bytes of a record with a run, of a kind that is known. */
std::string captureBytes(const CaptureRecord& record);

/* Whether this name of a capture means what standard output is connected to. */
bool isStandardOutput(const std::string& file);

/*
 * Owns its file: a new or empty one, a FIFO, or whatever is standard output, named "-" as well. Each record is appended
 * with one write, so that a process that is killed leaves at most a last record that is cut off.
 */
class CaptureWriter {
  public:
    explicit CaptureWriter(const std::string& file);

    void add(const CaptureRecord& record) const { append(captureBytes(record)); }

  private:
    void append(const std::string& bytes) const;

    std::string name_;
    Descriptor file_;
};

/* The first line of a capture. */
std::string_view captureHead();

/*
 * Reads captures out of bytes that come in pieces of any size. A capture may begin anew wherever a record may. Its
 * failures tell what is wrong, and offset() where.
 */
class CaptureParser {
  public:
    void feed(std::string_view bytes);

    /* The next record; none when more bytes are needed. */
    std::optional<CaptureRecord> next();

    /* Fails if the bytes so far end in the middle of a record or of a first line. */
    void finish();

    /* Of the record that next() gave, or of what it failed at, from the first byte. */
    uint64_t offset() const { return recordOffset_; }

    /* The record that next() gave, as it stood; until the next feed(). */
    std::string_view bytes() const { return std::string_view(bytes_).substr(recordBegin_, taken_ - recordBegin_); }

    /* The captures that have begun so far; records without a run are of the same one within each. */
    uint64_t captures() const { return captures_; }

  private:
    bool headBegins() const;
    void checkHead(bool complete);
    std::string_view rest() const { return std::string_view(bytes_).substr(taken_); }

    std::string bytes_;
    size_t taken_ = 0;  // of them
    size_t recordBegin_ = 0;
    uint64_t offset_ = 0;
    uint64_t recordOffset_ = 0;
    uint64_t captures_ = 0;
    char version_ = '\0';  // none before the first line
};

/* Owns its file, "-" for standard input. */
class CaptureReader {
  public:
    explicit CaptureReader(const std::string& file);

    /* The next record; none at the end of the file. */
    std::optional<CaptureRecord> next();

    uint64_t offset() const { return parser_.offset(); }
    uint64_t captures() const { return parser_.captures(); }

  private:
    std::string name_;
    Descriptor file_;
    CaptureParser parser_;
    bool ended_ = false;
};

}  // namespace host

#endif
