/*
 * The platform of the fuzzed plug-in, that of the tests: quick, and as bad as the input wants it.
 */
#ifndef FUZZ_PLATFORM_H
#define FUZZ_PLATFORM_H

#include <gtest/gtest.h>

#include "fuzz/input.h"
#include "nivex_qos/plugin.h"
#include "tests/support/fake_platform.h"

namespace fuzz {

// A platform as new, in front of a plug-in that was started before the first input.
inline void beginInput() {
    static const bool started = [] {
        testing::FLAGS_gtest_break_on_failure = true;  // a misuse of the platform is a finding
        fake::reset();
        return QOS_TLM_InitPlugin(7) == 0;
    }();
    REQUIRE(started);
    fake::reset();
    fake::platform.quick = true;
}

}  // namespace fuzz

#endif
