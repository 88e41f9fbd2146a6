#include "support/plugin.h"

#include <dlfcn.h>
#include <elf.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "nivex_qos/cjson.h"
#include "support/forwarding.h"

namespace {

void* library = nullptr;

// The library stays loaded for good; for the tests, each of which wants it in its state after loading, a copy of it
// does not.
class Copy {
  public:
    Copy() {
        std::ifstream original(NIVEX_QOS_PLUGIN_FILE, std::ios::binary);
        std::string bytes(std::istreambuf_iterator<char>(original), {});
        const auto at = [&](size_t offset) { return static_cast<void*>(&bytes.at(offset)); };
        const auto* program = static_cast<Elf64_Phdr*>(at(static_cast<Elf64_Ehdr*>(at(0))->e_phoff));
        while (program->p_type != PT_DYNAMIC) {
            ++program;
        }
        auto* entry = static_cast<Elf64_Dyn*>(at(program->p_offset));
        while (entry->d_tag != DT_FLAGS_1) {
            ++entry;
        }
        entry->d_un.d_val &= ~Elf64_Xword{DF_1_NODELETE};
        if (mkdtemp(folder_) == nullptr || !(std::ofstream(file(), std::ios::binary) << bytes) ||
            dlopen(NIVEX_QOS_DB_FILE, RTLD_NOW) == nullptr) {
            throw std::runtime_error("cannot make a copy of the plug-in");
        }
    }
    ~Copy() { std::filesystem::remove_all(folder_); }
    Copy(const Copy&) = delete;
    Copy& operator=(const Copy&) = delete;

    std::string file() const { return std::string(folder_) + "/copy.so"; }

  private:
    char folder_[32] = "/tmp/plugin_test-XXXXXX";
};

const Copy& copy() {
    static const Copy made;
    return made;
}

}  // namespace

void* pluginSymbol(const std::string& name) {
    void* front = forwarding::inFrontOf(name);
    return front != nullptr ? front : pluginsOwnSymbol(name);
}

void* pluginsOwnSymbol(const std::string& name) {
    void* symbol = dlsym(library, name.c_str());
    if (symbol == nullptr) {
        throw std::runtime_error("the plug-in does not export " + name);
    }
    return symbol;
}

void PluginTest::load() {
    fake::reset();
    forwarding::loadModule();
    library = dlopen(copy().file().c_str(), RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library, nullptr) << dlerror();
    forwarding::attach();
}

void PluginTest::unload() {
    for (uint32_t family = 0; family < QOS_TLM_FAMILY_NUM; ++family) {
        CALL(QOS_HashRelease)(family);
    }
    fake::checkGuards();
    EXPECT_EQ(fake::liveBlocks(), 0u);
    EXPECT_EQ(fake::liveObjects(), 0u);
    EXPECT_LOG();
    if (void* cjson = GLOBAL(g_qosTlmCjsonHandle)) {
        dlclose(cjson);
    }
    dlclose(library);
    ASSERT_EQ(dlopen(copy().file().c_str(), RTLD_NOW | RTLD_NOLOAD), nullptr) << "the library stays loaded";
    forwarding::unloadModule();
}

void StartedPluginTest::SetUp() {
    PluginTest::SetUp();
    ASSERT_EQ(CALL(QOS_TLM_InitPlugin)(7), 0u);
}

Tree makeTree(const char* name, uint32_t fieldNumber, uint16_t repeatType) {
    return Tree(CALL(QOS_TLM_CreateNode)(name, fieldNumber, repeatType));
}

QosTlmNode* addNode(QosTlmNode* parent, const char* name, uint32_t fieldNumber, uint16_t repeatType) {
    QosTlmNode* node = CALL(QOS_TLM_CreateNode)(name, fieldNumber, repeatType);
    CALL(QOS_TLM_AddChild)(parent, node);
    return node;
}

const char* textOf(const QosTlmNode& leaf) {
    return reinterpret_cast<const char*>(static_cast<uintptr_t>(leaf.data.value));
}

std::string hex(const void* bytes, size_t count) {
    std::string text;
    for (size_t i = 0; i < count; ++i) {
        char digits[4];
        snprintf(digits, sizeof digits, i == 0 ? "%02X" : " %02X", static_cast<const uint8_t*>(bytes)[i]);
        text += digits;
    }
    return text;
}

std::string encodeLine(uint32_t status, uint64_t value, uint32_t site) {
    static const char* const kTexts[] = {
        "Succeeded",        "Validation failed",   "Memory allocation failed", "CJson function call error",
        "Wrap data failed", "Length exceed limit", "Trundix function error",   "Unexpected error occurred"};
    return std::string("[TLM Encode] ") + kTexts[status] + ", value=" + std::to_string(value) +
           ", line=" + std::to_string(site);
}

void setCondition(QosTlmQueryParam& request, const std::string& field, const std::string& value) {
    QosTlmCondition& condition = request.conditions[request.conditionNum++];
    strncpy(condition.fieldName, field.c_str(), sizeof condition.fieldName);
    strncpy(condition.value, value.c_str(), sizeof condition.value);
}

void setThreshold(QosTlmQueryParam& request, const std::string& field, uint8_t op, uint64_t value) {
    QosTlmThreshold& threshold = request.thresholds[request.thresholdNum++];
    strncpy(threshold.fieldName, field.c_str(), sizeof threshold.fieldName);
    threshold.op = op;
    threshold.value = value;
}
