/*
 * The query cycle that every family runs, and its steps one by one, made from the family's description.
 *
 * Cycle<Family> is the one piece of code behind a family's query function and its exported steps. Null arguments of
 * exported steps are answered here: 1 from steps, 0 from questions, nothing from the rest, no message.
 */
#ifndef SRC_FAMILIES_CYCLE_H
#define SRC_FAMILIES_CYCLE_H

#include <type_traits>

#include "families/description.h"
#include "nivex_qos/assembly.h"
#include "nivex_qos/log.h"
#include "platform/qos_db.h"
#include "sampling/batch_room.h"
#include "sampling/history.h"

namespace qos {

// The arguments that every table constructor takes; their meaning is the database's.
inline constexpr uint32_t kTableArgs[2] = {5, 0};

inline constexpr Node kQosNode = {"qos", 0};
inline constexpr Node kGlobalQueryNode = {"global-query", 5};

template <class F>
class Cycle {
    using Record = typename F::Record;
    static constexpr bool kPlain = std::is_same_v<decltype(F::steps), const NamedSteps<Record, PlainCheck<Record>>>;

  public:
    static uint32_t query(const QosTlmQueryParam* request, QosTlmSampleData* sampleData) {
        if (request == nullptr || sampleData == nullptr) {
            return QOS_TLM_RESULT_FAILED;
        }
        void* object = nullptr;
        void* iterator = nullptr;
        if (open(&object, &iterator) != 0) {
            return QOS_TLM_RESULT_FAILED;
        }
        QosTlmNode* root = nullptr;
        QosTlmNode* list = nullptr;
        uint32_t result = QOS_TLM_RESULT_FAILED;
        if (startNode(request->encodeType, &root, &list) == 0) {
            result = walk(request, sampleData, object, iterator, root, list);
            QOS_TLM_ReleaseNode(root);
        }
        F::table.release(object);
        return result;
    }

    // --- Opening the table ---

    static uint32_t open(void** object, void** iterator) {
        if (object == nullptr || iterator == nullptr) {
            return 1;
        }
        *iterator = nullptr;
        uint32_t result = F::table.create(kTableArgs[0], kTableArgs[1], object);
        if (result != 0) {
            *object = nullptr;
            return fail(F::messages.createObject, result);
        }
        result = db_create_root_iter(*object, nullptr, nullptr, iterator);
        if (result != 0) {
            F::table.release(*object);
            *object = nullptr;
            *iterator = nullptr;
            return fail(F::messages.createIterator, result);
        }
        return 0;
    }

    // --- The start of the tree ---

    static uint32_t startNode(uint32_t encodeType, QosTlmNode** root, QosTlmNode** list) {
        switch (encodeType) {
            case QOS_TLM_ENCODE_GPB:
                return gpbStartNode(root, list);
            case QOS_TLM_ENCODE_JSON:
                return jsonStartNode(root, list);
            default:
                return clear(root, list);
        }
    }

    static uint32_t gpbStartNode(QosTlmNode** root, QosTlmNode** list) {
        clear(root, list);
        if (root == nullptr || list == nullptr) {
            return 1;
        }
        QosTlmNode* last = nullptr;
        if (!append(root, &last, kGlobalQueryNode, QOS_TLM_REPEAT_NONE, F::messages.gpbNode1) ||
            !append(root, &last, F::container, QOS_TLM_REPEAT_NONE, F::messages.gpbNode2)) {
            return 1;
        }
        *list = last;
        return 0;
    }

    static uint32_t jsonStartNode(QosTlmNode** root, QosTlmNode** list) {
        clear(root, list);
        if (root == nullptr || list == nullptr) {
            return 1;
        }
        QosTlmNode* last = nullptr;
        if (!append(root, &last, kQosNode, QOS_TLM_REPEAT_NONE, F::messages.jsonRoot) ||
            !append(root, &last, kGlobalQueryNode, QOS_TLM_REPEAT_NONE, F::messages.jsonNode1) ||
            !append(root, &last, F::container, QOS_TLM_REPEAT_NONE, F::messages.jsonNode2) ||
            !append(root, &last, F::list, QOS_TLM_REPEAT_LIST, F::messages.jsonNode3)) {
            return 1;
        }
        *list = last;
        return 0;
    }

