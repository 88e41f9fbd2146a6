/*
 * Shows samples on standard output. Every function throws std::system_error when that cannot be written to.
 */
#ifndef DEVHOST_CLI_OUTPUT_H
#define DEVHOST_CLI_OUTPUT_H

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

#include "devhost/sampling/host.h"

namespace host {

/* The values of --output. */
inline const std::vector<std::string> kOutputs = {"table", "json", "hex", "none"};

struct Form {
    std::string output = "table";
    std::vector<std::string> columns;  // of a table, by the names of the schema; all when empty
};

/* Throws UsageError, which names the fields, for columns of another form than a table, and for one that is no field. */
void requireColumns(const Form& form, const std::string& whose, const std::vector<std::string>& fields);

/* Told of a batch that cannot be shown, and why: its payload does not fit the schema. */
using OnFault = std::function<void(const Batch& batch, const std::string& what)>;

/*
 * Batches of one path, in one encoding; those that cannot be shown are left out. A table that is wider than the
 * terminal has rows of several lines, the later ones indented; columns that the path lacks are left out.
 */
void printBatches(std::span<const Batch> batches, const std::string& alias, QosTlmEncodeType encoding, const Form& form,
                  const OnFault& onFault);

/* One line: what the pass brought, and the running numbers of its batches. */
void printSummary(uint64_t number, const Pass& pass);

/* The result of a sampling call in figures and words. */
std::string resultText(uint32_t result);

/* Hands what was printed to the reader. */
void flushOutput();

}  // namespace host

#endif
