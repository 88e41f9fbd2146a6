/*
 * Calls between the plug-in's exported functions, made visible: functions of a module stand in front of all of them, or
 * jumps stand at all their entries, as a hot patch writes them. Each call is noted and passed on.
 *
 * The environment variable NIVEX_QOS_FORWARD, "symbols" or "jumps", asks for it in any test of the plug-in. With jumps
 * a function has none while it is at work: a call that leads back to it is not seen.
 */
#ifndef TESTS_SUPPORT_FORWARDING_H
#define TESTS_SUPPORT_FORWARDING_H

#include <cstddef>
#include <set>
#include <string>
#include <utility>

namespace forwarding {

enum class By { nothing, symbols, jumps };
extern By by;

// What PluginTest does before the library is loaded, then, and after it was unloaded.
void loadModule();
void attach();
void unloadModule();

// What stands in front of the library under the name, or null.
void* inFrontOf(const std::string& name);

std::set<std::string> exportedFunctions();

inline constexpr size_t kRoomOfJump = 16;  // bytes

// Caller and callee of the calls since the program began; a test is the caller without a name.
std::set<std::pair<std::string, std::string>> calls();

}  // namespace forwarding

#endif
