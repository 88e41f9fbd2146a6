/*
 * Reads samples with libprotobuf and an independent JSON parser, never with the code under test.
 */
#ifndef TESTS_SUPPORT_SAMPLE_READER_H
#define TESTS_SUPPORT_SAMPLE_READER_H

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "nivex_qos/sample.h"

/*
 * The list entries of a payload as objects keyed by leaf name. A payload that cannot be read, that has fields unknown
 * to the schema or that holds another list is a test failure. Of a GPB payload, 64-bit numbers are texts, and leaves
 * that were left out are there with their default.
 */
std::vector<nlohmann::json> readEntries(const QosTlmSampleData& sample, uint32_t encodeType,
                                        const std::string& container, const std::string& list);

// Whether an entry is as expected: numbers read from texts exactly, others as close as cJSON prints a double.
bool sameJson(const nlohmann::json& read, const nlohmann::json& expected);

#endif
