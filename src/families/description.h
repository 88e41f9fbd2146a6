/*
 * The vocabulary in which a family describes itself: columns, leaves, conditions, keys, messages.
 *
 * A family is a struct of constants (see queue_stat.cpp); families/cycle.h turns it into the family's functions. A row
 * of a description names a member of the family's record, so its kind follows from the member's type and cannot
 * disagree with it: a wrong accessor or a forgotten column does not compile.
 */
#ifndef SRC_FAMILIES_DESCRIPTION_H
#define SRC_FAMILIES_DESCRIPTION_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <tuple>

#include "nivex_qos/filter.h"
#include "nivex_qos/log.h"
#include "nivex_qos/tracking.h"
#include "nivex_qos/tree.h"
#include "platform/bounded.h"
#include "support/bounded_text.h"

namespace qos {

// A text of a record, its size with the NUL.
template <class Record, size_t Size>
using TextField = char (Record::*)[Size];

// --- Columns: how a record is read -------------------------------------------------------------------------------

// A number is read straight into its field.
template <class Record, class Number>
struct NumberColumn {
    Number Record::*field;
    uint32_t (*get)(void* object, Number* value);
    static constexpr size_t size = sizeof(Number);

    struct Pending {};
    uint32_t read(void* object, Record& record, Pending&) const { return get(object, &(record.*field)); }
    int finish(Record&, const Pending&) const { return 0; }
};

// A text belongs to the database; it is copied once every accessor has succeeded.
template <class Record, size_t Size>
struct TextColumn {
    TextField<Record, Size> field;
    uint32_t (*get)(void* object, const char** value);
    static constexpr size_t size = Size;

    struct Pending {
        const char* text = nullptr;
    };
    uint32_t read(void* object, Record&, Pending& pending) const { return get(object, &pending.text); }
    int finish(Record& record, const Pending& pending) const { return strcpy_s(record.*field, Size, pending.text); }
};

template <class Record, class Number>
constexpr NumberColumn<Record, Number> column(Number Record::*field, uint32_t (*get)(void*, Number*)) {
    return {field, get};
}

template <class Record, size_t Size>
constexpr TextColumn<Record, Size> column(TextField<Record, Size> field, uint32_t (*get)(void*, const char**)) {
    return {field, get};
}

// --- Leaves: how a record is sent, and what a threshold compares -------------------------------------------------

template <class Record, class Number>
struct NumberLeaf {
    const char* name;
    uint32_t number;
    Number Record::*field;

    uint32_t add(QosTlmNode* entry, const Record& record) const {
        if constexpr (sizeof(Number) == sizeof(uint64_t)) {
            return QOS_TLM_AddChildUint64(entry, name, record.*field, number);
        } else if constexpr (sizeof(Number) == sizeof(uint32_t)) {
            return QOS_TLM_AddChildUint32(entry, name, record.*field, number);
        } else {
            return QOS_TLM_AddChildBool(entry, name, record.*field, number);
        }
    }
    uint32_t compared(const Record& record) const { return static_cast<uint32_t>(record.*field); }
};

// A text has no number of its own: a threshold that names it compares another field, or 0.
template <class Record, size_t Size>
struct TextLeaf {
    const char* name;
    uint32_t number;
    TextField<Record, Size> field;
    uint32_t Record::*comparedField;

    uint32_t add(QosTlmNode* entry, const Record& record) const {
        return QOS_TLM_AddChildString(entry, name, record.*field, number);
    }
    uint32_t compared(const Record& record) const { return comparedField == nullptr ? 0 : record.*comparedField; }
};

template <class Record, class Number>
constexpr NumberLeaf<Record, Number> leaf(const char* name, uint32_t number, Number Record::*field) {
    return {name, number, field};
}

template <class Record, size_t Size>
constexpr TextLeaf<Record, Size> leaf(const char* name, uint32_t number, TextField<Record, Size> field,
                                      uint32_t Record::*comparedField = nullptr) {
    return {name, number, field, comparedField};
}

// --- Conditions: what a request may ask of a record --------------------------------------------------------------

// An interface name against a pattern.
template <class Record, size_t Size>
struct PatternCondition {
    const char* name;
    TextField<Record, Size> field;

    bool holds(const Record& record, const char* value) const {
        return QOS_TLM_CheckIfName(value, record.*field, Size) != 0;
    }
};

// A text, byte for byte.
template <class Record, size_t Size>
struct ExactCondition {
    const char* name;
    TextField<Record, Size> field;

    static bool matches(const char* text, const char* value) { return strcmp(text, value) == 0; }
    bool holds(const Record& record, const char* value) const { return matches(record.*field, value); }
};

// A decimal number; a value that is none is logged and lets no record pass.
template <class Record>
struct NumberCondition {
    const char* name;
    uint32_t Record::*field;
    const char* noNumber;

    bool holds(const Record& record, const char* value) const {
        uint32_t wanted = 0;
        if (QOS_TLM_ParsesString2Number(value, &wanted) != 0) {
            QOS_TLM_DiagErr("%s", noNumber);
            return false;
        }
        return wanted == record.*field;
    }
};

// A service-class name against a queue.
template <class Record>
struct ServiceClassCondition {
    const char* name;
    uint32_t Record::*field;

