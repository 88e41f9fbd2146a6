#include "sampling/batch_policy.h"

#include "nivex_qos/sample.h"

namespace {

uint32_t batchPolicy = QOS_TLM_BATCH_BY_COUNT;

}  // namespace

uint32_t QOS_TLM_SetBatchPolicy(uint32_t policy) {
    if (policy > QOS_TLM_BATCH_BY_PAYLOAD) {
        return 1;
    }
    batchPolicy = policy;
    return 0;
}

bool qos::batchesEndByPayload() {
    return batchPolicy == QOS_TLM_BATCH_BY_PAYLOAD;
}
