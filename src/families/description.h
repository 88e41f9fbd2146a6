/*
 * The vocabulary in which a family describes itself: rows of columns, leaves, conditions and keys, and its messages.
 *
 * A family's source holds arrays of these rows and one Family that names them (queue_stat.cpp is the model);
 * families/cycle.h turns it into the family's functions. What does not compile: a column with another's accessor, one
 * that is forgotten, stands twice or out of order; a leaf whose name, number or field stands twice.
 */
#ifndef SRC_FAMILIES_DESCRIPTION_H
#define SRC_FAMILIES_DESCRIPTION_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <type_traits>

#include "nivex_qos/paths.h"
#include "nivex_qos/tree.h"
#include "platform/qos_db.h"

namespace qos {

// --- Paths -------------------------------------------------------------------------------------------------------

struct Path {
    const char* list;
    const char* container;
    uint32_t batchLimit;
};

#define QOS_PATH_ROW(NAME, list, entryPoint, queryFromDb, batchLimit) {list, list "s", batchLimit},
inline constexpr Path kPaths[] = {QOS_TLM_PATHS(QOS_PATH_ROW)};
#undef QOS_PATH_ROW

// --- Fields ------------------------------------------------------------------------------------------------------

enum class Type : uint8_t { none, boolean, uint32, uint64, text };

// Where a field lies in a record, and what it holds.
struct Field {
    Type type = Type::none;
    uint16_t offset = 0;
    uint16_t size = 0;

    // The number in the field; 0 when it holds none.
    uint64_t numberOf(const void* record) const {
        const void* place = textOf(record);
        switch (type) {
            case Type::boolean:
                return *static_cast<const uint8_t*>(place);
            case Type::uint32:
                return *static_cast<const uint32_t*>(place);
            case Type::uint64:
                return *static_cast<const uint64_t*>(place);
            default:
                return 0;
        }
    }
    const char* textOf(const void* record) const { return static_cast<const char*>(record) + offset; }

    friend constexpr bool operator==(const Field&, const Field&) = default;
};

template <class Value>
constexpr Type kTypeOf = std::is_array_v<Value>              ? Type::text
                         : sizeof(Value) == sizeof(uint64_t) ? Type::uint64
                         : sizeof(Value) == sizeof(uint32_t) ? Type::uint32
                                                             : Type::boolean;

// A field of the family's Record.
#define QOS_FIELD(member) \
    { qos::kTypeOf<decltype(Record::member)>, offsetof(Record, member), sizeof(Record::member) }

// --- Columns: how a record is read -------------------------------------------------------------------------------

// An accessor and the field that it fills. A text belongs to the database and is copied when every accessor has
// succeeded.
struct Column {
    union {
        uint32_t (*getByte)(void* object, uint8_t* value);
        uint32_t (*getUint32)(void* object, uint32_t* value);
        uint32_t (*getUint64)(void* object, uint64_t* value);
        uint32_t (*getText)(void* object, const char** value);
    };
    Field field;
    Type type;  // of what the accessor gives

    constexpr Column(Field filled, uint32_t (*get)(void*, uint8_t*))
        : getByte(get), field(filled), type(Type::boolean) {}
    constexpr Column(Field filled, uint32_t (*get)(void*, uint32_t*))
        : getUint32(get), field(filled), type(Type::uint32) {}
    constexpr Column(Field filled, uint32_t (*get)(void*, uint64_t*))
        : getUint64(get), field(filled), type(Type::uint64) {}
    constexpr Column(Field filled, uint32_t (*get)(void*, const char**))
        : getText(get), field(filled), type(Type::text) {}

    uint32_t read(void* object, void* record, const char** text) const {
        void* place = static_cast<char*>(record) + field.offset;
        switch (type) {
            case Type::boolean:
                return getByte(object, static_cast<uint8_t*>(place));
            case Type::uint32:
                return getUint32(object, static_cast<uint32_t*>(place));
            case Type::uint64:
                return getUint64(object, static_cast<uint64_t*>(place));
            default:
                return getText(object, text);
        }
    }
};

// A column of platform/qos_db_tables.h and the field of its name; or the field that "renamed" has by that name.
#define QOS_COLUMN(table, column, kind, role) {QOS_FIELD(column), db_get_qos_tlm_##table##_##column},
#define QOS_RENAMED_COLUMN(table, column, kind, role) {renamed::column, db_get_qos_tlm_##table##_##column},

// --- Leaves: how a record is sent, and what a threshold compares -------------------------------------------------

// A threshold that names the leaf compares the number in its field. A text has none: it compares another field, or 0.
struct Leaf {
    const char* name;
    uint32_t number;
    Field field;
    Field compared = field;

