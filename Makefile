# The two set-up commands of the README. Each installs what is missing, configures, builds
# and runs: `make demo` the main job on a built-in sample, `make test` the whole test suite.
PRESET_DEMO ?= dev
PRESET_TEST ?= ci
JOBS ?= $(shell nproc)

.PHONY: demo test deps bench asan format clean

deps:
	./scripts/install-deps.sh

demo: deps
	cmake --preset $(PRESET_DEMO)
	cmake --build --preset $(PRESET_DEMO) -j $(JOBS)
	./build/$(PRESET_DEMO)/cli/ledra demo

test: deps
	cmake --preset $(PRESET_TEST)
	cmake --build --preset $(PRESET_TEST) -j $(JOBS)
	ctest --preset $(PRESET_TEST) -j $(JOBS)

bench: deps
	cmake --preset ci
	cmake --build --preset ci -j $(JOBS) --target ledra-bench ledra-desktop-bench
	./build/ci/bench/ledra-bench
	./build/ci/bench/ledra-desktop-bench

asan: deps
	cmake --preset asan
	cmake --build --preset asan -j $(JOBS)
	ctest --preset asan -j $(JOBS)

format:
	git ls-files '*.cpp' '*.h' | xargs clang-format -i

clean:
	rm -rf build
