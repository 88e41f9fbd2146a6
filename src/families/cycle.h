/*
 * The query cycle that every family runs, and its steps one by one, made from the family's description.
 *
 * Cycle<family> is the one piece of code behind a family's query function and its exported steps. Null arguments of
 * exported steps are answered here: 1 from steps, 0 from questions, nothing from the rest, no message. The description
 * is known when this is compiled, so that the loops over its rows come out as straight code.
 */
#ifndef SRC_FAMILIES_CYCLE_H
#define SRC_FAMILIES_CYCLE_H

#include <algorithm>
#include <type_traits>
#include <utility>

#include "families/batch_room.h"
#include "families/description.h"
#include "nivex_qos/assembly.h"
#include "nivex_qos/filter.h"
#include "nivex_qos/log.h"
#include "nivex_qos/tracking.h"
#include "platform/bounded.h"
#include "support/bounded_text.h"

namespace qos {

// The arguments that every table constructor takes; their meaning is the database's.
inline constexpr uint32_t kTableArgs[2] = {5, 0};

template <const auto& F>
class Cycle {
    using Record = typename std::remove_cvref_t<decltype(F)>::Record;
    static constexpr Path kPath = kPaths[F.index];

    static_assert(F.columns.empty() || fillRecord<Record>(F.columns),
                  "a column is forgotten, or stands twice or in the wrong place");
    static_assert(areDistinct(F.leaves), "a leaf's name, number or field stands twice");

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
        if (startNode(request->encodeType, &root, &list, gpbStartNode) == 0) {
            result = walk(request, sampleData, object, iterator, root, list);
            QOS_TLM_ReleaseNode(root);
        }
        F.table.release(object);
        return result;
    }

    // --- Opening the table ---

    static uint32_t open(void** object, void** iterator) {
        if (object == nullptr || iterator == nullptr) {
            return 1;
        }
        *iterator = nullptr;
        uint32_t result = F.table.create(kTableArgs[0], kTableArgs[1], object);
        if (result != 0) {
            *object = nullptr;
            return fail(F.messages.createObject, result);
        }
        result = db_create_root_iter(*object, nullptr, nullptr, iterator);
        if (result != 0) {
            F.table.release(*object);
            *object = nullptr;
            *iterator = nullptr;
            return fail(F.messages.createIterator, result);
        }
        return 0;
    }

    // --- The start of the tree ---

