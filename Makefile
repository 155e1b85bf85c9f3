# Entry points. `make demo` builds only the tool, the plugin and the demo's
# calibration files and renders the bundled demo; `make test` builds and runs
# the whole suite, plain, under ASan+UBSan, the concurrency tests under TSan,
# the architecture-dependent tests cross-built for arm64 under qemu-user, and
# a short run of every fuzz target. Both install missing Debian packages
# first. `make fuzz` is the long fuzzing run (docs/reliability.md); stage
# times and what each stage runs are in docs/testing.md.
JOBS ?= $(shell nproc)
DEMO_OUT ?= demo-out

# Seconds per fuzz target: the smoke run in `make test`, and `make fuzz`.
FUZZ_SMOKE_SECONDS ?= 10
FUZZ_SECONDS ?= 600

.PHONY: all deps build test test-plain test-asan test-tsan test-arm64 fuzz-smoke fuzz demo bench coverage mutants test-ratio format clean

all: build

deps:
	@./scripts/install-deps.sh

build: deps
	cmake --preset dev
	cmake --build --preset dev -j $(JOBS)

# The stages run one after the other; each one's wall time is printed at the
# end (and kept in build/stage-times.txt) so a CI log shows where time went.
TEST_STAGES := test-plain test-asan test-tsan test-arm64 fuzz-smoke
test: deps
	@mkdir -p build && rm -f build/stage-times.txt
	@for stage in $(TEST_STAGES); do \
	  start=$$(date +%s); \
	  $(MAKE) --no-print-directory $$stage || exit 1; \
	  echo "$$stage $$(( $$(date +%s) - start ))" >> build/stage-times.txt; \
	done
	@awk '{ printf "%-12s %3d:%02d\n", $$1, $$2 / 60, $$2 % 60; t += $$2 } \
	  END { printf "%-12s %3d:%02d\n", "total", t / 60, t % 60 }' build/stage-times.txt

# The plain build also compiles the benchmarks, so they keep building; only
# `make bench` runs them. The sanitizer builds leave them out.
test-plain:
	cmake --preset ci
	cmake --build --preset ci -j $(JOBS)
	ctest --preset ci -j $(JOBS)

test-asan:
	cmake --preset asan
	cmake --build --preset asan -j $(JOBS)
	ctest --preset asan -j $(JOBS)

test-tsan:
	cmake --preset tsan
	cmake --build --preset tsan -j $(JOBS) --target tsan_tests
	ctest --preset tsan

# arm64: the tests whose results can differ by architecture (label "arch":
# kernels, plugin, calibration bytes, buffers) cross-built and run under
# qemu-user, then the plugin alone built with clang and lld as a phone
# toolchain would, and its exports and needed libraries checked. The tool's
# command-line tests stay with the native runs.
test-arm64:
	@./scripts/install-arm64-deps.sh
	cmake --preset arm64
	cmake --build --preset arm64 -j $(JOBS)
	ctest --preset arm64 -j $(JOBS)
	cmake --preset arm64-clang
	cmake --build --preset arm64-clang -j $(JOBS)
	ctest --test-dir build/arm64-clang -R '^plugin_abi$$' --output-on-failure

fuzz-smoke:
	JOBS=$(JOBS) ./scripts/fuzz.sh smoke $(FUZZ_SMOKE_SECONDS)
	JOBS=$(JOBS) ./scripts/fuzz.sh regress

fuzz: deps
	JOBS=$(JOBS) ./scripts/fuzz.sh long $(FUZZ_SECONDS)

demo: deps
	cmake --preset dev
	cmake --build --preset demo -j $(JOBS)
	./build/dev/bin/lumo demo --out $(DEMO_OUT)
	./build/dev/bin/lumo report --calib build/dev/share/lumo/lumo_filter_param.bin \
	  --against build/dev/share/lumo/lumo_filter_param_previous.bin --session examples/demo_session.jsonl \
	  --looks examples/demo_looks.json --looks examples/demo_looks_previous.json -o $(DEMO_OUT)/report.html

bench: build
	./scripts/run-benchmarks.sh build/dev
	./scripts/bench-end-to-end.sh build/dev

# How much of the code the tests run, and whether they notice small faults
# (docs/testing.md).
coverage: deps
	JOBS=$(JOBS) ./scripts/coverage.sh

mutants: deps
	JOBS=$(JOBS) ./scripts/mutants.sh

test-ratio:
	@./scripts/test-ratio.sh

format:
	git ls-files '*.h' '*.cpp' | xargs clang-format -i

clean:
	rm -rf build
