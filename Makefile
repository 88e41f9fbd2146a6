# The commands of the project; each installs what is missing first. See CONTRIBUTING.md.
#   make run    build, and sample this kernel's own queue counters through the plug-in (as root: of a network made for it)
#   make agent  build, and run qos-agent on this kernel's queue counters: gNMI on 127.0.0.1:9339, metrics on :9464
#   make test   build and run every test
#   make asan   the same tests built with Clang under the address and undefined-behaviour sanitizers
#   make clang  the same tests built with Clang, optimised
#   make test-arm64  the plug-in and its own tests cross-compiled for AArch64, run under qemu-user
#   make package  the Debian packages in build/package; for AArch64 with PRESET=arm64
#   make lint   formatting and static analysis
#   make valgrind  the plug-in's tests under valgrind
#   make fuzz   the fuzz targets, each for a bounded number of runs, see docs/fuzzing.md
#   make soak   samplers of all paths beside a feed for SOAK_SECONDS, their memory watched; then an agent under faults for
#               SOAK_AGENT_SECONDS, see docs/reliability.md
#   make bench-agent  what qos-agent costs, stage by stage and against its peers (root), see docs/performance.md
#   make bench  ratios of the plug-in's speed to peers and limits, see docs/performance.md

PRESET ?= release
RUN_ARGS ?=
AGENT_CONFIG ?=
FUZZ_ARGS ?=
SOAK_SECONDS ?= 60
SOAK_AGENT_SECONDS ?= 60
BENCH_ARGS ?= --json build/release/bench.json
BENCH_AGENT_ARGS ?= --seconds 20

.PHONY: run agent bench-agent test asan clang test-arm64 package lint valgrind fuzz soak bench format clean

run:
	@scripts/setup.sh run
	@scripts/build.sh release qos-host nivex_qos_plugin
	build/release/bin/qos-host demo $(RUN_ARGS)

agent:
	@scripts/setup.sh agent
	@scripts/build.sh release -DNIVEX_QOS_AGENT=ON qos-agent nivex_qos_plugin
	build/release/bin/qos-agent run $(AGENT_CONFIG)

test:
	@scripts/setup.sh test
	@scripts/build.sh $(PRESET) -DNIVEX_QOS_AGENT=ON -DNIVEX_QOS_TESTS=ON
	ctest --preset $(PRESET)

asan:
	@scripts/setup.sh lint
	@$(MAKE) --no-print-directory test PRESET=asan

clang:
	@scripts/setup.sh lint
	@$(MAKE) --no-print-directory test PRESET=clang

valgrind:
	@scripts/setup.sh lint
	@scripts/valgrind.sh

fuzz:
	@scripts/setup.sh lint
	@scripts/fuzz.sh $(FUZZ_ARGS)

soak:
	@scripts/setup.sh test
	@scripts/build.sh release -DNIVEX_QOS_AGENT=ON qos-host qos-agent nivex_qos_plugin
	@scripts/soak.sh $(SOAK_SECONDS)
	@scripts/soak_agent.py $(SOAK_AGENT_SECONDS)

bench:
	@scripts/setup.sh bench
	@scripts/build.sh release -DNIVEX_QOS_BENCH=ON qos_bench
	build/release/bin/qos_bench $(BENCH_ARGS)

bench-agent:
	@scripts/setup.sh bench
	@scripts/build.sh release -DNIVEX_QOS_AGENT=ON qos-agent nivex_qos_plugin
	bench/agent_stages.py build/release/bin $(BENCH_AGENT_ARGS)
	bench/agent_against_peers.py build/release/bin $(BENCH_AGENT_ARGS)

test-arm64:
	@scripts/setup.sh arm64
	@scripts/build.sh arm64 -DNIVEX_QOS_TESTS=ON plugin_tests
	ctest --preset arm64 -L plugin

package:
	@scripts/setup.sh $(if $(filter arm64,$(PRESET)),arm64,test)
	@scripts/build.sh $(PRESET) $(if $(filter arm64,$(PRESET)),,-DNIVEX_QOS_AGENT=ON) packaged
	cpack -G DEB --config build/$(PRESET)/CPackConfig.cmake -B build/package

lint:
	@scripts/setup.sh lint
	@scripts/lint.sh

format:
	@scripts/setup.sh lint
	git ls-files -co --exclude-standard '*.cpp' '*.h' '*.c' | xargs clang-format -i

clean:
	rm -rf build
