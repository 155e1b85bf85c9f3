# Entry points. `make demo` renders the bundled demo; `make test` builds and
# runs the whole suite, plain, under ASan+UBSan, and the concurrency tests
# under TSan. Both install missing Debian packages first.
JOBS ?= $(shell nproc)
DEMO_OUT ?= demo-out

.PHONY: all deps build test test-plain test-asan test-tsan demo bench format clean

all: build

deps:
	@./scripts/install-deps.sh

build: deps
	cmake --preset dev
	cmake --build --preset dev -j $(JOBS)

test: deps test-plain test-asan test-tsan

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

demo: build
	./build/dev/bin/lumo demo --out $(DEMO_OUT)

bench: build
	./scripts/run-benchmarks.sh build/dev

format:
	git ls-files '*.h' '*.cpp' | xargs clang-format -i

clean:
	rm -rf build
