# The two set-up commands of the README. Each installs what is missing, configures, builds
# and runs: `make demo` the desktop program on a sample data folder (or, without a display,
# the command-line demo), `make test` the whole test suite.
PRESET_DEMO ?= dev
PRESET_TEST ?= ci
# Every benchmark `make bench` builds and runs, in this order.
BENCHES = ledra-bench ledra-desktop-bench ledra-extract-bench ledra-hostile-bench ledra-validate-bench
JOBS ?= $(shell nproc)

.PHONY: demo test deps bench asan fuzz format clean screenshots readme-screenshots package

deps:
	./scripts/install-deps.sh

demo: deps
	cmake --preset $(PRESET_DEMO)
	cmake --build --preset $(PRESET_DEMO) -j $(JOBS)
	@if [ -n "$$DISPLAY$$WAYLAND_DISPLAY" ]; then \
		echo "Opening Ledra on a sample data folder in a temporary place (your own data is not touched)."; \
		./build/$(PRESET_DEMO)/app/ledra-desktop --demo; \
	else \
		./build/$(PRESET_DEMO)/cli/ledra demo --output-dir build/demo; \
		echo; \
		echo "There is no display here, so the window did not open. On a desktop, start it with:"; \
		echo "  ./build/$(PRESET_DEMO)/app/ledra-desktop --demo   (sample data)"; \
		echo "  ./build/$(PRESET_DEMO)/app/ledra-desktop          (your own data)"; \
	fi

screenshots:
	cmake --preset ci
	cmake --build --preset ci -j $(JOBS) --target ledra-desktop
	QT_QPA_PLATFORM=offscreen ./build/ci/app/ledra-desktop --screenshots build/screenshots --size 1366x768,1600x900,1920x1080

# The README's pictures: three of the screenshots, made smaller (ImageMagick's convert).
readme-screenshots: screenshots
	mkdir -p docs/screenshots
	for name in main-en-light styling-en viewer-en viewer-invalid-en export-blocked-en; do \
		convert build/screenshots/$$name.png -resize '1100x1100>' -strip -colors 256 PNG8:docs/screenshots/$$name.png; \
	done

# The Debian package (build/ci/ledra_<version>_<arch>.deb), checked by lintian. The package test
# of `make test` installs it into a scratch folder when it is there.
package: deps
	cmake --preset ci
	cmake --build --preset ci -j $(JOBS) --target ledra ledra-desktop ledra-search-provider
	cd build/ci && cpack -G DEB
	lintian --fail-on error build/ci/ledra_*.deb

test: deps
	cmake --preset $(PRESET_TEST)
	cmake --build --preset $(PRESET_TEST) -j $(JOBS)
	ctest --preset $(PRESET_TEST) -j $(JOBS)

bench: deps
	cmake --preset ci
	cmake --build --preset ci -j $(JOBS) --target $(BENCHES)
	for b in $(BENCHES); do ./build/ci/bench/$$b || exit 1; done

asan: deps
	cmake --preset asan
	cmake --build --preset asan -j $(JOBS)
	ctest --preset asan -j $(JOBS)

# Every reader of outside data under libFuzzer (clang, ASan + UBSan), FUZZ_SECONDS each; the
# corpora grow in build/fuzz-corpus/, findings land in build/fuzz-findings/.
FUZZ_SECONDS ?= 60
fuzz: deps
	FUZZ_SECONDS=$(FUZZ_SECONDS) JOBS=$(JOBS) ./scripts/fuzz.sh

format:
	git ls-files '*.cpp' '*.h' | xargs clang-format -i

clean:
	rm -rf build
