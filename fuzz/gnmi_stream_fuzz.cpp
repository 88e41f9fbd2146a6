// What waits for the client of a gNMI stream: however rows come, change and go while it reads or does not, a client
// that has read everything knows what is, in bounded memory and with every value accounted for.
//
// An input is the bound, the encoding, whether a leaf is wanted, then steps: a byte says which, the next one of which
// row.
#include <google/protobuf/util/message_differencer.h>

#include <algorithm>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>

#include "devhost/gnmi/waiting.h"
#include "devhost/support/shown.h"
#include "fuzz/input.h"

namespace {

using gnmi::Encoding;

constexpr size_t kRows = 6;

// The leafs of a row by name, as the client has them.
using Leafs = std::map<std::string, std::string>;

/* A list with a few rows, which have names of any bytes. */
class Rows {
  public:
    Rows(fuzz::Input& input, bool leaf) {
        const host::Catalogued& list = *host::findInCatalogue("queue-statistics");
        what_.list = &list;
        if (leaf) {
            what_.leaf = list.fieldCount() - 1;
        }
        for (size_t index = 0; index < kRows; ++index) {
            names_[index] = std::to_string(index) + std::string(input.bytes(index));
            keys_[index] = host::rowKeyOf(list, *record(index, 0));
        }
    }

    const gnmi::Addressed& what() const { return what_; }
    const host::RowKey& key(size_t row) const { return keys_[row]; }

    host::RecordPointer record(size_t row, uint64_t number) const {
        auto record = std::make_shared<host::Record>();
        for (int index = 0; index < what_.list->fieldCount(); ++index) {
            const auto type = what_.list->field(index).cpp_type();
            const bool isText = type == google::protobuf::FieldDescriptor::CPPTYPE_STRING;
            const bool isWide = type == google::protobuf::FieldDescriptor::CPPTYPE_UINT64;
            record->values.push_back(isText   ? host::Value(names_[row])
                                     : isWide ? host::Value(number)
                                              : host::Value(uint64_t{what_.list->isKey(index) ? row : 1}));
        }
        return record;
    }

    // What a client reads of it.
    Leafs leafs(const host::Record& record) const {
        Leafs leafs;
        for (int index = 0; index < what_.list->fieldCount(); ++index) {
            if (!what_.leaf || *what_.leaf == index) {
                leafs[what_.list->field(index).json_name()] =
                    host::validUtf8(host::textOf(record.values[static_cast<size_t>(index)]));
            }
        }
        return leafs;
    }

  private:
    gnmi::Addressed what_;
    std::array<std::string, kRows> names_;
    std::array<host::RowKey, kRows> keys_;
};

/* Reads messages as their bytes are on the wire. */
class Client {
  public:
    void read(const gnmi::SubscribeResponse& written) {
        gnmi::SubscribeResponse message;
        REQUIRE(message.ParseFromString(written.SerializeAsString()));
        REQUIRE(google::protobuf::util::MessageDifferencer::Equals(message, written));
        if (message.sync_response()) {
            ++syncs;
            return;
        }
        const gnmi::Notification& update = message.update();
        REQUIRE(update.update_size() + update.delete__size() > 0);
        for (const gnmi::Path& path : update.delete_()) {
            REQUIRE(known.erase(rowOf(path)) == 1);
            inOrder(rowOf(path), update.timestamp());
        }
        std::map<std::string, uint32_t> duplicatesOf;
        for (const gnmi::Update& each : update.update()) {
            const std::string row = rowOf(each.path());
            duplicatesOf[row] = each.duplicates();
            take(known[row], each);
            inOrder(row, update.timestamp());
        }
        for (const auto& [row, count] : duplicatesOf) {
            duplicates += count;
        }
    }

    std::map<std::string, Leafs> known;
    uint64_t duplicates = 0;
    size_t syncs = 0;

  private:
    void inOrder(const std::string& row, int64_t time) {
        REQUIRE(time >= newest_[row]);
        newest_[row] = time;
    }

