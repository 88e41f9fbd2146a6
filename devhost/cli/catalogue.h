/*
 * What the host knows of a path besides its registration: its list in the schema, the conditions that it honours and
 * its batch limit. Everything here lives as long as the program.
 */
#ifndef DEVHOST_CLI_CATALOGUE_H
#define DEVHOST_CLI_CATALOGUE_H

#include <google/protobuf/descriptor.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace host {

/* A condition that a path honours. */
struct Condition {
    std::string field;
    std::string takes;                // the values it takes, for people
    bool pattern;                     // an interface-name pattern
    std::vector<std::string> values;  // all that it takes, unless it is a pattern
};

/* A path that has a query in this build. */
struct Catalogued {
    std::string alias;
    std::vector<Condition> conditions;
    uint32_t batchLimit;
    const google::protobuf::FieldDescriptor* container;  // in GlobalQuery; its json_name is the list container's name
    const google::protobuf::FieldDescriptor* list;       // in the container; its json_name is the alias

    int fieldCount() const { return list->message_type()->field_count(); }
    const google::protobuf::FieldDescriptor& field(int index) const { return *list->message_type()->field(index); }
    std::vector<std::string> fieldNames() const;
    std::vector<std::string> conditionNames() const;
};

/* The entry of an alias, or null: the path has no query in this build. */
const Catalogued* findInCatalogue(std::string_view alias);

}  // namespace host

#endif
