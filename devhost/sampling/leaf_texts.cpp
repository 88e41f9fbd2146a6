#include "devhost/sampling/leaf_texts.h"

#include <stdexcept>

namespace host {

namespace {

struct Entry {
    std::string_view list;
    std::string_view leaf;
    LeafTexts texts;
};

constexpr Entry kEntries[] = {
#define LEAF(list, leaf, description, units) {list, leaf, {description, units}},
#include "leaf_texts.inc"
#undef LEAF
};

}  // namespace

LeafTexts leafTexts(const Catalogued& path, int field) {
    for (const Entry& entry : kEntries) {
        if (entry.list == path.alias && entry.leaf == path.field(field).json_name()) {
            return entry.texts;
        }
    }
    throw std::logic_error("the YANG module lacks " + path.alias + "/" + path.field(field).json_name());
}

}  // namespace host
