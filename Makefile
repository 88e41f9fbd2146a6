# The commands of the project; each installs what is missing first. See CONTRIBUTING.md.
#   make run    build, and sample this kernel's own queue counters through the plug-in (as root: of a network made for it)
#   make test   build and run every test
#   make asan   the same tests built with Clang under the address and undefined-behaviour sanitizers
#   make clang  the same tests built with Clang, optimised
#   make lint   formatting and static analysis
#   make valgrind  the plug-in's tests under valgrind
#   make bench  ratios of the plug-in's speed to peers and limits, see docs/performance.md

PRESET ?= release
RUN_ARGS ?=
BENCH_ARGS ?= --json build/release/bench.json

.PHONY: run test asan clang lint valgrind bench format clean

run:
	@scripts/setup.sh run
	@scripts/build.sh release qos-host nivex_qos_plugin
	build/release/bin/qos-host demo $(RUN_ARGS)

test:
	@scripts/setup.sh test
	@scripts/build.sh $(PRESET)
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

bench:
	@scripts/setup.sh bench
	@cmake --preset release -DNIVEX_QOS_BENCH=ON >/dev/null
	@scripts/build.sh release qos_bench
	build/release/bin/qos_bench $(BENCH_ARGS)

lint:
	@scripts/setup.sh lint
	@scripts/lint.sh

format:
	@scripts/setup.sh lint
	git ls-files -co --exclude-standard '*.cpp' '*.h' '*.c' | xargs clang-format -i

clean:
	rm -rf build
