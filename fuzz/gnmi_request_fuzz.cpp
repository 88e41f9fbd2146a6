// The gNMI service's reading of requests: whatever a client asks for, a status that says what would be right, or
// subscriptions that the plug-in follows and that select the rows that were asked for.
//
// An input is a GetRequest when its first byte is odd, else a SubscriptionList, as Protocol Buffers have them.
#include <algorithm>
#include <exception>
#include <set>

#include "devhost/gnmi/fault.h"
#include "devhost/gnmi/requests.h"
#include "devhost/support/shown.h"
#include "fuzz/input.h"

namespace {

constexpr size_t kMost = 64;

// May go to a terminal, and into a status, which holds UTF-8.
bool isFit(std::string_view text) {
    while (!text.empty()) {
        const host::Character character = host::firstCharacter(text);
        if (character.code == host::Character::kNone || !host::isPrintable(character.code)) {
            return false;
        }
        text.remove_prefix(character.size);
    }
    return true;
}

// Keys that the path leaves open have this value.
constexpr std::string_view kAny = "7";

host::RowKey rowWith(const gnmi::Addressed& what, std::string_view open) {
    std::vector<std::string> values;
    for (const int field : what.list->keys) {
        const auto key = std::ranges::find(what.keys, field, &gnmi::Addressed::Key::field);
        values.emplace_back(key == what.keys.end() ? open : key->value);
    }
    return host::rowKeyOf(values);
}

void checkRows(const gnmi::Addressed& what) {
    const host::RowKey row = rowWith(what, kAny);
    REQUIRE(what.matches(row));
    // The path of the row addresses it, and no other row.
    const gnmi::Path path = gnmi::pathOf(*what.list, row);
    const std::vector<gnmi::Addressed> again = gnmi::resolve({}, path);
    REQUIRE(again.size() == 1 && again.front().list == what.list && !again.front().leaf);
    REQUIRE(again.front().keys.size() == what.list->keys.size());
    REQUIRE(again.front().matches(row));
    if (what.keys.size() < what.list->keys.size()) {
        REQUIRE(!again.front().matches(rowWith(what, "8")));
    }
}

void check(const std::vector<gnmi::Wanted>& all, bool isStream) {
    REQUIRE(!all.empty() && all.size() <= kMost);
    for (const gnmi::Wanted& wanted : all) {
        REQUIRE(isFit(wanted.path) && !wanted.path.empty());
        const host::Subscription& sampling = wanted.sampling;
        REQUIRE(sampling.alias == wanted.what.list->alias);
        const QosTlmQueryParam request = host::requestOf(sampling);
        REQUIRE(request.conditionNum == sampling.conditions.size());
        REQUIRE(isStream ? sampling.every >= std::chrono::seconds(1) : sampling.every.count() == 0);
        REQUIRE(wanted.heartbeat.count() == 0 || wanted.heartbeat >= sampling.every);
        REQUIRE(wanted.changesOnly != wanted.compared.empty());
        // A heartbeat is kept although the plug-in leaves out what it takes for sent.
        REQUIRE(wanted.heartbeat.count() == 0 || !sampling.redundantPeriod || *sampling.redundantPeriod == 0 ||
                std::chrono::seconds(*sampling.redundantPeriod) + sampling.every <= wanted.heartbeat);
        checkRows(wanted.what);
    }
}

void checkFault(const gnmi::Fault& fault) {
    constexpr size_t kLongest = 4096;  // a header of gRPC has 8 KiB in all
    const std::set<grpc::StatusCode> codes = {grpc::StatusCode::INVALID_ARGUMENT, grpc::StatusCode::UNIMPLEMENTED,
                                              grpc::StatusCode::RESOURCE_EXHAUSTED};
    const grpc::Status status = fault.status();
    REQUIRE(codes.contains(status.error_code()));
    REQUIRE(!status.error_message().empty() && status.error_message().size() <= kLongest);
    REQUIRE(isFit(status.error_message()));
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::Input input(data, size);
    const bool isGet = input.byte() % 2 == 1;
    const std::string bytes(input.rest());
    gnmi::GetRequest get;
    gnmi::SubscriptionList list;
    if (!(isGet ? get.ParsePartialFromString(bytes) : list.ParsePartialFromString(bytes))) {
        return 0;  // by gRPC
    }
    try {
        const gnmi::Path& prefix = isGet ? get.prefix() : list.prefix();
        const gnmi::Path answers = gnmi::prefixOfAnswers(prefix);
        REQUIRE(answers.target() == prefix.target() && answers.elem().empty());
        check(isGet ? gnmi::wantedBy(get, kMost) : gnmi::wantedBy(list, kMost),
              !isGet && list.mode() == gnmi::SubscriptionList::STREAM);
    } catch (const gnmi::Fault& fault) {
        checkFault(fault);
    }
    return 0;
}
