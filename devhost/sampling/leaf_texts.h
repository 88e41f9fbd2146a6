/*
 * What the schema says of the leaves in words; made of vexlor-qos.yang by the build. Lives as long as the program.
 */
#ifndef DEVHOST_SAMPLING_LEAF_TEXTS_H
#define DEVHOST_SAMPLING_LEAF_TEXTS_H

#include <string_view>

#include "devhost/sampling/catalogue.h"

namespace host {

struct LeafTexts {
    std::string_view description;  // a sentence
    std::string_view units;        // as in "packets per second"; empty when the schema gives none
};

/* Of a field of the path, by its index. */
LeafTexts leafTexts(const Catalogued& path, int field);

}  // namespace host

#endif
