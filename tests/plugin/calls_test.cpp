// Which exported functions call which, and through which tables.
#include <dlfcn.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <map>
#include <sstream>

#include "nivex_qos/encode.h"
#include "plugin/families.h"
#include "support/forwarding.h"

namespace {

using Calls = std::set<std::pair<std::string, std::string>>;

// Adds a call as far as it can be seen. Where jumps make calls visible, those that lead back to a function at work are
// not: its calls of itself, and of two that call each other the outer one stands for both.
void add(Calls& calls, std::string caller, std::string callee) {
    if (forwarding::by == forwarding::By::jumps) {
        for (std::string* name : {&caller, &callee}) {
            *name = *name == "QOS_TLM_DealRepeatNode" ? "QOS_TLM_WrapJsonRecursive" : *name;
        }
        if (caller == callee) {
            return;
        }
    }
    calls.emplace(caller, callee);
}

// The exported name behind one of calls.txt.
std::string nameBehind(const std::string& name, size_t family) {
    static const std::set<std::string> exported = forwarding::exportedFunctions();
    const size_t tag = name.find('@');
    const std::string full = tag != name.npos
                                 ? stepName(kFamilies.at(family), name.substr(0, tag), name.substr(tag + 1))
                             : exported.count(name) != 0 ? name
                                                         : "QOS_TLM_" + name;
    EXPECT_EQ(exported.count(full), 1u) << full << " is not exported";
    return full;
}

Calls listedCalls() {
    Calls calls;
    std::ifstream file(NIVEX_QOS_CALLS_FILE);
    for (std::string line; std::getline(file, line);) {
        line.resize(std::min(line.size(), line.find('#')));
        std::istringstream callers(line.substr(0, line.find(':')));
        std::string families = std::string("0123456789").substr(0, kFamilies.size());
        for (std::string caller; callers >> caller;) {
            if (caller.find_first_not_of("-0123456789") == caller.npos) {
                const bool allBut = caller[0] == '-';
                std::erase_if(families, [&](char family) { return (caller.find(family) == caller.npos) != allBut; });
                continue;
            }
            std::istringstream callees(line.substr(line.find(':') + 1));
            for (std::string callee; callees >> callee;) {
                for (const char digit : families) {
                    const auto family = static_cast<size_t>(digit - '0');
                    add(calls, nameBehind(caller, family), nameBehind(callee, family));
                }
            }
        }
    }
    return calls;
}

// At the end of a run with calls made visible: the tests made none but those of calls.txt, and all tests made all.
class CallsEnvironment : public testing::Environment {
    void TearDown() override {
        if (forwarding::by == forwarding::By::nothing) {
            return;
        }
        std::set<std::string> called;
        Calls seen;
        for (const auto& [caller, callee] : forwarding::calls()) {
            called.insert(callee);
            if (!caller.empty()) {
                add(seen, caller, callee);
            }
        }
        const Calls listed = listedCalls();
        for (const auto& [caller, callee] : seen) {
            EXPECT_EQ(listed.count({caller, callee}), 1u)
                << caller << " calls " << callee << ", which calls.txt forbids";
        }
        const testing::UnitTest& run = *testing::UnitTest::GetInstance();
        if (run.test_to_run_count() < run.total_test_count()) {
            return;
        }
        for (const std::string& name : forwarding::exportedFunctions()) {
            EXPECT_EQ(called.count(name), 1u) << name << " is called by no test";
        }
        for (const auto& [caller, callee] : listed) {
            EXPECT_EQ(seen.count({caller, callee}), 1u) << caller << " never calls " << callee << " by its name";
        }
    }
};
[[maybe_unused]] const auto* const environment = testing::AddGlobalTestEnvironment(new CallsEnvironment);

class SuppliedTablesTest : public PluginTest {
  protected:
    void SetUp() override {
        module_ = dlopen(NIVEX_QOS_TABLES_FILE, RTLD_NOW | RTLD_GLOBAL);
        ASSERT_NE(module_, nullptr) << dlerror();
        PluginTest::SetUp();
    }
    void TearDown() override {
        PluginTest::TearDown();
        dlclose(module_);
    }
    // The process's table of the name, filled with the plug-in's own.
    template <typename Entry, size_t rows>
    Entry* copyOf(const char* name, const Entry (&own)[rows]) const {
        return static_cast<Entry*>(memcpy(dlsym(module_, name), own, sizeof own));
    }

  private:
    void* module_ = nullptr;
};

TEST_F(SuppliedTablesTest, AreUsed) {
    auto* encoders = copyOf("g_qosTlmEncodeFunc", GLOBAL(g_qosTlmEncodeFunc));
    auto* queries = copyOf("g_qosTlmQueryFuncTable", GLOBAL(g_qosTlmQueryFuncTable));
    auto* tasks = copyOf("g_qosTlmTaskMap", GLOBAL(g_qosTlmTaskMap));
    tasks[QOS_TLM_FAMILY_NUM - 1].xpathAlias[0] = 'X';
    ASSERT_EQ(CALL(QOS_TLM_InitPlugin)(7), 0u);
    EXPECT_EQ(fake::platform.registrations.back().record[0], 'X');

    const Tree top = makeTree("top", 1);
    uint32_t length = 0;
    for (const uint32_t type : {0u, 1u}) {
        encoders[type] = {[](const QosTlmNode*, uint32_t* outLen) -> void* { return outLen; },
                          [](const QosTlmNode*) { return 77u; }};
        EXPECT_EQ(CALL(QOS_TLM_Encoding)(top.get(), type, &length), &length);
        EXPECT_EQ(CALL(QOS_TLM_EstimatePackageSize)(top.get(), type), 77u);
    }
    for (const Family& family : kFamilies) {
        queries[family.index].queryFromDb = [](const QosTlmQueryParam*, QosTlmSampleData* sample) {
            return sample->recordCount = QOS_TLM_RESULT_MORE;
        };
        EXPECT_EQ(callEntryPoint(family, {}), uint32_t{QOS_TLM_RESULT_MORE});
    }
    EXPECT_EQ(fake::platform.uploads.size(), kFamilies.size());
}

using EntriesTest = PluginTest;

TEST_F(EntriesTest, HaveRoomForAJump) {
    std::map<uintptr_t, std::string> entries;
    for (const std::string& name : forwarding::exportedFunctions()) {
        const auto [other, isOther] = entries.emplace(reinterpret_cast<uintptr_t>(pluginsOwnSymbol(name)), name);
        EXPECT_TRUE(isOther) << name << " is the same as " << other->second;
    }
    for (auto entry = entries.begin(), next = std::next(entry); next != entries.end(); ++entry, ++next) {
        EXPECT_GE(next->first - entry->first, forwarding::kRoomOfJump)
            << entry->second << " runs into " << next->second;
    }
}

}  // namespace
