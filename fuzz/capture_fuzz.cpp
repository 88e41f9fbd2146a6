// The host's reader of captures: whatever is in the file, a clear error or all that is in it.
#include <google/protobuf/stubs/logging.h>
#include <sys/mman.h>

#include <nlohmann/json.hpp>
#include <stdexcept>

#include "devhost/cli/capture.h"
#include "devhost/cli/decode.h"
#include "fuzz/input.h"

namespace {

// A file in memory that is opened by name.
class MemoryFile {
  public:
    explicit MemoryFile(const char* name)
        : file_(memfd_create(name, MFD_CLOEXEC)), path_("/proc/self/fd/" + std::to_string(file_.get())) {
        REQUIRE(file_.get() >= 0);
    }

    const std::string& path() const { return path_; }
    void set(std::string_view bytes) const {
        REQUIRE(ftruncate(file_.get(), 0) == 0);
        REQUIRE(pwrite(file_.get(), bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size()));
    }
    std::string get() const {
        std::string bytes(static_cast<size_t>(lseek(file_.get(), 0, SEEK_END)), '\0');
        REQUIRE(pread(file_.get(), bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size()));
        return bytes;
    }

  private:
    host::Descriptor file_;
    std::string path_;
};

// A payload is shown in full or refused.
void decode(const host::CapturedBatch& captured) {
    const host::Catalogued* path = host::findInCatalogue(captured.alias);
    if (path == nullptr) {
        return;
    }
    try {
        for (const host::Row& row : host::decodeBatches(*path, captured.encoding, {&captured.batch, 1})) {
            REQUIRE(row.size() == static_cast<size_t>(path->fieldCount()));
        }
        if (captured.encoding == QOS_TLM_ENCODE_GPB) {
            REQUIRE(nlohmann::json::accept(host::gpbToJson(captured.batch.payload)));
        }
    } catch (const std::runtime_error& error) {
        REQUIRE(*error.what() != '\0');
    }
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    static const MemoryFile source("read");
    static const MemoryFile copy("written");
    [[maybe_unused]] static const auto wordy = google::protobuf::SetLogHandler(nullptr);
    source.set(bytes);
    size_t accepted = 0;
    copy.set({});
    try {
        host::CaptureReader reader(source.path());
        host::CaptureWriter writer(copy.path());
        accepted = copy.get().size();
        while (const auto captured = reader.next()) {
            REQUIRE(captured->offset == accepted);
            decode(*captured);
            writer.add(captured->alias, captured->encoding, captured->batch);
            accepted = copy.get().size();
        }
        REQUIRE(accepted == size);
    } catch (const std::runtime_error& error) {
        REQUIRE(std::string_view(error.what()).starts_with("'" + source.path() + "', byte "));
    }
    // What was read is what stood there.
    REQUIRE(copy.get() == bytes.substr(0, accepted));
    return 0;
}