    // --- The pass ---

    // Begins a pass, or continues one that stopped at the batch limit; answers which (1 = continues).
    static uint32_t beginPass() {
        const uint32_t previous = *F::queryToEnd;
        if (previous == 0) {
            QOS_HashRelease(F::index);
        }
        *F::queryToEnd = 0;
        return previous;
    }

    // Marks a record sent and counts it; 1, with the pass left open, when the batch is full.
    static uint32_t isBatchFull(const Record* record, uint32_t* count) {
        if (record == nullptr || count == nullptr) {
            return 0;
        }
        Key key;
        if (!F::keys.find(*record, KeyUse::count, key)) {
            return 0;
        }
        QOS_HashInsert(F::index, key.sent);
        if (++*count < F::batchLimit) {
            return 0;
        }
        *F::queryToEnd = 1;
        return 1;
    }

    // --- One record ---

    static uint32_t read(void* object, Record* record) {
        if (object == nullptr || record == nullptr) {
            return 1;
        }
        return std::apply(
            [&](const auto&... columns) {
                std::tuple<typename std::remove_cvref_t<decltype(columns)>::Pending...> pending;
                return std::apply(
                    [&](auto&... texts) {
                        // Every accessor is called, also after one has failed.
                        uint32_t sum = 0;
                        ((sum += columns.read(object, *record, texts)), ...);
                        if (sum != 0) {
                            return fail(F::messages.readField, sum);
                        }
                        int copied = 0;
                        (void)(((copied = columns.finish(*record, texts)) == 0) && ...);
                        return copied == 0 ? 0 : fail(F::messages.copyText, static_cast<uint32_t>(copied));
                    },
                    pending);
            },
            F::columns);
    }

    static uint32_t check(uint32_t previousFlag, const Record* record, const QosTlmQueryParam* request,
                          uint32_t* thresholdValue) {
        if (record == nullptr || request == nullptr || thresholdValue == nullptr) {
            return 0;
        }
        if constexpr (requires { F::admits(*record); }) {
            if (!F::admits(*record)) {
                return 0;
            }
        }
        return isSent(previousFlag, record) == 0 ? checkUnsent(record, request, thresholdValue) : 0;
    }

    // The check of a family without change suppression, period and thresholds.
    static uint32_t plainCheck(uint32_t previousFlag, const Record* record, const QosTlmQueryParam* request) {
        if (record == nullptr || request == nullptr) {
            return 0;
        }
        return isSent(previousFlag, record) == 0 ? isCondition(record, request) : 0;
    }

    static uint32_t isSent(uint32_t previousFlag, const Record* record) {
        Key key;
        if (record == nullptr || !F::keys.find(*record, KeyUse::sentTest, key)) {
            return 0;
        }
        return previousFlag == 1 ? QOS_HashFind(F::index, key.sent) : 0;
    }

    static uint32_t isCondition(const Record* record, const QosTlmQueryParam* request) {
        if (record == nullptr || request == nullptr) {
            return 0;
        }
        return everyCondition(*request,
                              [&](const auto& honoured, const char* value) { return honoured.holds(*record, value); });
    }

    // Whether the test of a condition and its value succeeds for each one that the family honours; others restrict
    // nothing.
    template <class Test>
    static uint32_t everyCondition(const QosTlmQueryParam& request, Test test) {
        const uint32_t count =
            request.conditionNum < QOS_TLM_CONDITION_MAX ? request.conditionNum : QOS_TLM_CONDITION_MAX;
        for (uint32_t i = 0; i < count; ++i) {
            const QosTlmCondition& condition = request.conditions[i];
            const bool holds = std::apply(
                [&](const auto&... honoured) {
                    return ((!fieldEquals(condition.fieldName, honoured.name) ||
                             test(honoured, BoundedText(condition.value).get())) &&
                            ...);
                },
                F::conditions);
            if (!holds) {
                return 0;
            }
        }
        return 1;
    }

