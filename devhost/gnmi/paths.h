/*
 * gNMI paths and the rows that they address.
 */
#ifndef DEVHOST_GNMI_PATHS_H
#define DEVHOST_GNMI_PATHS_H

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "devhost/sampling/catalogue.h"
#include "devhost/sampling/records.h"
#include "gnmi.pb.h"

namespace gnmi {

/* The YANG module of all paths: their origin, and the prefix of names that have one. */
inline constexpr std::string_view kModule = "vexlor-qos";

/* What a path addresses of one list: all rows with these keys, or a leaf of each. */
struct Addressed {
    /* Of the list; the value as host::textOf() writes it, in UTF-8 as paths have it. */
    struct Key {
        int field;
        std::string value;
    };

    const host::Catalogued* list;
    std::vector<Key> keys;  // others are any
    std::optional<int> leaf = {};

    bool matches(const host::RowKey& row) const;
};

/*
 * What a path, behind a prefix, addresses: one list or, above the lists, several. Throws Fault for a path that is
 * malformed or that the schema does not have.
 */
std::vector<Addressed> resolve(const Path& prefix, const Path& path);

/* Both as people write a path, shortened if it is long. Fit for a terminal. */
std::string textOf(const Path& prefix, const Path& path);

/* The path of a row, with all its keys. */
Path pathOf(const host::Catalogued& list, const host::RowKey& row);

}  // namespace gnmi

#endif
