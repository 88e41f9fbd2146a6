/*
 * What the shared query tests need to know of a family, from families.json, and what they do with its table.
 */
#ifndef TESTS_PLUGIN_FAMILIES_H
#define TESTS_PLUGIN_FAMILIES_H

#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "support/plugin.h"
#include "support/sample_reader.h"

// A leaf of an entry: the column that it shows and, for thresholds, the column that is compared ("" = 0 is compared).
// In place of a column "=N" is the number N, "@PREFIX" the date and time of the columns that begin so.
struct Leaf {
    std::string name;
    std::string column;
    std::string compared;
};

enum class Match { pattern, exact, number, serviceClass };

struct Condition {
    std::string field;
    Match match;
    std::string column;
};

struct Family {
    uint32_t index = 0;
    std::string tag{};
    std::string flag{};
    std::string table{};
    std::string container{};
    std::string list{};
    std::string nameColumn{};  // the text that names a row
    uint32_t batchLimit = 0;
    std::vector<std::string> columns{};  // in reading order
    std::vector<Leaf> leaves{};
    std::vector<Condition> conditions{};
    std::vector<std::string> digest{};  // columns whose change makes a record a changed one

    // Messages, up to the code or the full stop.
    std::string createObject{};
    std::string createIterator{};
    std::string gpbStart{};
    std::string jsonStart{};
    std::string copyText{};
    std::string entryNode{};
    std::string noNumber{};                     // a "queue-id" condition that is no number
    std::vector<std::string> columnMessages{};  // an accessor failed, by column; empty: the family has one for all

    bool isMonitor() const { return index == QOS_TLM_FAMILY_BUF_MONITOR; }
    std::string columnMessage(const std::string& column, uint32_t sum) const;
};

inline void PrintTo(const Family& family, std::ostream* out) {
    *out << family.tag;
}

extern const std::vector<Family> kFamilies;
const Family& familyOf(uint32_t index);

// The exported name of a family's step: what stands before and after the family's tag, without QOS_TLM_ in front.
std::string stepName(const Family& family, const std::string& before, const std::string& after);

// For tests of each family in both encodings, and names for these and for tests of each family.
inline auto eachFamilyAndEncoding() {
    return testing::Combine(testing::ValuesIn(kFamilies), testing::Values(0u, 1u));
}
inline constexpr struct {
    std::string operator()(const testing::TestParamInfo<Family>& test) const { return test.param.tag; }
    std::string operator()(const testing::TestParamInfo<std::tuple<Family, uint32_t>>& test) const {
        return std::get<0>(test.param).tag + (std::get<1>(test.param) == QOS_TLM_ENCODE_GPB ? "_Gpb" : "_Json");
    }
} nameOf;

// Whether a row is a queue of an interface.
bool hasQueues(const Family& family);

// Another row for each number. Small numbers keep a JSON batch within the payload; rows 1 and 2 hold extremes.
void addRow(const Family& family, uint32_t number);
void addRows(const Family& family, uint32_t count);

// A column of a row in the family's table.
nlohmann::json valueOf(const Family& family, size_t row, const std::string& column);
void setValue(const Family& family, size_t row, const std::string& column, uint64_t value);
void setText(const Family& family, size_t row, const std::string& column, std::optional<std::string> text);
size_t rowCount(const Family& family);

// The table becomes these of its rows, in this order.
void pickRows(const Family& family, const std::vector<size_t>& rows);

// What a row is known by: among the sent keys, and in the tables of changes and periods. Nothing for a slot that is
// none.
struct RowKey {
    uint32_t sent;
    uint32_t key;
    uint32_t sub;
};
std::optional<RowKey> keyOf(const Family& family, size_t row);

// The entry that a row must become, its leaves in order.
nlohmann::ordered_json entryOf(const Family& family, size_t row);

uint32_t callEntryPoint(const Family& family, const QosTlmQueryParam& request);

// Sampling calls until the pass is over.
void runPass(const Family& family, const QosTlmQueryParam& request);

// The entries of all uploads, which are taken away. allCount: each of them is in the header's count; otherwise a
// failure may have left nothing but the outermost nodes.
std::vector<nlohmann::json> takeEntries(const Family& family, uint32_t encodeType, bool allCount = true);

// How many of the entries are no rows; the others must be rows in their order.
size_t entriesThatAreNoRow(const Family& family, const std::vector<nlohmann::json>& entries);

// The keys that the plug-in holds as sent, once for each time that one was marked.
std::vector<uint32_t> sentKeys(uint32_t family);

// One pass; the numbers of the rows that it delivered, by the text that names them and its queue.
std::vector<size_t> deliveredRows(const Family& family, const QosTlmQueryParam& request);

#endif
