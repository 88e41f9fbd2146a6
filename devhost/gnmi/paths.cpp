#include "devhost/gnmi/paths.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <limits>
#include <map>

#include "devhost/gnmi/fault.h"
#include "devhost/support/shown.h"

namespace gnmi {

namespace {

using google::protobuf::FieldDescriptor;
using host::Catalogued;

// Above the containers of the lists.
constexpr std::array<std::string_view, 2> kTop = {"qos", "global-query"};
constexpr size_t kContainerDepth = kTop.size();
constexpr size_t kListDepth = kContainerDepth + 1;
constexpr size_t kLeafDepth = kListDepth + 1;

constexpr size_t kLongestKey = 255;

// What is told of a path, in bytes of it.
constexpr size_t kLongestTold = 256;

bool isNumber(const FieldDescriptor& field) {
    return field.cpp_type() == FieldDescriptor::CPPTYPE_UINT32;
}

// A path and its prefix, while it is taken apart.
class Resolution {
  public:
    Resolution(const Path& prefix, const Path& path) : prefix_(prefix), path_(path) {}

    std::vector<Addressed> all() const {
        checkWhole();
        for (size_t depth = 0; depth < depths(); ++depth) {
            checkElement(depth);
        }
        std::vector<Addressed> addressed;
        for (const Catalogued& list : host::catalogue()) {
            if (depths() <= kContainerDepth || name(kContainerDepth) == list.container->json_name()) {
                addressed.push_back({&list, {}});
            }
        }
        if (addressed.empty()) {
            std::vector<std::string_view> containers;
            for (const Catalogued& list : host::catalogue()) {
                containers.emplace_back(list.container->json_name());
            }
            missing(kContainerDepth, containers);
        }
        if (depths() > kListDepth) {
            narrow(addressed.front());
        }
        return addressed;
    }

  private:
    size_t depths() const { return static_cast<size_t>(prefix_.elem_size()) + static_cast<size_t>(path_.elem_size()); }

    const PathElem& element(size_t depth) const {
        const int index = static_cast<int>(depth);
        return index < prefix_.elem_size() ? prefix_.elem(index) : path_.elem(index - prefix_.elem_size());
    }

    // The module may stand before the first name.
    std::string_view name(size_t depth) const {
        std::string_view name = element(depth).name();
        if (depth == 0 && name.size() > kModule.size() && name.substr(0, kModule.size()) == kModule &&
            name[kModule.size()] == ':') {
            name.remove_prefix(kModule.size() + 1);
        }
        return name;
    }

    [[noreturn]] void refuse(grpc::StatusCode code, const std::string& why) const {
        throw Fault(code, fmt::format("path {}: {}", textOf(prefix_, path_), why));
    }

    [[noreturn]] void malformed(const std::string& why) const { refuse(grpc::StatusCode::INVALID_ARGUMENT, why); }

    template <class Names>
    [[noreturn]] void missing(size_t depth, const Names& names) const {
        refuse(grpc::StatusCode::UNIMPLEMENTED,
               fmt::format("the schema has no '{}' there, but {}",
                           host::shown(std::string_view(element(depth).name()).substr(0, kLongestTold)),
                           fmt::join(names, ", ")));
    }

    void checkWhole() const {
        for (const Path* part : {&prefix_, &path_}) {
            if (!part->origin().empty() && part->origin() != kModule) {
                refuse(grpc::StatusCode::UNIMPLEMENTED,
                       fmt::format("the origin '{}' is not served: leave it empty, or write {}",
                                   host::shown(std::string_view(part->origin()).substr(0, kLongestTold)), kModule));
            }
            if (part->element_size() > 0) {
                malformed("it has elements of the deprecated kind (field 1): use elem (field 3)");
            }
        }
        if (depths() == 0) {
            malformed("it is empty: /qos is everything that is served");
        }
        if (depths() > kLeafDepth + 1) {
            refuse(
                grpc::StatusCode::UNIMPLEMENTED,
                fmt::format("it has {} elements, the longest paths of the schema have {}", depths(), kLeafDepth + 1));
        }
    }

    void checkElement(size_t depth) const {
        if (name(depth).empty()) {
            malformed(fmt::format("its element {} has no name", depth + 1));
        }
        if (depth < kTop.size() && name(depth) != kTop[depth]) {
            missing(depth, std::array{kTop[depth]});
        }
        if (depth != kListDepth && !element(depth).key().empty()) {
            malformed(fmt::format("its element {} is no list and has no keys", depth + 1));
        }
    }