    static uint32_t startNode(uint32_t encodeType, QosTlmNode** root, QosTlmNode** list,
                              uint32_t (*gpb)(QosTlmNode**, QosTlmNode**) = F.steps.gpbStartNode) {
        switch (encodeType) {
            case QOS_TLM_ENCODE_GPB:
                return gpb(root, list);
            case QOS_TLM_ENCODE_JSON:
                return F.steps.jsonStartNode(root, list);
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
        if (!append(root, &last, kGlobalQueryNode, QOS_TLM_REPEAT_NONE, F.messages.gpbNode1) ||
            !append(root, &last, kContainerNode, QOS_TLM_REPEAT_NONE, F.messages.gpbNode2)) {
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
        if (!append(root, &last, kQosNode, QOS_TLM_REPEAT_NONE, F.messages.jsonRoot) ||
            !append(root, &last, kGlobalQueryNode, QOS_TLM_REPEAT_NONE, F.messages.jsonNode1) ||
            !append(root, &last, kContainerNode, QOS_TLM_REPEAT_NONE, F.messages.jsonNode2) ||
            !append(root, &last, kListNode, QOS_TLM_REPEAT_LIST, F.messages.jsonNode3)) {
            return 1;
        }
        *list = last;
        return 0;
    }

    // --- The pass ---

    // Begins a pass, or continues one that a call left open; answers which (1 = continues).
    static uint32_t beginPass() {
        const uint32_t continues = *F.passIsOpen;
        if (continues == 0) {
            QOS_HashRelease(F.index);
        }
        *F.passIsOpen = 0;
        return continues;
    }

    // Marks a record sent and counts it; 1, with the pass left open, when the batch is full.
    static uint32_t isBatchFull(const Record* record, uint32_t* count) {
        Key key;
        if (record == nullptr || count == nullptr || !find(key, *record, KeyUse::count)) {
            return 0;
        }
        QOS_HashInsert(F.index, key.sent);
        if (++*count < kPath.batchLimit) {
            return 0;
        }
        *F.passIsOpen = 1;
        return 1;
    }

    // --- One record ---

    static uint32_t read(void* object, Record* record) {
        if (object == nullptr || record == nullptr) {
            return 1;
        }
        const char* texts[textsBefore(F.columns.size())] = {};
        // Every accessor is called, also after one has failed.
        uint32_t sum = 0;
        each<F.columns.size()>([&](auto i) { sum += F.columns[i].read(object, record, texts + textsBefore(i)); });
        if (sum != 0) {
            return fail(F.messages.readField, sum);
        }
        int copied = 0;
        each<F.columns.size()>([&](auto i) {
            constexpr Field field = F.columns[i].field;
            if (field.type == Type::text && copied == 0) {
                copied = strcpy_s(reinterpret_cast<char*>(record) + field.offset, field.size, texts[textsBefore(i)]);
            }
        });
        return copied == 0 ? 0 : fail(F.messages.copyText, static_cast<uint32_t>(copied));
    }

    static uint32_t check(uint32_t continues, const Record* record, const QosTlmQueryParam* request,
                          uint32_t* thresholdValue) {
        if (record == nullptr || request == nullptr || thresholdValue == nullptr) {
            return 0;
        }
        if (F.admits != nullptr && !F.admits(*record)) {
            return 0;
        }
        return isSent(continues, record) == 0 ? checkUnsent(record, request, thresholdValue) : 0;
    }

    static uint32_t isSent(uint32_t continues, const Record* record) {
        Key key;
        if (record == nullptr || !find(key, *record, KeyUse::sentTest)) {
            return 0;
        }
        return continues == 1 ? QOS_HashFind(F.index, key.sent) : 0;
    }

    static uint32_t isCondition(const Record* record, const QosTlmQueryParam* request) {
        if (record == nullptr || request == nullptr) {
            return 0;
        }
        return everyCondition(
            *request, [&](const Condition& condition, const char* value) { return holds(condition, record, value); });
    }

    // Whether the test of a condition and its value succeeds for each one that the family honours; others restrict
    // nothing.
    template <class Test>
    static uint32_t everyCondition(const QosTlmQueryParam& request, Test test) {
        const uint32_t count =
            request.conditionNum < QOS_TLM_CONDITION_MAX ? request.conditionNum : QOS_TLM_CONDITION_MAX;
        for (uint32_t i = 0; i < count; ++i) {
            const QosTlmCondition& condition = request.conditions[i];
            for (const Condition& honoured : F.conditions) {
                if (fieldEquals(condition.fieldName, honoured.name) &&
                    !test(honoured, BoundedText(condition.value).get())) {
                    return 0;
                }
            }
        }
        return 1;
    }

    static uint32_t isRedundant(const Record* record, const QosTlmQueryParam* request) {
        Key key;
        if (record == nullptr || request == nullptr || !find(key, *record, KeyUse::change) ||
            QOS_TLM_IsOverPeriod(key.tracked, key.subIndex, F.index, request->redundantPeriod) != 0) {
            return 0;
        }
        uint64_t digest = 0;
        each<F.digest.size()>([&](auto i) { QOS_TLM_IntegerHash(&digest, F.digest[i].numberOf(record)); });
        return QOS_TLM_IsRedundantData(key.tracked, key.subIndex, digest, F.index);
    }

    // The period is over and the thresholds pass: the self-defined event.
    static uint32_t isDue(const Record* record, const QosTlmQueryParam* request, uint32_t* value) {
        Key key;
        if (record == nullptr || request == nullptr || value == nullptr || !find(key, *record, KeyUse::period) ||
            QOS_TLM_IsOverPeriod(key.tracked, key.subIndex, F.index, request->selfDefPeriod) == 0) {
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
        uint32_t compared = 0;
        either(F.steps.fieldValue, getFieldValue)(BoundedText(request->thresholds[0].fieldName).get(), record,
                                                  &compared);
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
        const std::string_view wanted = fieldName;
        each<F.leaves.size()>([&](auto i) {
            if (wanted == F.leaves[i].name) {
                *value = static_cast<uint32_t>(F.leaves[i].compared.numberOf(record));
            }
        });
    }

    static uint32_t addEntry(QosTlmNode* list, const Record* record) {
        if (list == nullptr || record == nullptr) {
            return 1;
        }
        QosTlmNode* entry = QOS_TLM_CreateNode(kPath.list, kEntryNumber, QOS_TLM_REPEAT_ENTRY);
        if (entry == nullptr) {
            QOS_TLM_DiagErr("%s", F.messages.entryNode);
            return 1;
        }
        QOS_TLM_AddChild(list, entry);
        // Every leaf is tried, also after one has failed.
        uint32_t failed = 0;
        each<F.leaves.size()>([&](auto i) { failed |= F.leaves[i].add(entry, record); });
        return failed;
    }

  private:
    static constexpr Node kContainerNode = {kPath.container, F.containerNumber};
    static constexpr Node kListNode = {kPath.list, F.listNumber};

    // The texts that are read before a column.
    static constexpr size_t textsBefore(size_t column) {
        const auto end = F.columns.begin() + static_cast<ptrdiff_t>(column);
        return static_cast<size_t>(
            std::count_if(F.columns.begin(), end, [](const Column& each) { return each.type == Type::text; }));
    }

    template <size_t Count, class Body>
    [[gnu::always_inline]] static void each(Body body) {
        [&]<size_t... I>(std::index_sequence<I...>) {
            (body(std::integral_constant<size_t, I>()), ...);
        }
        (std::make_index_sequence<Count>());
    }

    // A step by its exported name, or done here.
    template <class Function>
    static constexpr Function* either(Function* named, Function* here) {
        return named != nullptr ? named : here;
    }

    // A function of its own, so that the many records that a long pass has sent already do not pay for its frame.
    [[gnu::noinline]] static uint32_t checkUnsent(const Record* record, const QosTlmQueryParam* request,
                                                  uint32_t* thresholdValue) {
        if (either(F.steps.isCondition, isCondition)(record, request) == 0) {
            return 0;
        }
        if (request->suppressRedundant == 1) {
            return either(F.steps.isRedundant, isRedundant)(record, request) == 0 ? 1 : 0;
        }
        return request->periodCheck == 1 ? either(F.steps.isSelfDefEvt, isDue)(record, request, thresholdValue)
                                         : isThreshold(record, request, thresholdValue);
    }

    static bool holds(const Condition& condition, const Record* record, const char* value) {
        uint32_t wanted = 0;
        switch (condition.match) {
            case Match::pattern:
                return QOS_TLM_CheckIfName(value, condition.field.textOf(record), condition.field.size) != 0;
            case Match::exact:
                return strcmp(condition.field.textOf(record), value) == 0;
            case Match::number:
                if (QOS_TLM_ParsesString2Number(value, &wanted) != 0) {
                    QOS_TLM_DiagErr("%s", condition.noNumber);
                    return false;
                }
                break;
            case Match::serviceClass:
                QOS_TLM_ParsesServiceClassToQueueId(value, &wanted);
                break;
        }
        return wanted == condition.field.numberOf(record);
    }

    static bool find(Key& key, const Record& record, KeyUse use) {
        if constexpr (F.keys.slot.type != Type::none) {
            uint32_t slot = 0;
            if (QOS_TLM_StrSlot2IntSlot(F.keys.slot.textOf(&record), &slot) != 0) {
                QOS_TLM_DiagErr("%s", F.keys.noSlot[static_cast<size_t>(use)]);
                return false;
            }
            key = {slot, slot, 0};
            return true;
        }
        const auto interface = static_cast<uint32_t>(F.keys.interface.numberOf(&record));
        const auto queue = static_cast<uint32_t>(F.keys.queue.numberOf(&record));
        constexpr bool kHasQueues = F.keys.queue.type != Type::none;
        key = {kHasQueues ? interface * QOS_TLM_TRACK_SUB_INDEX_NUM + queue : interface, interface, queue};
        return true;
    }

    // From the first record of the table to the encoded batch.
    static uint32_t walk(const QosTlmQueryParam* request, QosTlmSampleData* sampleData, void* object, void* iterator,
                         QosTlmNode* root, QosTlmNode* list) {
        const uint32_t continues = beginPass();
        BatchRoom<F> room(request->encodeType == QOS_TLM_ENCODE_JSON);
        Record record = {};
        uint32_t count = 0;
        uint32_t moved = 0;
        while ((moved = db_root_iterator_next(iterator)) == 0) {
            if (!room.takesAnother()) {
                // Records without a slot come with every call: when they fill the batch, the pass gets no further.
                if constexpr (F.keys.slot.type != Type::none) {
                    if (count == 0) {
                        QOS_TLM_DiagErr("%s", F.keys.noRoom);
                        break;
                    }
                }
                *F.passIsOpen = 1;
                break;
            }
            if (F.steps.read(object, &record) != 0) {
                return QOS_TLM_RESULT_FAILED;
            }
            if (isWanted(continues, &record, request, &sampleData->thresholdValue) == 0) {
                continue;
            }
            if (either(F.steps.addEntry, addEntry)(list, &record) != 0) {
                return QOS_TLM_RESULT_FAILED;
            }
            room.take(record);
            if (isBatchFull(&record, &count) != 0) {
                break;
            }
        }
        if (moved != 0 && moved != QOS_DB_END) {
            return QOS_TLM_RESULT_FAILED;
        }
        QOS_TLM_EncodingData(root, request->encodeType, count, sampleData);
        return *F.passIsOpen == 0 ? QOS_TLM_RESULT_DONE : QOS_TLM_RESULT_MORE;
    }

    static uint32_t isWanted(uint32_t continues, const Record* record, const QosTlmQueryParam* request,
                             uint32_t* thresholdValue) {
        if constexpr (F.steps.check != nullptr) {
            return F.steps.check(continues, record, request, thresholdValue);
        } else {
            return isSent(continues, record) == 0 ? F.steps.isCondition(record, request) : 0;
        }
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

// Stamp out the exported functions of a family; its header declares and explains them. To find the definition of one,
// search for its name with "##TAG" in place of the family's tag: QOS_TLM_CheckQueueStat is QOS_TLM_Check##TAG.

#define QOS_TLM_DEFINE_COMMON_STEPS(TAG)                                                              \
    uint32_t QOS_TLM_Get##TAG##Iter(void** object, void** iterator) {                                 \
        return qos::Cycle<kFamily>::open(object, iterator);                                           \
    }                                                                                                 \
    uint32_t QOS_TLM_Get##TAG##StartNode(uint32_t encodeType, QosTlmNode** root, QosTlmNode** list) { \
        return qos::Cycle<kFamily>::startNode(encodeType, root, list);                                \
    }                                                                                                 \
    uint32_t QOS_TLM_Init##TAG##QueryFlag() {                                                         \
        return qos::Cycle<kFamily>::beginPass();                                                      \
    }                                                                                                 \
    uint32_t QOS_TLM_IsSent##TAG(uint32_t previousFlag, const QosTlm##TAG* record) {                  \
        return qos::Cycle<kFamily>::isSent(previousFlag, record);                                     \
    }                                                                                                 \
    uint32_t QOS_TLM_Get##TAG##DataNode(QosTlmNode* list, const QosTlm##TAG* record) {                \
        return qos::Cycle<kFamily>::addEntry(list, record);                                           \
    }

