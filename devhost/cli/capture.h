/*
 * A capture: the batches of sampling calls in a file, as docs/capture.md describes it byte by byte.
 *
 * A writer owns its file, which must be new or empty, and appends each batch with one write, so that a process that is
 * killed leaves at most a last record that is cut off. A reader hands out the batches in their order and owns its file.
 * Every failure is a std::runtime_error that names the file and, for its contents, the byte offset.
 */
#ifndef DEVHOST_CLI_CAPTURE_H
#define DEVHOST_CLI_CAPTURE_H

#include <cstdint>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>

#include "devhost/cli/descriptor.h"
#include "devhost/cli/host.h"

namespace host {

class CaptureWriter {
  public:
    explicit CaptureWriter(const std::string& file);

    void add(const std::string& alias, QosTlmEncodeType encoding, const Batch& batch);

  private:
    void append(const std::string& bytes) const;

    std::string name_;
    Descriptor file_;
};

struct CapturedBatch {
    uint64_t offset;  // of its record in the file
    std::string alias;
    QosTlmEncodeType encoding;
    Batch batch;
};

class CaptureReader {
  public:
    explicit CaptureReader(const std::string& file);

    /* The next batch; none at the end of the file. */
    std::optional<CapturedBatch> next();

  private:
    struct Close {
        void operator()(FILE* file) const { std::fclose(file); }
    };

    std::string read(size_t size);
    [[noreturn]] void fail(uint64_t offset, const std::string& what) const;

    std::string name_;
    std::unique_ptr<FILE, Close> file_;
    uint64_t offset_ = 0;
};

}  // namespace host

#endif