    static uint32_t isRedundant(const Record* record, const QosTlmQueryParam* request) {
        if (record == nullptr || request == nullptr) {
            return 0;
        }
        Key key;
        if (!F::keys.find(*record, KeyUse::redundancy, key) ||
            QOS_TLM_IsOverPeriod(key.first, key.second, F::index, request->redundantPeriod) != 0) {
            return 0;
        }
        uint64_t digest = 0;
        std::apply([&](auto... fields) { (QOS_TLM_IntegerHash(&digest, record->*fields), ...); }, F::digest);
        return QOS_TLM_IsRedundantData(key.first, key.second, digest, F::index);
    }

    static uint32_t isSelfDefEvt(const Record* record, const QosTlmQueryParam* request, uint32_t* value) {
        if (record == nullptr || request == nullptr || value == nullptr) {
            return 0;
        }
        Key key;
        if (!F::keys.find(*record, KeyUse::period, key) ||
            QOS_TLM_IsOverPeriod(key.first, key.second, F::index, request->selfDefPeriod) == 0) {
            return 0;
        }
        return isThreshold(record, request, value);
    }

    static uint32_t isThreshold(const Record* record, const QosTlmQueryParam* request, uint32_t* value) {
        if (record == nullptr || request == nullptr || value == nullptr) {
            return 0;
        }
        if (request->thresholdNum == 0) {
            return 1;
        }
        const BoundedText fieldName(request->thresholds[0].fieldName);
        uint32_t compared = 0;
        getFieldValue(fieldName.get(), record, &compared);
        if (QOS_TLM_ThresholdFilter(request, compared) == 0) {
            return 0;
        }
        *value = compared;
        return 1;
    }

    static void getFieldValue(const char* fieldName, const Record* record, uint32_t* value) {
        if (fieldName == nullptr || record == nullptr || value == nullptr) {
            return;
        }
        *value = 0;
        std::apply(
            [&](const auto&... leaves) {
                (void)((strcmp(fieldName, leaves.name) == 0 && (*value = leaves.compared(*record), true)) || ...);
            },
            F::leaves);
    }

    static uint32_t addEntry(QosTlmNode* list, const Record* record) {
        if (list == nullptr || record == nullptr) {
            return 1;
        }
        QosTlmNode* entry = QOS_TLM_CreateNode(F::entry.name, F::entry.number, QOS_TLM_REPEAT_ENTRY);
        if (entry == nullptr) {
            QOS_TLM_DiagErr("%s", F::messages.entryNode);
            return 1;
        }
        QOS_TLM_AddChild(list, entry);
        // Every leaf is tried, also after one has failed.
        uint32_t failed = 0;
        std::apply([&](const auto&... leaves) { ((failed |= leaves.add(entry, *record)), ...); }, F::leaves);
        return failed;
    }

  private:
    // A function of its own, so that the many records that a long pass has sent already do not pay for its frame.
    [[gnu::noinline]] static uint32_t checkUnsent(const Record* record, const QosTlmQueryParam* request,
                                                  uint32_t* thresholdValue) {
        if (isCondition(record, request) == 0) {
            return 0;
        }
        if (request->suppressRedundant == 1) {
            return isRedundant(record, request) == 0 ? 1 : 0;
        }
        return request->periodCheck == 1 ? isSelfDefEvt(record, request, thresholdValue)
                                         : isThreshold(record, request, thresholdValue);
    }