// Not for monitoring results.
#define QOS_TLM_DEFINE_STEPS(TAG)                                                                                     \
    QOS_TLM_DEFINE_COMMON_STEPS(TAG)                                                                                  \
    uint32_t QOS_TLM_Query##TAG##FromDb(const QosTlmQueryParam* request, QosTlmSampleData* sampleData) {              \
        return qos::Cycle<kFamily>::query(request, sampleData);                                                       \
    }                                                                                                                 \
    uint32_t QOS_TLM_Get##TAG##GpbStartNode(QosTlmNode** root, QosTlmNode** list) {                                   \
        return qos::Cycle<kFamily>::gpbStartNode(root, list);                                                         \
    }                                                                                                                 \
    uint32_t QOS_TLM_Get##TAG##JsonStartNode(QosTlmNode** root, QosTlmNode** list) {                                  \
        return qos::Cycle<kFamily>::jsonStartNode(root, list);                                                        \
    }                                                                                                                 \
    uint32_t QOS_TLM_Read##TAG##Field(void* object, QosTlm##TAG* record) {                                            \
        return qos::Cycle<kFamily>::read(object, record);                                                             \
    }                                                                                                                 \
    uint32_t QOS_TLM_Check##TAG(uint32_t previousFlag, const QosTlm##TAG* record, const QosTlmQueryParam* request,    \
                                uint32_t* thresholdValue) {                                                           \
        return qos::Cycle<kFamily>::check(previousFlag, record, request, thresholdValue);                             \
    }                                                                                                                 \
    uint32_t QOS_TLM_IsRedundant##TAG(const QosTlm##TAG* record, const QosTlmQueryParam* request) {                   \
        return qos::Cycle<kFamily>::isRedundant(record, request);                                                     \
    }                                                                                                                 \
    uint32_t QOS_TLM_IsSelfDefEvt##TAG(const QosTlm##TAG* record, const QosTlmQueryParam* request, uint32_t* value) { \
        return qos::Cycle<kFamily>::isDue(record, request, value);                                                    \
    }                                                                                                                 \
    uint32_t QOS_TLM_IsThreshold##TAG(const QosTlm##TAG* record, const QosTlmQueryParam* request, uint32_t* value) {  \
        return qos::Cycle<kFamily>::isThreshold(record, request, value);                                              \
    }                                                                                                                 \
    uint32_t QOS_TLM_Is##TAG##RecordCntOver(const QosTlm##TAG* record, uint32_t* count) {                             \
        return qos::Cycle<kFamily>::isBatchFull(record, count);                                                       \
    }

// Not for chip buffers.
#define QOS_TLM_DEFINE_CONDITION(TAG)                                                               \
    uint32_t QOS_TLM_IsCondition##TAG(const QosTlm##TAG* record, const QosTlmQueryParam* request) { \
        return qos::Cycle<kFamily>::isCondition(record, request);                                   \
    }

// By its whole name, which does not always have the tag.
#define QOS_TLM_DEFINE_FIELD_VALUE(NAME)                                      \
    void NAME(const char* fieldName, const Record* record, uint32_t* value) { \
        qos::Cycle<kFamily>::getFieldValue(fieldName, record, value);         \
    }

#endif
