/*
 * What makes a node fit to be encoded.
 */
#ifndef SRC_ENCODE_TREE_H
#define SRC_ENCODE_TREE_H

#include "nivex_qos/tree.h"

namespace qos {

// The two faults that the tree operations let through: a null name, and a string leaf whose text was not copied.
inline bool isValid(const QosTlmNodeData& data) {
    return data.name != nullptr && (data.valueType != QOS_TLM_VALUE_STRING || data.value != 0);
}

}  // namespace qos

#endif
