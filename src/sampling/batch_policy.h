/*
 * When batches end: the choice of the host.
 */
#ifndef SRC_SAMPLING_BATCH_POLICY_H
#define SRC_SAMPLING_BATCH_POLICY_H

namespace qos {

bool batchesEndByPayload();

}  // namespace qos

#endif
