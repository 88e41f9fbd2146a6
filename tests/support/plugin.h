/*
 * The built plug-in, loaded through its exported names, and what tests do with it.
 *
 * Each test has its own load of the library and so a fresh process state; at its end no block, database object or
 * message may be left over, and the library must really unload. CALL(name) is the exported function of that name,
 * GLOBAL(name) the exported variable, with the types of the public headers.
 */
#ifndef TESTS_SUPPORT_PLUGIN_H
#define TESTS_SUPPORT_PLUGIN_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "nivex_qos/tracking.h"
#include "nivex_qos/tree.h"
#include "platform/host_framework.h"
#include "support/fake_platform.h"

// What a call by the name reaches, and what the library itself has under it. Throws when it has no such name.
void* pluginSymbol(const std::string& name);
void* pluginsOwnSymbol(const std::string& name);

template <typename T>
T pluginSymbolAs(const std::string& name) {
    return reinterpret_cast<T>(pluginSymbol(name));
}

#define CALL(name) (pluginSymbolAs<decltype(&name)>(#name))
#define GLOBAL(name) (*CALL(name))

// The messages since the last look are these and no others.
#define EXPECT_LOG(...) EXPECT_THAT(fake::takeLog(), testing::ElementsAre(__VA_ARGS__))

class PluginTest : public testing::Test {
  protected:
    void SetUp() override { load(); }
    void TearDown() override { unload(); }
    void reload() {
        TearDown();
        SetUp();
    }
    static void load();
    static void unload();
};

// With QOS_TLM_InitPlugin done under module id 7.
class StartedPluginTest : public PluginTest {
  protected:
    void SetUp() override;
};

// Owners of what the plug-in hands out.
struct TreeRelease {
    void operator()(QosTlmNode* top) const { CALL(QOS_TLM_ReleaseNode)(top); }
};
struct BlockRelease {
    void operator()(void* block) const { NIVEX_FreeBuff(block); }
};
using Tree = std::unique_ptr<QosTlmNode, TreeRelease>;
using Block = std::unique_ptr<void, BlockRelease>;

Tree makeTree(const char* name, uint32_t fieldNumber, uint16_t repeatType = QOS_TLM_REPEAT_NONE);
QosTlmNode* addNode(QosTlmNode* parent, const char* name, uint32_t fieldNumber,
                    uint16_t repeatType = QOS_TLM_REPEAT_NONE);
const char* textOf(const QosTlmNode& leaf);

std::string hex(const void* bytes, size_t count);  // "2A 06"

// A line of the encoders' status log.
std::string encodeLine(uint32_t status, uint64_t value, uint32_t site);

// Requests.
void setCondition(QosTlmQueryParam& request, const std::string& field, const std::string& value);
void setThreshold(QosTlmQueryParam& request, const std::string& field, uint8_t op, uint64_t value);

#endif
