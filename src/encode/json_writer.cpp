#include "nivex_qos/json.h"

#include <cstring>

#include "encode/status_log.h"
#include "encode/tree.h"
#include "nivex_qos/log.h"
#include "support/by_name.h"

namespace site = qos::site;

QOS_TLM_BY_NAME(wrapByName, QOS_TLM_WrapJsonRecursive);

namespace {

cJSON* newLeafItem(const QosTlmNodeData& leaf) {
    switch (leaf.valueType) {
        case QOS_TLM_VALUE_BOOL:
            return QOS_TLM_CreateCjsonBool(static_cast<uint32_t>(leaf.value) != 0 ? 1 : 0);
        case QOS_TLM_VALUE_UINT32:
            return QOS_TLM_CreateCjsonNumber(static_cast<uint32_t>(leaf.value));
        case QOS_TLM_VALUE_UINT64:
            return QOS_TLM_CreateCjsonNumber(static_cast<double>(leaf.value));
        default:
            return QOS_TLM_CreateCjsonString(qos::textOf(leaf));
    }
}

// A container is attached before it is filled: whatever fails later is then freed with the document.
uint32_t fill(cJSON* container, const QosTlmNode* node) {
    return wrapByName(node->firstChild, container) == 0 ? QOS_TLM_ENC_SUCCESS : QOS_TLM_ENC_WRAP_FAIL;
}

// The document's text in the host's memory, or null; the document is freed in either case.
char* printAndFree(cJSON* document, uint32_t* outLen) {
    char* copy = nullptr;
    char* text = QOS_TLM_PrtUnfmtCjson(document);
    if (text != nullptr) {
        copy = QOS_TLM_ConvertToStr(text, outLen);
        QOS_TLM_FreeCjson(text);
    }
    QOS_TLM_FreeCjsonNode(document);
    return copy;
}

}  // namespace

uint32_t QOS_TLM_WrapJsonLeaf(const QosTlmNodeData* leaf, cJSON* object) {
    if (leaf == nullptr || leaf->valueType > QOS_TLM_VALUE_STRING) {
        return QOS_TLM_ENC_CJSON_FAIL;
    }
    cJSON* item = newLeafItem(*leaf);
    if (item == nullptr) {
        qos::logAt(site::kNoLeafItem);
        return QOS_TLM_ENC_CJSON_FAIL;
    }
    QOS_TLM_AddCjsonItemToObj(object, leaf->name, item);
    return QOS_TLM_ENC_SUCCESS;
}

uint32_t QOS_TLM_DealRepeatNode(const QosTlmNode* node, cJSON* container) {
    if (node == nullptr) {
        return QOS_TLM_ENC_WRAP_FAIL;
    }
    if (node->repeatType == QOS_TLM_REPEAT_ENTRY) {
        cJSON* entry = QOS_TLM_CreateCjsonObject();
        if (entry == nullptr) {
            qos::logAt(site::kNoEntryObject);
            return QOS_TLM_ENC_CJSON_FAIL;
        }
        QOS_TLM_AddCjsonItemToArr(container, entry);
        return fill(entry, node);
    }
    if (node->repeatType == QOS_TLM_REPEAT_LIST) {
        cJSON* list = QOS_TLM_CreateCjsonArray();
        if (list == nullptr) {
            qos::logAt(site::kNoArray);
            return QOS_TLM_ENC_CJSON_FAIL;
        }
        QOS_TLM_AddCjsonItemToObj(container, node->data.name, list);
        return fill(list, node);
    }
    return QOS_TLM_ENC_SUCCESS;
}

uint32_t QOS_TLM_WrapJsonRecursive(const QosTlmNode* node, cJSON* container) {
    for (; node != nullptr; node = node->next) {
        if (node->isLeaf != 0) {
            if (QOS_TLM_WrapJsonLeaf(&node->data, container) != 0) {
                return QOS_TLM_ENC_WRAP_FAIL;
            }
            continue;
        }
        if (node->repeatType != QOS_TLM_REPEAT_NONE) {
            const uint32_t status = QOS_TLM_DealRepeatNode(node, container);
            if (status != 0) {
                return status;
            }
            continue;
        }
        cJSON* object = QOS_TLM_CreateCjsonObject();
        if (object == nullptr) {
            qos::logAt(site::kNoObject);
            return QOS_TLM_ENC_CJSON_FAIL;
        }
        QOS_TLM_AddCjsonItemToObj(container, node->data.name, object);
        const uint32_t status = fill(object, node);
        if (status != 0) {
            return status;
        }
    }
    return QOS_TLM_ENC_SUCCESS;
}

void* QOS_TLM_EncodeJson(const QosTlmNode* top, uint32_t* outLen) {
    cJSON* document = QOS_TLM_CreateCjsonObject();
    if (document == nullptr) {
        QOS_TLM_DiagErr("[Tlm EncodeJson] create json object failed.");
        qos::logAt(site::kNoDocument);
        return nullptr;
    }
    const uint32_t status = QOS_TLM_WrapJsonRecursive(top, document);
    if (status != 0) {
        QOS_TLM_DiagErr("[Tlm EncodeJson] wrap json failed.");
        qos::logAt(site::kTreeNotWrapped, status);
        QOS_TLM_FreeCjsonNode(document);
        return nullptr;
    }
    return printAndFree(document, outLen);
}

uint32_t QOS_TLM_EstimatePackageSizeJson(const QosTlmNode* top) {
    cJSON* document = QOS_TLM_CreateCjsonObject();
    if (document == nullptr) {
        qos::logAt(site::kNoEstimateDocument);
        return 0;
    }
    if (QOS_TLM_WrapJsonRecursive(top, document) != 0) {
        QOS_TLM_FreeCjsonNode(document);
        return 0;
    }
    uint32_t length = 0;
    char* text = QOS_TLM_PrtUnfmtCjson(document);
    if (text != nullptr) {
        length = static_cast<uint32_t>(strlen(text));
        QOS_TLM_FreeCjson(text);
    }
    QOS_TLM_FreeCjsonNode(document);
    return length;
}

char* QOS_TLM_EncodeJsonUnformatted(cJSON* document, uint32_t* outLen) {
    return document == nullptr ? nullptr : printAndFree(document, outLen);
}
