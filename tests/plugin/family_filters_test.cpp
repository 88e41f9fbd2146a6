// Conditions, thresholds and change suppression of every family, from the families' descriptions.
#include <algorithm>

#include "plugin/families.h"

using fake::platform;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

using Rows = std::vector<size_t>;

class FamilyFiltersTest : public StartedPluginTest, public testing::WithParamInterface<Family> {
  protected:
    void SetUp() override {
        StartedPluginTest::SetUp();
        for (uint32_t number = 10; number < 22; ++number) {
            addRow(family_, number);
        }
    }
    Rows all() const {
        return rowsWhere([](size_t) { return true; });
    }
    template <typename Test>
    Rows rowsWhere(Test test) const {
        Rows rows;
        for (size_t row = 0; row < rowCount(family_); ++row) {
            if (test(row)) {
                rows.push_back(row);
            }
        }
        return rows;
    }
    // The rows that pass one condition, or one threshold.
    Rows passing(const std::string& field, const std::string& value) {
        QosTlmQueryParam request{};
        setCondition(request, field, value);
        return deliveredRows(family_, request);
    }
    Rows above(const std::string& field, uint8_t op, uint64_t value) {
        QosTlmQueryParam request{};
        setThreshold(request, field, op, value);
        return deliveredRows(family_, request);
    }

    const Family family_ = GetParam();
};

TEST_P(FamilyFiltersTest, Conditions) {
    QosTlmQueryParam request{};
    setCondition(request, family_.conditions[0].field, "no such value");
    request.conditionNum = 0;
    EXPECT_EQ(deliveredRows(family_, request), all()) << "a condition beyond those in use";
    for (const char* field :
         {"interface-name", "service-class", "queue-id", "slot-id", "Interface-name", "slot-it", "queue-ids", ""}) {
        SCOPED_TRACE(field);
        const auto honoured = std::find_if(family_.conditions.begin(), family_.conditions.end(),
                                           [&](const Condition& each) { return each.field == field; });
        if (honoured == family_.conditions.end()) {
            EXPECT_EQ(passing(field, "no such value"), all()) << "restricts nothing";
            continue;
        }
        const std::string column = honoured->column;
        const auto equal = [&](const nlohmann::json& value) {
            return rowsWhere([&](size_t row) { return valueOf(family_, row, column) == value; });
        };
        if (honoured->match == Match::number) {
            EXPECT_EQ(passing(field, "3"), equal(3));
            EXPECT_EQ(passing(field, " +3"), equal(3));
            EXPECT_EQ(passing(field, "4294967299"), equal(3)) << "modulo 2^32";
            EXPECT_THAT(passing(field, "9"), IsEmpty());
            EXPECT_LOG();
            EXPECT_THAT(passing(field, "3x"), IsEmpty());
            EXPECT_THAT(fake::takeLog(), testing::AllOf(SizeIs(rowCount(family_)), Each(family_.noNumber)));
        } else if (honoured->match == Match::serviceClass) {
            EXPECT_EQ(passing(field, "ef"), equal(5));
            EXPECT_EQ(passing(field, "EF"), equal(0));
        } else {
            const std::string text = valueOf(family_, 4, column);
            EXPECT_THAT(equal(text), testing::Contains(4));
            EXPECT_EQ(passing(field, text), equal(text));
            EXPECT_THAT(passing(field, text + " "), IsEmpty());
            EXPECT_THAT(passing(field, ""), IsEmpty());
            const bool pattern = honoured->match == Match::pattern;
            if (column != "slotId") {  // a text with a letter
                std::string upper = text;
                std::transform(upper.begin(), upper.end(), upper.begin(), ::toupper);
                EXPECT_EQ(passing(field, upper), pattern ? equal(text) : Rows{});
                EXPECT_EQ(passing(field, text.substr(0, 1) + "*"), pattern ? all() : Rows{});
                EXPECT_EQ(passing(field, text.substr(0, 1).append(33, '*')), pattern ? all() : Rows{}) << "34, no NUL";
            }
        }
        QosTlmQueryParam both{};
        setCondition(both, field, honoured->match == Match::serviceClass ? "ef" : "1");
        setCondition(both, field, honoured->match == Match::serviceClass ? "cs6" : "2");
        EXPECT_THAT(deliveredRows(family_, both), IsEmpty()) << "all conditions must hold";
    }
}

TEST_P(FamilyFiltersTest, ThresholdsCompareTheLow32Bits) {
    if (family_.isMonitor()) {
        EXPECT_EQ(above("percent", QOS_TLM_OP_LESS, 0), all()) << "thresholds have no effect";
        EXPECT_EQ(platform.uploads.size(), 0u);
        return;
    }
    for (const Leaf& leaf : family_.leaves) {
        SCOPED_TRACE(leaf.name);
        const auto compared = [&](size_t row) {
            return leaf.compared.empty() ? 0
                                         : static_cast<uint32_t>(valueOf(family_, row, leaf.compared).get<uint64_t>());
        };
        if (!leaf.compared.empty() && leaf.compared == leaf.column) {
            setValue(family_, 3, leaf.column, valueOf(family_, 3, leaf.column).get<uint64_t>() + (1ull << 32));
        }
        for (const size_t row : {3u, 7u}) {
            const uint32_t value = compared(row);
            EXPECT_EQ(above(leaf.name, QOS_TLM_OP_EQUAL, (7ull << 32) + value),
                      rowsWhere([&](size_t each) { return compared(each) == value; }));
            EXPECT_EQ(above(leaf.name, QOS_TLM_OP_GREATER, value),
                      rowsWhere([&](size_t each) { return compared(each) > value; }));
        }
    }
    EXPECT_EQ(above("no such field", QOS_TLM_OP_EQUAL, 0), all());
    EXPECT_THAT(above("no such field", QOS_TLM_OP_GREATER, 0), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Families, FamilyFiltersTest, testing::ValuesIn(kFamilies), nameOf);

}  // namespace
