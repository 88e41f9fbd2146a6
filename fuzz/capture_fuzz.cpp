// The host's reader of captures: whatever is in the file, a clear error or all that is in it.
#include <google/protobuf/stubs/logging.h>
#include <sys/mman.h>

#include <algorithm>
#include <cstdlib>
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

// What was read is what is shown; numbers of JSON are shown as the text has them, as in 2e+15.
bool areSame(const host::Value& value, const std::string& shown) {
    const std::string text = host::textOf(value);
    return text == shown || (std::holds_alternative<uint64_t>(value) && shown.find_first_of(".eE") != shown.npos &&
                             std::strtod(text.c_str(), nullptr) == std::strtod(shown.c_str(), nullptr));
}

// A payload is shown in full or refused.
void decode(const std::string& alias, const host::CapturedBatch& captured) {
    const host::Catalogued* path = host::findInCatalogue(alias);
    if (path == nullptr) {
        return;
    }
    try {
        const auto records = host::decodeRecords(*path, captured.encoding, captured.batch.payload);
        const auto decodeRows = captured.encoding == QOS_TLM_ENCODE_GPB ? host::decodeGpb : host::decodeJson;
        REQUIRE(
            std::ranges::equal(records, decodeRows(*path, captured.batch.payload),
                               [](const auto& a, const auto& b) { return std::ranges::equal(a->values, b, areSame); }));
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