    bool holds(const Record& record, const char* value) const {
        uint32_t queueId = 0;
        QOS_TLM_ParsesServiceClassToQueueId(value, &queueId);
        return queueId == record.*field;
    }
};

template <class Record, size_t Size>
constexpr PatternCondition<Record, Size> pattern(const char* name, TextField<Record, Size> field) {
    return {name, field};
}

template <class Record, size_t Size>
constexpr ExactCondition<Record, Size> exactText(const char* name, TextField<Record, Size> field) {
    return {name, field};
}

template <class Record>
constexpr NumberCondition<Record> number(const char* name, uint32_t Record::*field, const char* noNumber) {
    return {name, field, noNumber};
}

template <class Record>
constexpr ServiceClassCondition<Record> serviceClass(const char* name, uint32_t Record::*field) {
    return {name, field};
}

// --- Keys: what identifies a record in the tracking tables -------------------------------------------------------

struct Key {
    uint32_t sent;    // in the sent-record hash
    uint32_t first;   // in the history and the period table
    uint32_t second;  // their sub-index
};

// What a key is wanted for: a family whose keys can fail has a message for each use but the last.
enum class KeyUse { sentTest, count, redundancy, period, mark };

// An interface.
template <class Record>
struct InterfaceKeys {
    uint32_t Record::*ifIndex;

    bool find(const Record& record, KeyUse, Key& key) const {
        key = {record.*ifIndex, record.*ifIndex, 0};
        return true;
    }
};

// A queue of an interface. The sent key is unique for queues 0 to 7 and interface indexes below 2^29.
template <class Record>
struct InterfaceQueueKeys {
    uint32_t Record::*ifIndex;
    uint32_t Record::*queueId;

    bool find(const Record& record, KeyUse, Key& key) const {
        const uint32_t interface = record.*ifIndex;
        const uint32_t queue = record.*queueId;
        key = {interface * QOS_TLM_TRACK_SUB_INDEX_NUM + queue, interface, queue};
        return true;
    }
};

// A slot given as text, which need not be one.
template <class Record, size_t Size>
struct SlotKeys {
    TextField<Record, Size> slot;
    const char* noSlot[4];  // by KeyUse

    bool find(const Record& record, KeyUse use, Key& key) const {
        uint32_t number = 0;
        if (QOS_TLM_StrSlot2IntSlot(record.*slot, &number) != 0) {
            if (use != KeyUse::mark) {
                QOS_TLM_DiagErr("%s", noSlot[static_cast<size_t>(use)]);
            }
            return false;
        }
        key = {number, number, 0};
        return true;
    }
};

// --- Messages ----------------------------------------------------------------------------------------------------

// The four that report a code end where the code and a full stop follow.
struct Messages {
    const char* createObject;    // code
    const char* createIterator;  // code
    const char* gpbNode1;
    const char* gpbNode2;
    const char* jsonRoot;
    const char* jsonNode1;
    const char* jsonNode2;
    const char* jsonNode3;
    const char* readField;  // code: the sum of the accessors' codes
    const char* copyText;   // code
    const char* entryNode;
};

// The messages of a family with the given tag; a family that departs from the pattern changes single ones.
#define QOS_TLM_FAMILY_MESSAGES(TAG)                                                                                   \
    {                                                                                                                  \
        "[Tlm Get" TAG "Iter] create obj failed, ret=", "[Tlm Get" TAG "Iter] create rootIterator failed, ret=",       \
            "[Tlm Get" TAG "GpbStartNode] Create node1 failed.", "[Tlm Get" TAG "GpbStartNode] Create node2 failed.",  \
            "[Tlm Get" TAG "JsonStartNode] Create root failed.", "[Tlm Get" TAG "JsonStartNode] Create node1 failed.", \
            "[Tlm Get" TAG "JsonStartNode] Create node2 failed.",                                                      \
            "[Tlm Get" TAG "JsonStartNode] Create node3 failed.", "[Tlm Read" TAG "Field] get field error, ret=",      \
            "[Tlm Read" TAG "Field] strcpy error ret=", "[Tlm Get" TAG "DataNode] Create node2 failed.",               \
    }

// --- The rest of a description -----------------------------------------------------------------------------------

// The table in libdb_qos.
struct Table {
    uint32_t (*create)(uint32_t first, uint32_t second, void** object);
    void (*release)(void* object);
};

// An inner node of the output.
struct Node {
    const char* name;
    uint32_t number;
};

template <class Record>
using Check = uint32_t(uint32_t previousFlag, const Record* record, const QosTlmQueryParam* request,
                       uint32_t* thresholdValue);
// The check of a family without thresholds.
template <class Record>
using PlainCheck = uint32_t(uint32_t previousFlag, const Record* record, const QosTlmQueryParam* request);

// The steps that the query calls by their exported names, so that they stay replaceable.
template <class Record, class CheckStep = Check<Record>>
struct NamedSteps {
    uint32_t (*read)(void* object, Record* record);
    CheckStep* check;
    uint32_t (*addEntry)(QosTlmNode* list, const Record* record);
};

// The bytes of a record that its columns fill, for the check that none was forgotten.
template <class... Columns>
constexpr size_t bytesRead(const std::tuple<Columns...>&) {
    return (Columns::size + ... + 0);
}

}  // namespace qos

#endif
