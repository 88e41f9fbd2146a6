// Conditions of every family, from the families' descriptions.
#include <algorithm>

#include "plugin/families.h"

using testing::Each;
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
    // The rows that pass one condition.
    Rows passing(const std::string& field, const std::string& value) {
        QosTlmQueryParam request{};
        setCondition(request, field, value);
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

INSTANTIATE_TEST_SUITE_P(Families, FamilyFiltersTest, testing::ValuesIn(kFamilies), nameOf);

}  // namespace
