/*
 * The text of a string leaf, whose node holds its address as a number.
 */
#ifndef SRC_ENCODE_TREE_H
#define SRC_ENCODE_TREE_H

#include "nivex_qos/tree.h"

namespace qos {

// Null for a leaf whose text could not be copied.
inline char* textOf(const QosTlmNodeData& leaf) {
    return reinterpret_cast<char*>(static_cast<uintptr_t>(leaf.value));
}

}  // namespace qos

#endif
