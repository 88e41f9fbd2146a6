/*
 * What the shared query tests need to know of a family: its names, its rows in the fake tables and the entries that
 * these must become. A new family adds its description to kFamilies.
 */
#ifndef TESTS_PLUGIN_FAMILIES_H
#define TESTS_PLUGIN_FAMILIES_H

#include <ostream>
#include <string>
#include <vector>

#include "support/plugin.h"
#include "support/sample_reader.h"

struct Family {
    const char* tag;
    const char* flag;
    uint32_t index;
    uint32_t batchLimit;
    const char* table;
    const char* container;
    const char* list;
    std::vector<std::string> columns;  // in reading order
    void (*addRow)(uint32_t number);   // another row for each number
    nlohmann::json (*entry)(uint32_t number);
    void (*setName)(std::optional<std::string> name);  // of the first row
};

inline void PrintTo(const Family& family, std::ostream* out) {
    *out << family.tag;
}

extern const std::vector<Family> kFamilies;

// A sampling call; sampling calls until the pass is over.
uint32_t callEntryPoint(const Family& family, const QosTlmQueryParam& request);
void runPass(const Family& family, const QosTlmQueryParam& request);

// The entries of all uploads, which are taken away.
std::vector<nlohmann::json> takeEntries(const Family& family, uint32_t encodeType);

#endif
