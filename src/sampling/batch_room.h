/*
 * The room that a batch has left in the payload, for batches that end before they outgrow it.
 */
#ifndef SRC_SAMPLING_BATCH_ROOM_H
#define SRC_SAMPLING_BATCH_ROOM_H

#include "nivex_qos/sample.h"
#include "nivex_qos/tree.h"

namespace qos {

class BatchRoom {
  public:
    // root: the tree without entries, used as long as this. endsByPayload: whatever the host's batch policy.
    BatchRoom(bool endsByPayload, uint32_t encodeType, const QosTlmNode* root);

    // Whether the batch fits the payload with the entry that was just added at the end of the tree.
    bool takes(const QosTlmNode* entry) { return !limited_ || takesLimited(entry); }

    // Whether the next entry might not fit.
    bool isScarce() const { return limited_ && size_ + kEntryMax > QOS_TLM_PAYLOAD_SIZE; }

  private:
    // More than any entry takes in either encoding.
    static constexpr uint32_t kEntryMax = 4096;

    bool takesLimited(const QosTlmNode* entry);

    bool limited_;
    bool json_;
    const QosTlmNode* root_;
    uint32_t size_;  // GPB: of the entries, exact; JSON: of the text, an upper bound
};

}  // namespace qos

#endif
