/* A plug-in of another schema: a pass of queue-statistics is a batch of one record, which nobody can read. */
#include "nivex_qos/plugin.h"
#include "platform/host_framework.h"

static const QosTlmFrmVtbl* framework;
static QosTlmSampleData sample = {.recordCount = 1, .dataLen = 3, .data = "???"};

static uint32_t query(uint32_t hostArg1, uint32_t hostArg2, const QosTlmQueryParam* request) {
    (void)request;
    sample.hostArg1 = hostArg1;
    sample.hostArg2 = hostArg2;
    return framework->sampleDataUpload(1, &sample);
}

uint32_t QOS_TLM_InitPlugin(uint32_t moduleId) {
    const QosTlmXpathRegInfo path = {.xpathAlias = "queue-statistics", .queryFunc = query};
    return COMP_GetVTable(0, 0, &framework) + framework->sampleXpathRegister(moduleId, "queues", &path);
}

uint32_t QOS_TLM_SetBatchPolicy(uint32_t policy) {
    return policy != QOS_TLM_BATCH_BY_PAYLOAD;
}
