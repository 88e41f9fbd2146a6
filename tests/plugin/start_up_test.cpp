// Start-up, registration, the cJSON binding, the patch hooks and the log.
#include <dlfcn.h>

#include <algorithm>
#include <cstring>

#include "nivex_qos/cjson.h"
#include "nivex_qos/log.h"
#include "nivex_qos/patch.h"
#include "plugin/families.h"

using fake::platform;
using testing::ElementsAreArray;

namespace {

class StartUpTest : public PluginTest {};

TEST_F(StartUpTest, StepsHappenInOrder) {
    EXPECT_EQ(GLOBAL(g_qosTlmFrmVtbl), nullptr);
    EXPECT_EQ(GLOBAL(g_qosTlmModuleId), 0u);
    EXPECT_EQ(CALL(QOS_TLM_InitPlugin)(7), 0u);
    std::vector<std::string> expected{"dlopen", "TARN_PAT_RestoreForDLL", "COMP_GetVTable"};
    for (size_t row = 0; row < kFamilies.size(); ++row) {
        expected.insert(expected.end(), {"strcpy_s", "sampleXpathRegister"});
    }
    expected.push_back("TARN_PAT_C2HRegisterHook");
    EXPECT_THAT(fake::callsWith(""), ElementsAreArray(expected));
    EXPECT_EQ(GLOBAL(g_qosTlmFrmVtbl), &platform.vtable);
    EXPECT_EQ(platform.hook, CALL(QOS_Plugin_AsynPatchC2hHookfunc));

    CALL(QOS_TLM_SetModuleId)(0xFFFFFFFF);
    CALL(QOS_TLM_RegisterXpath)();
    EXPECT_EQ(platform.registrations.front().moduleId, 7u);
    EXPECT_EQ(platform.registrations.back().moduleId, 0xFFFFFFFF);
}

TEST_F(StartUpTest, HostSeesEachPathsRecord) {
    CALL(QOS_TLM_InitPlugin)(7);
    for (const Family& family : kFamilies) {
        const std::string& alias = family.list;
        SCOPED_TRACE(alias);
        const auto& [moduleId, xpath, record] = platform.registrations.at(family.index);
        EXPECT_EQ(xpath, "vexlor-qos:qos/global-query/" + family.container + "/" + alias);
        EXPECT_EQ(reinterpret_cast<const char*>(record.data()), alias);
        EXPECT_EQ(hex(&record[32], 8), "64 00 00 00 E8 03 00 00");
        void* functions[2];
        memcpy(functions, &record[40], sizeof functions);
        EXPECT_EQ(functions[0], pluginSymbol(stepName(family, "Query", "")));
        EXPECT_EQ(functions[1], pluginSymbol("QOS_TLM_StopTaskFunc"));
        EXPECT_TRUE(std::all_of(&record[56], record.data() + 72, [](uint8_t byte) { return byte == 0; }));

        const QosTlmTaskMapEntry& entry = GLOBAL(g_qosTlmTaskMap)[family.index];
        EXPECT_EQ(entry.xpathAlias, alias);
        EXPECT_EQ(entry.xpath, xpath) << "the text outlives the call";
        EXPECT_EQ(reinterpret_cast<void*>(entry.queryFunc), functions[0]);
        EXPECT_EQ(entry.stopFunc(), 0u);
    }
    // What the host was given stays callable when the library is closed.
    void* handle = dlopen(NIVEX_QOS_PLUGIN_FILE, RTLD_NOW);
    const auto stop = reinterpret_cast<decltype(&QOS_TLM_StopTaskFunc)>(dlsym(handle, "QOS_TLM_StopTaskFunc"));
    EXPECT_EQ(dlclose(handle), 0);
    EXPECT_EQ(dlopen(NIVEX_QOS_PLUGIN_FILE, RTLD_NOW | RTLD_NOLOAD), handle);
    EXPECT_EQ(stop(), 0u);
}

TEST_F(StartUpTest, FailuresStopWhereTheyMust) {
    // Function, failing call, code; result of start-up, paths registered, message.
    using Case = std::tuple<const char*, uint32_t, uint32_t, uint32_t, size_t, const char*>;
    const Case cases[] = {
        {"dlopen", 1, 1, 1, 0, "[TLM init cjson] no cjson so."},
        {"TARN_PAT_RestoreForDLL", 1, ~0u, 1, 0, "[TLM init cjson] restore for dll failed, ret=4294967295."},
        {"COMP_GetVTable", 1, 5, 5, 0, "[Tlm InitPlugin] get vtable failed, ret=5."},
        {"strcpy_s", 1, 34, 0, 0, "[Tlm RegisterXpath] strcpy failed, xpathAlias=port-ecn-statistics, ret=34."},
        {"strcpy_s", 9, 34, 0, 8, "[Tlm RegisterXpath] strcpy failed, xpathAlias=interface-monitoring-result, ret=34."},
        {"sampleXpathRegister", 4, ~0u, 0, 3,
         "[Tlm RegisterXpath] register sample xpath failed, xpathAlias=queue-statistics, ret=4294967295."},
        {"TARN_PAT_C2HRegisterHook", 1, 9, 0, QOS_TLM_FAMILY_NUM, "qos plugin c2h patch init reg hook fail, ret = 9."}};
    for (const auto& [function, nth, code, result, registered, message] : cases) {
        SCOPED_TRACE(message);
        reload();
        fake::failCall(function, nth, code);
        EXPECT_EQ(CALL(QOS_TLM_InitPlugin)(7), result);
        const bool withoutCjson = result == 1;
        std::vector<std::string> log{message};
        if (withoutCjson) {
            log.emplace_back("[Tlm InitPlugin] init cjson failed, ret=1.");
        }
        EXPECT_EQ(fake::takeLog(), log);
        EXPECT_EQ(platform.registrations.size(), registered);
        EXPECT_EQ(fake::callCount("sampleXpathRegister"), registered + fake::hasFailed("sampleXpathRegister"));
        EXPECT_EQ(fake::callCount("TARN_PAT_C2HRegisterHook"), result == 0 ? 1u : 0u);
        // Without the table the module id is set and cJSON open all the same.
        EXPECT_EQ(GLOBAL(g_qosTlmFrmVtbl) == nullptr, result != 0);
        EXPECT_EQ(GLOBAL(g_qosTlmModuleId), withoutCjson ? 0u : 7u);
        EXPECT_EQ(GLOBAL(g_qosTlmCjsonHandle) == nullptr, withoutCjson);
        fake::failNothing();
        EXPECT_EQ(CALL(QOS_TLM_InitPlugin)(8), 0u) << "and again, all of it";
        EXPECT_EQ(platform.registrations.size(), registered + QOS_TLM_FAMILY_NUM);
    }
    for (const bool withTable : {false, true}) {
        reload();
        platform.vtable.sampleXpathRegister = nullptr;
        platform.vtableGiven = withTable ? &platform.vtable : nullptr;
        EXPECT_EQ(CALL(QOS_TLM_InitPlugin)(7), 0u);
        EXPECT_LOG("[Tlm RegisterXpath] g_qosTlmFrmVtbl or sampleXpathRegister is null.");
        EXPECT_NE(platform.hook, nullptr);
    }
}

// The binding's slots in the order in which they are filled.
template <auto Member>
void* slot() {
    return reinterpret_cast<void*>(GLOBAL(g_qosTlmCjsonFunc).*Member);
}
using Table = QosTlmCjsonFuncTable;
const std::tuple<const char*, const char*, void* (*)()> kSlots[] = {
    {"CreateNumber", "CreateNumber", slot<&Table::createNumber>},
    {"CreateString", "CreateString", slot<&Table::createString>},
    {"CreateBool", "CreateBool", slot<&Table::createBool>},
    {"CreateObject", "CreateObject", slot<&Table::createObject>},
    {"CreateArray", "CreateArray", slot<&Table::createArray>},
    {"AddItemToObject", "AddItemToObj", slot<&Table::addItemToObj>},
    {"AddItemToArray", "AddItemToArr", slot<&Table::addItemToArr>},
    {"PrintUnformatted", "PrintUnfmt", slot<&Table::printUnfmt>},
    {"free", "Free", slot<&Table::cjsonFree>},
    {"Delete", "NodeFree", slot<&Table::nodeFree>},
};

TEST_F(StartUpTest, CjsonFillsItsSlots) {
    ASSERT_EQ(CALL(QOS_TLM_InitCjson)(), 0u);
    void* handle = GLOBAL(g_qosTlmCjsonHandle);
    EXPECT_EQ(platform.restored, handle);
    EXPECT_EQ(platform.cjsonMode, RTLD_NOW | RTLD_GLOBAL);
    for (const auto& [symbol, loader, get] : kSlots) {
        SCOPED_TRACE(loader);
        void* function = dlsym(handle, (std::string("cJSON_") + symbol).c_str());
        ASSERT_NE(function, nullptr);
        EXPECT_EQ(get(), function);
        const auto load = pluginSymbolAs<decltype(&QOS_TLM_InitCjson)>(std::string("QOS_TLM_InitCjson") + loader);
        GLOBAL(g_qosTlmCjsonHandle) = dlopen("libm.so.6", RTLD_NOW);  // a library without any of them
        EXPECT_EQ(load(), 1u);
        EXPECT_EQ(get(), nullptr);
        EXPECT_LOG(std::string("[TLM init cjson] no cJSON_") + symbol + ".");
        dlclose(std::exchange(GLOBAL(g_qosTlmCjsonHandle), handle));
        EXPECT_EQ(load(), 0u);
        EXPECT_EQ(get(), function);
    }
}

TEST_F(StartUpTest, CjsonThatWillNotDoIsClosed) {
    platform.cjsonFile = NIVEX_QOS_PARTIAL_CJSON;
    EXPECT_EQ(CALL(QOS_TLM_InitCjson)(), 1u);
    EXPECT_LOG("[TLM init cjson] no cJSON_free.", "[TLM init cjson] no cJSON_Delete.");
    EXPECT_EQ(GLOBAL(g_qosTlmCjsonHandle), nullptr);
    EXPECT_EQ(dlopen(NIVEX_QOS_PARTIAL_CJSON, RTLD_NOW | RTLD_NOLOAD), nullptr);
    fake::failCall("TARN_PAT_RestoreForDLL", 1, 3);
    EXPECT_EQ(CALL(QOS_TLM_InitCjson)(), 1u);
    EXPECT_LOG("[TLM init cjson] restore for dll failed, ret=3.");
    EXPECT_EQ(dlopen(NIVEX_QOS_PARTIAL_CJSON, RTLD_NOW | RTLD_NOLOAD), nullptr);

    platform.cjsonFile = "libm.so.6";
    EXPECT_EQ(CALL(QOS_TLM_InitCjson)(), 1u);
    std::vector<std::string> missing;
    for (const auto& slot : kSlots) {
        missing.push_back(std::string("[TLM init cjson] no cJSON_") + std::get<0>(slot) + ".");
    }
    EXPECT_EQ(fake::takeLog(), missing);
}

TEST_F(StartUpTest, CjsonWrappersRefuseNull) {
    ASSERT_EQ(CALL(QOS_TLM_InitCjson)(), 0u);
    cJSON* object = CALL(QOS_TLM_CreateCjsonObject)();
    cJSON* array = CALL(QOS_TLM_CreateCjsonArray)();
    cJSON* number = CALL(QOS_TLM_CreateCjsonNumber)(1.5);
    EXPECT_EQ(CALL(QOS_TLM_CreateCjsonString)(nullptr), nullptr);
    EXPECT_LOG("[TLM CreateCjsonString] str is null.");
    CALL(QOS_TLM_AddCjsonItemToObj)(nullptr, "n", number);
    CALL(QOS_TLM_AddCjsonItemToObj)(object, nullptr, number);
    CALL(QOS_TLM_AddCjsonItemToObj)(object, "n", nullptr);
    EXPECT_THAT(fake::takeLog(),
                testing::AllOf(testing::SizeIs(3), testing::Each("[TLM AddCjsonItemToObj] para is null.")));
    CALL(QOS_TLM_AddCjsonItemToArr)(nullptr, number);
    CALL(QOS_TLM_AddCjsonItemToArr)(array, nullptr);
    EXPECT_LOG("[TLM AddCjsonItemToArr] para is null.", "[TLM AddCjsonItemToArr] para is null.");
    EXPECT_EQ(CALL(QOS_TLM_PrtUnfmtCjson)(nullptr), nullptr);
    CALL(QOS_TLM_FreeCjson)(nullptr);
    CALL(QOS_TLM_FreeCjsonNode)(nullptr);
    EXPECT_LOG("[TLM PrtUnfmtCjson] item is null.", "[TLM FreeCjson] item is null.",
               "[TLM FreeCjsonNode] obj is null.");

    for (cJSON* item : {number, CALL(QOS_TLM_CreateCjsonString)("a"), CALL(QOS_TLM_CreateCjsonBool)(1)}) {
        CALL(QOS_TLM_AddCjsonItemToArr)(array, item);
    }
    CALL(QOS_TLM_AddCjsonItemToObj)(object, "list", array);
    char* text = CALL(QOS_TLM_PrtUnfmtCjson)(object);
    EXPECT_STREQ(text, R"({"list":[1.5,"a",true]})");
    CALL(QOS_TLM_FreeCjson)(text);
    CALL(QOS_TLM_FreeCjsonNode)(object);
}

TEST_F(StartUpTest, PatchHooksRecogniseThisLibrary) {
    constexpr const char* kOwn = "libnivex_qos_plugin.so";
    // File, operation; flag of the asynchronous hook, result of both, flag of the synchronous hook.
    using Case = std::tuple<const char*, int32_t, uint32_t, uint32_t, uint32_t>;
    const Case cases[] = {{kOwn, 0, 0, 0, 1},
                          {kOwn, 1, 0, 0, 1},
                          {kOwn, 2, 0, 1, 1},
                          {kOwn, -1, 0, 1, 1},
                          {"", 0, 1, 0, 0},
                          {"libother.so", 0, 1, 0, 0},
                          {"libother.so", 7, 1, 0, 0},
                          {"libnivex_qos_plugin.so.1", 1, 1, 0, 0},
                          {"libnivex_qos_plugin.s", 1, 1, 0, 0}};
    for (const auto& [file, operation, notOurs, result, handled] : cases) {
        SCOPED_TRACE(testing::Message() << file << " " << operation);
        std::vector<char> description(QOS_PATCH_FILE_NAME_OFFSET + strlen(file) + 1, '\xFF');
        strcpy(&description[QOS_PATCH_FILE_NAME_OFFSET], file);
        uint32_t flag = 99;
        EXPECT_EQ(CALL(QOS_Plugin_AsynPatchC2hHookfunc)(operation, ~0ull, description.data(), &flag), result);
        EXPECT_EQ(flag, notOurs);
        EXPECT_LOG();
        const auto synchronous = CALL(libnivex_qos_plugin_PAT_C2HSyncHookFunc);
        EXPECT_EQ(synchronous(static_cast<uint32_t>(operation), description.data(), &flag), result);
        EXPECT_EQ(flag, handled);
        if (result != 0) {
            EXPECT_LOG("PatC2hProc, libnivex_qos_plugin.so c2h active or deactive oper failed, operCode " +
                       std::to_string(operation));
        }
    }
    // The synchronous hook clears its flag before it looks at the name: here that cuts the name off.
    alignas(16) char description[QOS_PATCH_FILE_NAME_OFFSET + 32] = {};
    strcpy(description + QOS_PATCH_FILE_NAME_OFFSET, kOwn);
    auto* flag = reinterpret_cast<uint32_t*>(description + QOS_PATCH_FILE_NAME_OFFSET + 3);
    EXPECT_EQ(CALL(libnivex_qos_plugin_PAT_C2HSyncHookFunc)(0, description, flag), 0u);
    EXPECT_EQ(*flag, 0u);

    CALL(QOS_Plugin_C2HPatchInit)();
    EXPECT_EQ(platform.hook, CALL(QOS_Plugin_AsynPatchC2hHookfunc));
    fake::failCall("TARN_PAT_C2HRegisterHook", 1, ~0u);
    CALL(QOS_Plugin_C2HPatchInit)();
    EXPECT_LOG("qos plugin c2h patch init reg hook fail, ret = 4294967295.");
}

TEST_F(StartUpTest, LogCutsLongTextsAndDropsUnformattedOnes) {
    const auto log = CALL(QOS_TLM_DiagErr);
    fake::failCall("IM_Agent_ReportLogById", 1, 77);
    EXPECT_EQ(log("%s", "100% sure: %s %n"), 77);
    EXPECT_LOG("100% sure: %s %n");
    log("%s", std::string(1023, 'a').c_str());
    log("%s", std::string(5000, 'a').c_str());
    EXPECT_LOG(std::string(1023, 'a'), std::string(1023, 'a'));
    fake::failCall("vsnprintf_truncated_s", 1);
    EXPECT_LT(log("%d", 1), 0);
}

}  // namespace
