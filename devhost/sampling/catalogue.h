/*
 * What the host knows of a path besides its registration: its table, its list in the schema, the conditions that it
 * honours, the fields that thresholds compare and its batch limit. Everything here lives as long as the program.
 */
#ifndef DEVHOST_SAMPLING_CATALOGUE_H
#define DEVHOST_SAMPLING_CATALOGUE_H

#include <google/protobuf/descriptor.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace host {

enum class ConditionKind : uint8_t { pattern, text, number, choice };

/* A condition that a path honours. */
struct Condition {
    std::string field;
    std::string takes;  // the values it takes, for people
    ConditionKind kind;
    std::vector<std::string> values;  // all that a choice takes
};

/* A path that this program knows. */
struct Catalogued {
    std::string alias;
    std::string table;  // of libdb_qos
    std::vector<Condition> conditions;
    std::vector<int> keys;  // the fields that tell a row from its others, as indexes
    uint32_t batchLimit;
    bool conditionsOnly;                                 // thresholds, periods and suppression have no effect
    bool sendsUncounted;                                 // records whose slot is no slot come uncounted
    std::vector<std::string> notCompared;                // fields of which a threshold compares nothing
    const google::protobuf::FieldDescriptor* container;  // in GlobalQuery; its json_name is the list container's name
    const google::protobuf::FieldDescriptor* list;       // in the container; its json_name is the alias

    int fieldCount() const { return list->message_type()->field_count(); }
    const google::protobuf::FieldDescriptor& field(int index) const { return *list->message_type()->field(index); }
    std::vector<std::string> fieldNames() const;
    bool isKey(int index) const;
    std::vector<std::string> conditionNames() const;
    std::vector<std::string> thresholdNames() const;
};

/* All paths that this program knows. */
const std::vector<Catalogued>& catalogue();

/* The entry of an alias, or null for one that this program does not know. */
const Catalogued* findInCatalogue(std::string_view alias);

}  // namespace host

#endif
