#!/usr/bin/env bash
# The plug-in's tests under valgrind: any error or lost block fails. Of the tests that run for every
# family, three families stand for all (their steps come from one piece of code); long runs would take an hour and
# show nothing new. The sanitizers run everything.
set -euo pipefail

scripts/build.sh release -DNIVEX_QOS_TESTS=ON plugin_test
filter='-BatchPolicyTest.Refusal*:BatchPolicyTest.BatchesThatFit*:TrackingTest.*Are*:*FailureInjection*:ModelTest*'
for family in PortEcnStat PortBufStat QueueBufStat QueueDropStat IngPortDropStat BufIngStat; do
  filter+=":*/$family*"
done
valgrind --quiet --error-exitcode=9 --leak-check=full --show-leak-kinds=definite --errors-for-leak-kinds=definite \
  --trace-children=no build/release/bin/plugin_test --gtest_brief=1 --gtest_filter="$filter"
echo "valgrind: clean"