    uint32_t add(QosTlmNode* entry, const void* record) const {
        switch (field.type) {
            case Type::boolean:
                return QOS_TLM_AddChildBool(entry, name, static_cast<uint32_t>(field.numberOf(record)), number);
            case Type::uint32:
                return QOS_TLM_AddChildUint32(entry, name, static_cast<uint32_t>(field.numberOf(record)), number);
            case Type::uint64:
                return QOS_TLM_AddChildUint64(entry, name, field.numberOf(record), number);
            default:
                return QOS_TLM_AddChildString(entry, name, field.textOf(record), number);
        }
    }
};

// --- Conditions: what a request may ask of a record --------------------------------------------------------------

enum class Match : uint8_t {
    pattern,       // an interface-name pattern
    exact,         // a text, byte for byte
    number,        // a decimal number; a value that is none is logged and lets no record pass
    serviceClass,  // the name of a queue's service class
};

struct Condition {
    const char* name;
    Match match;
    Field field;
    const char* noNumber = nullptr;  // the message about a value that is no number
};

// --- Keys: what identifies a record in the tracking tables -------------------------------------------------------

struct Key {
    uint32_t sent;      // in the sent-record hash
    uint32_t tracked;   // in the history and the period table
    uint32_t subIndex;  // there
};

// What a key is wanted for: a family whose keys can fail has a message for each.
enum class KeyUse : uint8_t { sentTest, count, change, period };

// An interface, or a queue of one, or a slot given as text, which need not be one.
struct Keys {
    Field interface = {};
    Field queue = {};  // 0 to 7 with interface indexes below 2^29: the sent key is then unique
    Field slot = {};
    const char* noSlot[4] = {};    // by KeyUse
    const char* noRoom = nullptr;  // when records without a slot fill the payload
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

// --- The whole description ---------------------------------------------------------------------------------------

// The table in libdb_qos.
struct Table {
    uint32_t (*create)(uint32_t first, uint32_t second, void** object);
    void (*release)(void* object);
};

// The steps that the query and the check call by their exported names. Null: they do the step themselves.
template <class Record>
struct Steps {
    uint32_t (*gpbStartNode)(QosTlmNode** root, QosTlmNode** list) = nullptr;  // called by the start node step alone
    uint32_t (*jsonStartNode)(QosTlmNode** root, QosTlmNode** list) = nullptr;
    uint32_t (*read)(void* object, Record* record) = nullptr;
    uint32_t (*check)(uint32_t continues, const Record* record, const QosTlmQueryParam* request,
                      uint32_t* thresholdValue) = nullptr;  // null: sent test and conditions are the whole check
    uint32_t (*isCondition)(const Record* record, const QosTlmQueryParam* request) = nullptr;
    uint32_t (*isRedundant)(const Record* record, const QosTlmQueryParam* request) = nullptr;
    uint32_t (*isSelfDefEvt)(const Record* record, const QosTlmQueryParam* request, uint32_t* value) = nullptr;
    void (*fieldValue)(const char* fieldName, const Record* record, uint32_t* value) = nullptr;
    uint32_t (*addEntry)(QosTlmNode* list, const Record* record) = nullptr;
};

template <class R>
struct Family {
    using Record = R;

    QosTlmFamilyIndex index;
    uint32_t* passIsOpen;  // the family's QueryToEnd flag: 1 when the last call stopped before the end of its table
    Table table;
    uint32_t containerNumber;
    uint32_t listNumber = 1;               // of the list in JSON; an entry has number 1
    std::span<const Column> columns = {};  // in the order of reading
    std::span<const Leaf> leaves;
    std::span<const Condition> conditions;
    Keys keys;
    std::span<const Field> digest = {};         // what makes a record a changed one, in this order
    bool (*admits)(const R& record) = nullptr;  // a test before all others
    bool jsonEndsByPayload = false;             // whatever the host's batch policy
    Messages messages;
    Steps<R> steps;
};

// --- What must hold of a description -----------------------------------------------------------------------------

// The columns are those of the table in their order and fill fields of their types one after the other, which leaves
// nothing of the record but padding.
template <class Record>
constexpr bool fillRecord(std::span<const Column> columns) {
    size_t end = 0;
    for (const Column& column : columns) {
        const size_t alignment = column.type == Type::text ? 1 : column.field.size;
        if (column.field.type != column.type || column.field.offset != (end + alignment - 1) / alignment * alignment) {
            return false;
        }
        end = column.field.offset + column.field.size;
    }
    return sizeof(Record) - end < alignof(Record);
}

constexpr bool areDistinct(std::span<const Leaf> leaves) {
    for (const Leaf& leaf : leaves) {
        for (const Leaf* other = leaves.data(); other != &leaf; ++other) {
            if (other->number == leaf.number || std::string_view(other->name) == leaf.name ||
                other->field == leaf.field) {
                return false;
            }
        }
    }
    return true;
}

}  // namespace qos

#endif
