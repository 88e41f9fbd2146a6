#include "nivex_qos/encode.h"
#include "nivex_qos/gpb.h"
#include "nivex_qos/json.h"

// In a source of its own: where a compiler sees these rows it may take them for granted, but the process can supply a
// table of its own under this name.
const QosTlmEncodeFuncEntry g_qosTlmEncodeFunc[QOS_TLM_ENCODE_TYPE_NUM] = {
    {QOS_TLM_EncodeProto, QOS_TLM_EstimatePackageSizeProto},
    {QOS_TLM_EncodeJson, QOS_TLM_EstimatePackageSizeJson},
};
