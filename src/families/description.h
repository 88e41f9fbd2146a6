/*
 * The vocabulary in which a family describes itself: rows of columns, leaves, conditions and keys, and its messages.
 *
 * A family's source holds arrays of these rows and one Family that names them (queue_stat.cpp is the model);
 * families/cycle.h turns it into the family's functions. What does not compile: a column with another's accessor, one
 * that is forgotten, stands twice or out of order; a leaf whose name, number or field stands twice.
 */
#ifndef SRC_FAMILIES_DESCRIPTION_H
#define SRC_FAMILIES_DESCRIPTION_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string_view>

#include "nivex_qos/buf_monitor_stat.h"
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

constexpr size_t kNameSize = 32;  // of a record's name or slot, with its NUL
constexpr size_t kTimeSize = QOS_TLM_DATE_TIME_SIZE;

enum class Type : uint8_t { none, boolean, uint32, uint64, name, time };

// A field of a record, or none.
template <class Record>
struct Field {
    Type type = Type::none;
    union {
        uint8_t Record::*boolean = nullptr;
        uint32_t Record::*uint32;
        uint64_t Record::*uint64;
        char (Record::*name)[kNameSize];
        char (Record::*time)[kTimeSize];
    };

    constexpr Field() {}
    constexpr Field(uint8_t Record::*field) : type(Type::boolean), boolean(field) {}
    constexpr Field(uint32_t Record::*field) : type(Type::uint32), uint32(field) {}
    constexpr Field(uint64_t Record::*field) : type(Type::uint64), uint64(field) {}
    constexpr Field(char (Record::*field)[kNameSize]) : type(Type::name), name(field) {}
    constexpr Field(char (Record::*field)[kTimeSize]) : type(Type::time), time(field) {}

    constexpr bool isText() const { return type == Type::name || type == Type::time; }
    constexpr size_t size() const {
        constexpr size_t kSizes[] = {0, sizeof(uint8_t), sizeof(uint32_t), sizeof(uint64_t), kNameSize, kTimeSize};
        return kSizes[static_cast<size_t>(type)];
    }

    // The number in the field; 0 when it holds none.
    constexpr uint64_t numberOf(const Record& record) const {
        switch (type) {
            case Type::boolean:
                return record.*boolean;
            case Type::uint32:
                return record.*uint32;
            case Type::uint64:
                return record.*uint64;
            default:
                return 0;
        }
    }
    // The text in a field that holds one.
    constexpr const char* textOf(const Record& record) const {
        return type == Type::name ? record.*name : record.*time;
    }

    // Where two fields of one type lie in a record: below 0, 0, above 0 as left comes before right.
    friend constexpr int order(const Field& left, const Field& right) {
        const Record record = {};
        const auto compare = [&](auto first, auto second) {
            return &(record.*first) < &(record.*second) ? -1 : &(record.*first) == &(record.*second) ? 0 : 1;
        };
        switch (left.type) {
            case Type::boolean:
                return compare(left.boolean, right.boolean);
            case Type::uint32:
                return compare(left.uint32, right.uint32);
            case Type::uint64:
                return compare(left.uint64, right.uint64);
            case Type::name:
                return compare(left.name, right.name);
            default:
                return compare(left.time, right.time);
        }
    }
};

// --- Columns: how a record is read -------------------------------------------------------------------------------

// An accessor and the field that it fills. A text belongs to the database and is copied when every accessor has
// succeeded.
template <class Record>
struct Column {
    Field<Record> field;
    union {
        uint32_t (*getByte)(void* object, uint8_t* value);
        uint32_t (*getUint32)(void* object, uint32_t* value);
        uint32_t (*getUint64)(void* object, uint64_t* value);
        uint32_t (*getText)(void* object, const char** value);
    };

    constexpr Column(uint8_t Record::*member, uint32_t (*get)(void*, uint8_t*)) : field(member), getByte(get) {}
    constexpr Column(uint32_t Record::*member, uint32_t (*get)(void*, uint32_t*)) : field(member), getUint32(get) {}
    constexpr Column(uint64_t Record::*member, uint32_t (*get)(void*, uint64_t*)) : field(member), getUint64(get) {}
    constexpr Column(char (Record::*member)[kNameSize], uint32_t (*get)(void*, const char**))
        : field(member), getText(get) {}