    static std::string rowOf(gnmi::Path path) {
        path.mutable_elem()->DeleteSubrange(4, path.elem_size() - 4);
        return gnmi::textOf({}, path);
    }

    static std::string textOf(const nlohmann::json& value) {
        return value.is_string() ? value.get<std::string>() : value.dump();
    }

    static void take(Leafs& leafs, const gnmi::Update& update) {
        const gnmi::TypedValue& value = update.val();
        const std::string& leaf = update.path().elem_size() > 4 ? update.path().elem(4).name() : "";
        if (value.has_uint_val() || value.has_string_val()) {
            leafs[leaf] = value.has_uint_val() ? std::to_string(value.uint_val()) : value.string_val();
            return;
        }
        const auto json = nlohmann::json::parse(value.has_json_val() ? value.json_val() : value.json_ietf_val());
        if (!leaf.empty()) {
            leafs[leaf] = textOf(json);
            return;
        }
        for (const auto& [name, member] : json.items()) {
            leafs[name.substr(name.find(':') + 1)] = textOf(member);
        }
    }

    std::map<std::string, int64_t> newest_;  // of a row
};

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::Input input(data, size);
    const size_t bound = size_t{input.byte()} * 64;
    const auto encoding = std::array{Encoding::JSON, Encoding::JSON_IETF, Encoding::PROTO}[input.below(3)];
    const Rows rows(input, input.below(2) == 1);
    Client client;
    gnmi::Waiting waiting(bound);
    waiting.setForm(encoding, {});
    std::map<size_t, host::RecordPointer> there;
    size_t largest = 0;
    size_t syncs = 0;
    int64_t time = 1;
    uint64_t number = input.spread();
    std::optional<gnmi::SubscribeResponse> beingWritten;
    const auto check = [&] {
        const host::Account& account = waiting.account();
        REQUIRE(account.balanced());
        REQUIRE(account.bytesWaiting <= bound + kRows * 2 * largest);
        REQUIRE(client.duplicates <= account.allDropped());
    };
    const auto deliver = [&] {
        client.read(*beingWritten);
        beingWritten.reset();
        waiting.written(true);
        check();
    };
    while (!input.isOver()) {
        const uint8_t step = input.below(8);
        const size_t row = input.below(kRows);
        time += step % 2;
        if (step < 3) {
            const auto record = rows.record(row, number++);
            // Some hundred bytes beside the record: an entry of the list and the row's name.
            largest = std::max(largest, host::sizeOf(*record) + rows.key(row).size() + 256);
            waiting.addValue(rows.what(), rows.key(row), !there.contains(row), record, time);
            there[row] = record;
        } else if (step < 5 && there.erase(row) == 1) {
            waiting.addGone(rows.what(), rows.key(row), time);
        } else if (step == 5) {
            waiting.addSync();
            ++syncs;
        } else if (step == 6 && !beingWritten && !waiting.empty()) {
            waiting.take(beingWritten.emplace());
        } else if (step == 7 && beingWritten) {
            deliver();
        }
        check();
    }
    if (size % 4 == 0) {  // the stream ends while much waits
        waiting.stop();
        REQUIRE(waiting.empty());
        if (beingWritten) {
            waiting.written(false);
        }
        check();
        REQUIRE(waiting.account().waiting == 0 && waiting.account().bytesWaiting == 0);
        return 0;
    }
    if (beingWritten) {
        deliver();
    }
    while (!waiting.empty()) {
        waiting.take(beingWritten.emplace());
        deliver();
    }
    REQUIRE(waiting.account().waiting == 0 && waiting.account().bytesWaiting == 0);
    REQUIRE(client.syncs == syncs && client.known.size() == there.size());
    for (const auto& [row, record] : there) {
        gnmi::Path path = gnmi::pathOf(*rows.what().list, rows.key(row));
        REQUIRE(client.known.at(gnmi::textOf({}, path)) == rows.leafs(*record));
    }
    return 0;
}
