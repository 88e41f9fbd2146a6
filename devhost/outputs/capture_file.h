/*
 * The output that keeps all that the subscriptions bring in a capture file (docs/capture.md): batches, ends of
 * passes, missed beats, rows that are gone and lines of the log, each written with one write.
 *
 * The file is a regular one: new, empty, or a capture, behind which this one is written; a last record that was cut off
 * is cut away before. Nobody else who does the same may have it open. When it is moved or removed, the next record
 * begins a new file of that name. A record that cannot be written (a full disk) is dropped as refused and leaves
 * nothing behind; the next one is tried after 1, 2, 4 ... 30 s, and what comes meanwhile waits in the queue.
 */
#ifndef DEVHOST_OUTPUTS_CAPTURE_FILE_H
#define DEVHOST_OUTPUTS_CAPTURE_FILE_H

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include "devhost/outputs/bounded_queue.h"
#include "devhost/outputs/output.h"
#include "devhost/support/descriptor.h"
#include "devhost/support/loop.h"
#include "devhost/support/trouble.h"

namespace outputs {

/* A capture file that is written on; what() of its failures names it. */
class AppendedCapture {
  public:
    /* Opens it, as above; throws std::runtime_error. */
    explicit AppendedCapture(std::string file);

    /* Begins a capture behind all that it has, which is read; until `stop` says so. Throws std::runtime_error. */
    void begin(const std::function<bool()>& stop);

    /* Writes the record, all of it or nothing; throws std::system_error. */
    void append(const std::string& record);

    /* Whether its name still means it, and its bytes are still there. */
    bool isInPlace() const;

  private:
    std::string name_;
    host::Descriptor file_;
    bool begun_ = false;
};

class CaptureFile : public Output {
  public:
    struct Settings {
        std::string file;
        size_t bufferBytes = size_t{16} << 20;
        WhenFull whenFull = WhenFull::dropOldest;
    };

    /* Opens the file; throws std::runtime_error that names it. The loop must outlive the object. */
    CaptureFile(host::Loop& loop, const Settings& settings);
    ~CaptureFile() override;
    CaptureFile(const CaptureFile&) = delete;
    CaptureFile& operator=(const CaptureFile&) = delete;

    void batch(const host::SampledBatch& sampled) override { offer(sampled.frame, sampled.records.size()); }
    void passEnded(const host::SampledPass& sampled) override { offer(sampled.frame, 0); }
    void message(const host::Source& /*source*/, const host::LogLine& /*line*/, const std::string& frame) override {
        offer(frame, 0);
    }
    void missed(const host::Source& /*source*/, const host::MissedBeats& /*missed*/,
                const std::string& frame) override {
        offer(frame, 0);
    }
    void rowGone(const host::Source& /*source*/, const std::string& frame) override { offer(frame, 0); }
    void workerLost(const host::Source& /*source*/, const std::string& /*why*/) override {}
    void sourceEnded(const host::Source& /*source*/) override {}

    void setBuffer(size_t bytes, WhenFull whenFull) { queue_.setBound(bytes, whenFull); }

    host::Account account() const override { return queue_.account(); }
    void flush(std::chrono::milliseconds within, std::function<void()> done) override;

  private:
    void offer(const std::string& frame, size_t records) { queue_.offer(frame, frame.size(), records); }
    void write();
    void flushed();

    host::Loop& loop_;
    std::string name_;
    BoundedQueue<std::string> queue_;
    std::optional<AppendedCapture> file_;  // the thread's, once that runs
    host::Trouble trouble_;
    std::function<void()> done_;
    host::Loop::Watch deadline_;
    std::shared_ptr<CaptureFile*> self_ = std::make_shared<CaptureFile*>(this);  // for what the thread posts
    std::thread thread_;
};

}  // namespace outputs

#endif