    // To what stands in the path from the list on.
    void narrow(Addressed& addressed) const {
        const Catalogued& list = *addressed.list;
        if (name(kListDepth) != list.alias) {
            missing(kListDepth, std::array{std::string_view(list.alias)});
        }
        for (const auto& [key, value] : element(kListDepth).key()) {
            if (value != "*") {
                addressed.keys.push_back(keyOf(list, key, value));
            } else {
                keyField(list, key);
            }
        }
        if (depths() > kLeafDepth) {
            const std::vector<std::string> names = list.fieldNames();
            const auto leaf = std::ranges::find(names, name(kLeafDepth));
            if (leaf == names.end()) {
                missing(kLeafDepth, names);
            }
            addressed.leaf = static_cast<int>(leaf - names.begin());
        }
    }

    int keyField(const Catalogued& list, const std::string& key) const {
        const auto field =
            std::ranges::find_if(list.keys, [&](int index) { return list.field(index).json_name() == key; });
        if (field == list.keys.end()) {
            std::vector<std::string> keys;
            for (const int index : list.keys) {
                keys.push_back(list.field(index).json_name());
            }
            malformed(fmt::format("'{}' is no key of {}, which has {}",
                                  host::shown(std::string_view(key).substr(0, kLongestTold)), list.alias,
                                  fmt::join(keys, ", ")));
        }
        return *field;
    }

    Addressed::Key keyOf(const Catalogued& list, const std::string& key, const std::string& value) const {
        const int field = keyField(list, key);
        if (value.size() > kLongestKey) {
            malformed(fmt::format("the key {} has {} bytes, the longest have {}", key, value.size(), kLongestKey));
        }
        if (!isNumber(list.field(field))) {
            return {field, value};
        }
        uint32_t number = 0;
        const char* const end = value.data() + value.size();
        if (const auto [rest, error] = std::from_chars(value.data(), end, number);
            error != std::errc{} || rest != end) {
            malformed(fmt::format("the key {} is a whole number from 0 to {}, or * for any", key,
                                  std::numeric_limits<uint32_t>::max()));
        }
        return {field, std::to_string(number)};
    }

    const Path& prefix_;
    const Path& path_;
};

void appendTo(std::string& text, const Path& path) {
    constexpr size_t kMostKeys = 8;
    for (const PathElem& element : path.elem()) {
        if (text.size() > kLongestTold) {
            return;
        }
        text += fmt::format("/{}", std::string_view(element.name()).substr(0, kLongestTold));
        if (element.key().size() > kMostKeys) {
            text += fmt::format("[{} keys]", element.key().size());
            continue;
        }
        // In an order of their own, which a map on the wire has not.
        const std::map<std::string_view, std::string_view> keys(element.key().begin(), element.key().end());
        for (const auto& [key, value] : keys) {
            text += fmt::format("[{}={}]", key.substr(0, kLongestTold), value.substr(0, kLongestTold));
        }
    }
}

}  // namespace

bool Addressed::matches(const host::RowKey& row) const {
    if (keys.empty()) {
        return true;
    }
    const std::vector<std::string> values = host::keysOf(row);
    return std::ranges::all_of(keys, [&](const Key& key) {
        const auto index = static_cast<size_t>(std::ranges::find(list->keys, key.field) - list->keys.begin());
        return values[index] == key.value || host::validUtf8(values[index]) == key.value;
    });
}

std::vector<Addressed> resolve(const Path& prefix, const Path& path) {
    return Resolution(prefix, path).all();
}

std::string textOf(const Path& prefix, const Path& path) {
    std::string text;
    appendTo(text, prefix);
    appendTo(text, path);
    if (text.empty()) {
        return "/";
    }
    return text.size() > kLongestTold ? host::shown(std::string_view(text).substr(0, kLongestTold)) + "..."
                                      : host::shown(text);
}

Path pathOf(const Catalogued& list, const host::RowKey& row) {
    Path path;
    for (const std::string_view name : kTop) {
        path.add_elem()->set_name(std::string(name));
    }
    path.add_elem()->set_name(list.container->json_name());
    PathElem& entry = *path.add_elem();
    entry.set_name(list.alias);
    const std::vector<std::string> keys = host::keysOf(row);
    for (size_t index = 0; index < keys.size(); ++index) {
        (*entry.mutable_key())[list.field(list.keys[index]).json_name()] = host::validUtf8(keys[index]);
    }
    return path;
}

}  // namespace gnmi
