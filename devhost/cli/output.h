/*
 * Shows samples on standard output. Every function throws std::system_error when that cannot be written to, and
 * std::runtime_error for a payload that does not fit the schema.
 */
#ifndef DEVHOST_CLI_OUTPUT_H
#define DEVHOST_CLI_OUTPUT_H

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "devhost/cli/host.h"

namespace host {

/* The values of --output. */
inline const std::vector<std::string> kOutputs = {"table", "json", "hex", "none"};

/* Batches of one path, in one encoding, in one of the forms above. */
void printBatches(std::span<const Batch> batches, const std::string& alias, QosTlmEncodeType encoding,
                  const std::string& output);

/* One line: what the pass brought, and the running numbers of its batches. */
void printSummary(uint64_t number, const Pass& pass);

/* Hands what was printed to the reader. */
void flushOutput();

}  // namespace host

#endif