    uint32_t read(void* object, Record& record, const char*& text) const {
        switch (field.type) {
            case Type::boolean:
                return getByte(object, &(record.*(field.boolean)));
            case Type::uint32:
                return getUint32(object, &(record.*(field.uint32)));
            case Type::uint64:
                return getUint64(object, &(record.*(field.uint64)));
            default:
                return getText(object, &text);
        }
    }
};

// The row of a column of platform/qos_db_tables.h, whose field has the same name in Columns: the record itself, or a
// struct derived from it that knows fields by other names.
#define QOS_COLUMN(table, column, kind, role) {qos::member(&Columns::column), db_get_qos_tlm_##table##_##column},

template <class Record, class Value>
constexpr auto member(Value Record::*field) {
    return field;
}
template <class Record, class Value>
constexpr auto member(Value Record::*const* otherName) {
    return *otherName;
}

// The fields of the columns from one on.
template <size_t First, class Record, size_t Count>
constexpr auto fieldsFrom(const Column<Record> (&columns)[Count]) {
    std::array<Field<Record>, Count - First> fields;
    for (size_t i = 0; i < fields.size(); ++i) {
        fields[i] = columns[First + i].field;
    }
    return fields;
}

// --- Leaves: how a record is sent, and what a threshold compares -------------------------------------------------

// A threshold that names the leaf compares the number in its field. A text has none: it compares another field, or 0.
template <class Record>
struct Leaf {
    const char* name;
    uint32_t number;
    Field<Record> field;
    Field<Record> compared = {};  // none: its own

    const Field<Record>& comparedField() const { return compared.type == Type::none ? field : compared; }

    uint32_t add(QosTlmNode* entry, const Record& record) const {
        switch (field.type) {
            case Type::boolean:
                return QOS_TLM_AddChildBool(entry, name, record.*(field.boolean), number);
            case Type::uint32:
                return QOS_TLM_AddChildUint32(entry, name, record.*(field.uint32), number);
            case Type::uint64:
                return QOS_TLM_AddChildUint64(entry, name, record.*(field.uint64), number);
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

template <class Record>
struct Condition {
    const char* name;
    Match match;
    Field<Record> field;
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
template <class Record>
struct Keys {
    uint32_t Record::*interface = nullptr;
    uint32_t Record::*queue = nullptr;  // 0 to 7 with interface indexes below 2^29: the sent key is then unique
    char (Record::*slot)[kNameSize] = nullptr;
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
    uint32_t listNumber = 1;                  // of the list in JSON; an entry has number 1
    std::span<const Column<R>> columns = {};  // in the order of reading
    std::span<const Leaf<R>> leaves;
    std::span<const Condition<R>> conditions;
    Keys<R> keys;
    std::span<const Field<R>> digest = {};      // what makes a record a changed one, in this order
    bool (*admits)(const R& record) = nullptr;  // a test before all others
    bool jsonEndsByPayload = false;             // whatever the host's batch policy
    Messages messages;
    Steps<R> steps;
};

// --- What must hold of a description -----------------------------------------------------------------------------

// The columns fill the fields one after the other and leave nothing of the record but padding.
template <class Record>
constexpr bool fillRecord(std::span<const Column<Record>> columns) {
    size_t end = 0;
    for (size_t i = 0; i < columns.size(); ++i) {
        const Field<Record>& field = columns[i].field;
        for (size_t other = 0; other < i; ++other) {
            if (columns[other].field.type == field.type && order(columns[other].field, field) >= 0) {
                return false;
            }
        }
        const size_t alignment = field.isText() ? 1 : field.size();
        end = (end + alignment - 1) / alignment * alignment + field.size();
    }
    return (end + alignof(Record) - 1) / alignof(Record) * alignof(Record) == sizeof(Record);
}

template <class Record>
constexpr bool areDistinct(std::span<const Leaf<Record>> leaves) {
    for (size_t i = 0; i < leaves.size(); ++i) {
        for (size_t other = 0; other < i; ++other) {
            const Leaf<Record>& left = leaves[other];
            const Leaf<Record>& right = leaves[i];
            if (left.number == right.number || std::string_view(left.name) == right.name ||
                (left.field.type == right.field.type && order(left.field, right.field) == 0)) {
                return false;
            }
        }
    }
    return true;
}

}  // namespace qos

#endif