    // From the first record of the table to the encoded batch.
    static uint32_t walk(const QosTlmQueryParam* request, QosTlmSampleData* sampleData, void* object, void* iterator,
                         QosTlmNode* root, QosTlmNode* list) {
        const uint32_t previous = beginPass();
        BatchRoom room(F::endsByPayload, request->encodeType, root);
        Record record = {};
        TrackingMark mark;
        uint32_t count = 0;
        uint32_t moved = 0;
        while ((moved = db_root_iterator_next(iterator)) == 0) {
            if (F::steps.read(object, &record) != 0) {
                return QOS_TLM_RESULT_FAILED;
            }
            if (room.isScarce()) {
                mark = markOf(record);
            }
            if (check(previous, record, request, sampleData) == 0) {
                continue;
            }
            QosTlmNode* lastEntry = list->lastChild;
            const BatchRoom roomBefore = room;
            if (F::steps.addEntry(list, &record) != 0) {
                return QOS_TLM_RESULT_FAILED;
            }
            const bool fits = room.takes(list->lastChild);
            // A record without a key comes with every call: it must leave room for one that gets the pass further.
            if (room.isScarce() && !hasKey(record)) {
                removeAfter(list, lastEntry);
                room = roomBefore;
                continue;
            }
            if (!fits && count > 0) {
                removeAfter(list, lastEntry);
                mark.restore();
                *F::queryToEnd = 1;
                break;
            }
            if (isBatchFull(&record, &count) != 0) {
                break;
            }
        }
        if (moved != 0 && moved != QOS_DB_END) {
            return QOS_TLM_RESULT_FAILED;
        }
        QOS_TLM_EncodingData(root, request->encodeType, count, sampleData);
        return *F::queryToEnd == 0 ? QOS_TLM_RESULT_DONE : QOS_TLM_RESULT_MORE;
    }

    static uint32_t check(uint32_t previous, const Record& record, const QosTlmQueryParam* request,
                          QosTlmSampleData* sampleData) {
        if constexpr (kPlain) {
            return F::steps.check(previous, &record, request);
        } else {
            return F::steps.check(previous, &record, request, &sampleData->thresholdValue);
        }
    }

    // What the tracking tables hold of a record before its check: a record that is put off must not count as seen.
    static TrackingMark markOf(const Record& record) {
        Key key;
        if (kPlain || !F::keys.find(record, KeyUse::mark, key)) {
            return {};
        }
        return {key.first, key.second, F::index};
    }

    static bool hasKey(const Record& record) {
        Key key;
        return F::keys.find(record, KeyUse::mark, key);
    }

    static void removeAfter(QosTlmNode* list, QosTlmNode* lastEntry) {
        QOS_TLM_ReleaseNode(list->lastChild);
        list->lastChild = lastEntry;
        (lastEntry == nullptr ? list->firstChild : lastEntry->next) = nullptr;
    }

    // Makes a node under *last, or as *root; on failure logs and leaves neither root nor node.
    static bool append(QosTlmNode** root, QosTlmNode** last, const Node& node, QosTlmRepeatType type,
                       const char* failure) {
        QosTlmNode* made = QOS_TLM_CreateNode(node.name, node.number, static_cast<uint16_t>(type));
        if (made == nullptr) {
            QOS_TLM_DiagErr("%s", failure);
            QOS_TLM_ReleaseNode(*root);
            *root = nullptr;
            return false;
        }
        if (*root == nullptr) {
            *root = made;
        } else {
            QOS_TLM_AddChild(*last, made);
        }
        *last = made;
        return true;
    }

    static uint32_t clear(QosTlmNode** root, QosTlmNode** list) {
        if (root != nullptr) {
            *root = nullptr;
        }
        if (list != nullptr) {
            *list = nullptr;
        }
        return 1;
    }

    static uint32_t fail(const char* message, uint32_t code) {
        QOS_TLM_DiagErr("%s%d.", message, static_cast<int>(code));
        return 1;
    }
};

}  // namespace qos

// Stamp out the exported functions of a family; its header declares and explains them. They come in groups, since some
// families lack a group or name a function in their own way.

#define QOS_TLM_DEFINE_QUERY(NAME, FAMILY)                                         \
    uint32_t NAME(const QosTlmQueryParam* request, QosTlmSampleData* sampleData) { \
        return qos::Cycle<FAMILY>::query(request, sampleData);                     \
    }

