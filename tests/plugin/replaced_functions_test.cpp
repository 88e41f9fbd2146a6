// Exported functions stay replaceable: a process that puts its own behind a name has it called, fast ways or not.
#include <dlfcn.h>

#include "plugin/families.h"
#include "support/plugin.h"

namespace {

class ReplacedFunctionsTest : public testing::TestWithParam<const char*> {};

std::string samplePayload() {
    const Family& family = familyOf(QOS_TLM_FAMILY_QUEUE);
    addRows(family, 3);
    runPass(family, {});
    const QosTlmSampleData& sample = fake::platform.uploads.at(0).sample;
    return {reinterpret_cast<const char*>(sample.data), sample.dataLen};
}

class LoadedPlugin : public StartedPluginTest {
  public:
    LoadedPlugin() { SetUp(); }
    ~LoadedPlugin() override { TearDown(); }
    void TestBody() override {}
};

TEST_P(ReplacedFunctionsTest, AreCalledBySampling) {
    std::string expected;
    {
        const LoadedPlugin plugin;
        expected = samplePayload();
    }
    std::string file = NIVEX_QOS_REPLACEMENTS "/libreplace_";
    file.append(GetParam()).append(".so");
    void* module = dlopen(file.c_str(), RTLD_NOW | RTLD_GLOBAL);
    ASSERT_NE(module, nullptr) << dlerror();
    {
        const LoadedPlugin plugin;
        *static_cast<void**>(dlsym(module, "replacedOriginal")) = pluginSymbol(GetParam());
        EXPECT_EQ(samplePayload(), expected);
        const uint32_t calls = *static_cast<uint32_t*>(dlsym(module, "replacedCalls"));
        EXPECT_GE(calls, GetParam() == std::string("QOS_TLM_AddChild") ? 30u : 1u) << "of three rows with ten leaves";
    }
    dlclose(module);
}

const char* const kReplaced[] = {NIVEX_QOS_REPLACED};
INSTANTIATE_TEST_SUITE_P(Names, ReplacedFunctionsTest, testing::ValuesIn(kReplaced),
                         [](const auto& name) { return std::string(name.param); });

}  // namespace
