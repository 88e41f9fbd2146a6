/*
 * Reads the payload of a sample, independently of the plug-in: GPB through libprotobuf and the schema's messages, JSON
 * through a JSON parser. Whatever does not fit the schema of the path (an unknown field or name, a missing leaf, a
 * value of another type) throws std::runtime_error. Names may have any bytes: those that are no UTF-8 are no reason to
 * refuse a sample, although both formats ask for UTF-8.
 */
#ifndef DEVHOST_SAMPLING_DECODE_H
#define DEVHOST_SAMPLING_DECODE_H

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "devhost/sampling/catalogue.h"
#include "devhost/sampling/host.h"

namespace host {

/* One record: a text for each field of the path, in the schema's order; names with the bytes that they have. */
using Row = std::vector<std::string>;

/* Numbers are shown with all their digits. */
std::vector<Row> decodeGpb(const Catalogued& path, std::string_view payload);

/* Numbers are shown as the text has them. */
std::vector<Row> decodeJson(const Catalogued& path, std::string_view payload);

/* The records of some batches of a path; their headers must count as many, or fewer where the path sends uncounted
 * ones. */
std::vector<Row> decodeBatches(const Catalogued& path, QosTlmEncodeType encoding, std::span<const Batch> batches);

/* A GPB payload as one line of JSON by RFC 7951: 64-bit numbers as strings, the top name with its module. */
std::string gpbToJson(std::string_view payload);

/*
 * A JSON payload on one line, fit for a terminal: the same values, with escapes for control characters and those that
 * turn the direction of writing. A byte that is no UTF-8 stands in its string as the four characters \xNN, here and in
 * gpbToJson().
 */
std::string printableJson(std::string_view payload);

}  // namespace host

#endif
