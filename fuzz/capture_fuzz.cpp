// The host's reader of captures: whatever is in the file, a clear error or all that is in it.
#include <google/protobuf/stubs/logging.h>
#include <sys/mman.h>

#include <algorithm>
#include <iterator>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "devhost/sampling/capture.h"
#include "devhost/sampling/decode.h"
#include "devhost/sampling/records.h"
#include "fuzz/input.h"

namespace {

// A file in memory that is opened by name.
class MemoryFile {
  public:
    MemoryFile() : file_(memfd_create("capture", MFD_CLOEXEC)), path_("/proc/self/fd/" + std::to_string(file_.get())) {
        REQUIRE(file_.get() >= 0);
    }

    const std::string& path() const { return path_; }
    void set(std::string_view bytes) const {
        REQUIRE(ftruncate(file_.get(), 0) == 0);
        REQUIRE(pwrite(file_.get(), bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size()));
    }

  private:
    host::Descriptor file_;
    std::string path_;
};

// A payload is shown in full or refused.
void decode(const std::string& alias, const host::CapturedBatch& captured) {
    const host::Catalogued* path = host::findInCatalogue(alias);
    if (path == nullptr) {
        return;
    }
    try {
        std::vector<host::Row> values;
        for (const auto& record : host::decodeRecords(*path, captured.encoding, captured.batch.payload)) {
            std::ranges::transform(record->values, std::back_inserter(values.emplace_back()), host::textOf);
        }
        const auto decodeRows = captured.encoding == QOS_TLM_ENCODE_GPB ? host::decodeGpb : host::decodeJson;
        REQUIRE(values == decodeRows(*path, captured.batch.payload));
    } catch (const std::runtime_error& error) {
        REQUIRE(*error.what() != '\0');
    }
    try {
        for (const host::Row& row : host::decodeBatches(*path, captured.encoding, {&captured.batch, 1})) {
            REQUIRE(row.size() == static_cast<size_t>(path->fieldCount()));
        }
        const auto json = captured.encoding == QOS_TLM_ENCODE_GPB ? host::gpbToJson : host::printableJson;
        REQUIRE(nlohmann::json::accept(json(captured.batch.payload)));
    } catch (const std::runtime_error& error) {
        REQUIRE(*error.what() != '\0');
    }
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    static const MemoryFile file;
    [[maybe_unused]] static const auto wordy = google::protobuf::SetLogHandler(nullptr);
    file.set(bytes);
    try {
        host::CaptureReader reader(file.path());
        while (const auto record = reader.next()) {
            if (record->run) {  // version 2: what was read is what stands there
                REQUIRE(bytes.substr(reader.offset()).starts_with(host::captureBytes(*record)));
            }
            if (const auto* captured = std::get_if<host::CapturedBatch>(&record->content)) {
                decode(record->alias, *captured);
            }
        }
        REQUIRE(reader.offset() == size);
    } catch (const std::runtime_error& error) {
        REQUIRE(std::string_view(error.what()).starts_with("'" + file.path() + "', byte "));
    }
    return 0;
}
