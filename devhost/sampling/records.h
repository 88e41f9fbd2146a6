/*
 * Records of samples as values, for programs that hand them on rather than show them.
 */
#ifndef DEVHOST_SAMPLING_RECORDS_H
#define DEVHOST_SAMPLING_RECORDS_H

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "devhost/sampling/catalogue.h"
#include "nivex_qos/sample.h"

namespace host {

/* Of a leaf: a number of 32 or 64 bits, a truth value, or a text with the bytes that it has. */
using Value = std::variant<uint64_t, bool, std::string>;

/* The value as people write it: digits, "true" or "false", the text. */
std::string textOf(const Value& value);

struct Record {
    std::vector<Value> values;  // one for each field of the path, in the schema's order
};

/* Shared by all who keep it; never changed. */
using RecordPointer = std::shared_ptr<const Record>;

/* The bytes that a record takes, about. */
size_t sizeOf(const Record& record);

/*
 * The records of a payload. Throws std::runtime_error for what does not fit the schema of the path, as decode.h does;
 * numbers of JSON that are no whole ones from 0 to 2^64 - 1 among it. They may have an exponent, as in 2e+15; 2^64, to
 * which JSON rounds the largest, is read as 2^64 - 1.
 */
std::vector<RecordPointer> decodeRecords(const Catalogued& path, QosTlmEncodeType encoding, std::string_view payload);

/* What tells a row of the path from its others: its keys, each with its length before it, in the schema's order. */
using RowKey = std::string;
RowKey rowKeyOf(const Catalogued& path, const Record& record);

/* The same of key values that do not come from a record. */
RowKey rowKeyOf(const std::vector<std::string>& keys);

/* The keys that rowKeyOf() was given. */
std::vector<std::string> keysOf(const RowKey& row);

}  // namespace host

#endif