#define QOS_TLM_DEFINE_STEPS(TAG, FAMILY)                                                             \
    uint32_t QOS_TLM_Get##TAG##Iter(void** object, void** iterator) {                                 \
        return qos::Cycle<FAMILY>::open(object, iterator);                                            \
    }                                                                                                 \
    uint32_t QOS_TLM_Get##TAG##StartNode(uint32_t encodeType, QosTlmNode** root, QosTlmNode** list) { \
        return qos::Cycle<FAMILY>::startNode(encodeType, root, list);                                 \
    }                                                                                                 \
    uint32_t QOS_TLM_Init##TAG##QueryFlag() {                                                         \
        return qos::Cycle<FAMILY>::beginPass();                                                       \
    }                                                                                                 \
    uint32_t QOS_TLM_IsSent##TAG(uint32_t previousFlag, const FAMILY::Record* record) {               \
        return qos::Cycle<FAMILY>::isSent(previousFlag, record);                                      \
    }                                                                                                 \
    uint32_t QOS_TLM_Get##TAG##DataNode(QosTlmNode* list, const FAMILY::Record* record) {             \
        return qos::Cycle<FAMILY>::addEntry(list, record);                                            \
    }

#define QOS_TLM_DEFINE_READ(TAG, FAMILY)                                      \
    uint32_t QOS_TLM_Read##TAG##Field(void* object, FAMILY::Record* record) { \
        return qos::Cycle<FAMILY>::read(object, record);                      \
    }

#define QOS_TLM_DEFINE_START_NODES(TAG, FAMILY)                                      \
    uint32_t QOS_TLM_Get##TAG##GpbStartNode(QosTlmNode** root, QosTlmNode** list) {  \
        return qos::Cycle<FAMILY>::gpbStartNode(root, list);                         \
    }                                                                                \
    uint32_t QOS_TLM_Get##TAG##JsonStartNode(QosTlmNode** root, QosTlmNode** list) { \
        return qos::Cycle<FAMILY>::jsonStartNode(root, list);                        \
    }

#define QOS_TLM_DEFINE_CONDITION(TAG, FAMILY)                                                          \
    uint32_t QOS_TLM_IsCondition##TAG(const FAMILY::Record* record, const QosTlmQueryParam* request) { \
        return qos::Cycle<FAMILY>::isCondition(record, request);                                       \
    }

#define QOS_TLM_DEFINE_CHECKS(TAG, FAMILY)                                                                            \
    uint32_t QOS_TLM_Check##TAG(uint32_t previousFlag, const FAMILY::Record* record, const QosTlmQueryParam* request, \
                                uint32_t* thresholdValue) {                                                           \
        return qos::Cycle<FAMILY>::check(previousFlag, record, request, thresholdValue);                              \
    }                                                                                                                 \
    uint32_t QOS_TLM_IsRedundant##TAG(const FAMILY::Record* record, const QosTlmQueryParam* request) {                \
        return qos::Cycle<FAMILY>::isRedundant(record, request);                                                      \
    }                                                                                                                 \
    uint32_t QOS_TLM_IsSelfDefEvt##TAG(const FAMILY::Record* record, const QosTlmQueryParam* request,                 \
                                       uint32_t* value) {                                                             \
        return qos::Cycle<FAMILY>::isSelfDefEvt(record, request, value);                                              \
    }                                                                                                                 \
    uint32_t QOS_TLM_IsThreshold##TAG(const FAMILY::Record* record, const QosTlmQueryParam* request,                  \
                                      uint32_t* value) {                                                              \
        return qos::Cycle<FAMILY>::isThreshold(record, request, value);                                               \
    }

#define QOS_TLM_DEFINE_PLAIN_CHECK(TAG, FAMILY)                                      \
    uint32_t QOS_TLM_Check##TAG(uint32_t previousFlag, const FAMILY::Record* record, \
                                const QosTlmQueryParam* request) {                   \
        return qos::Cycle<FAMILY>::plainCheck(previousFlag, record, request);        \
    }

#define QOS_TLM_DEFINE_FIELD_VALUE(NAME, FAMILY)                                      \
    void NAME(const char* fieldName, const FAMILY::Record* record, uint32_t* value) { \
        qos::Cycle<FAMILY>::getFieldValue(fieldName, record, value);                  \
    }

#define QOS_TLM_DEFINE_BATCH_FULL(NAME, FAMILY)                    \
    uint32_t NAME(const FAMILY::Record* record, uint32_t* count) { \
        return qos::Cycle<FAMILY>::isBatchFull(record, count);     \
    }

#endif
