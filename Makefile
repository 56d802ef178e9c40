# The front door: every task of this project by name. The work is done by CMake and by scripts/.

PREFIX ?= /usr/local
DESTDIR ?=
# What `make test` builds with and runs: release, debug, asan or tsan.
PRESET ?= release
# For the benchmark programs, such as --benchmark_filter=file-kernel.
BENCH_ARGUMENTS ?=
# How long each target of `make fuzz` is run; empty: until interrupted.
FUZZ_SECONDS ?=
# Which targets of `make fuzz`, such as URLFuzz; empty: all.
FUZZ_TARGETS ?=
# Not empty: run every benchmark once and briefly, to see that it works.
BENCH_QUICK ?=
# The parts of `make check-release`, such as "fuzz site"; empty: all.
PARTS ?=
# Not empty: make packages of what `make` has compiled already, without the distribution's flags.
PACKAGES_QUICK ?=

install-packages := scripts/install-packages.sh
export DESTDIR

.DEFAULT_GOAL := help
.PHONY: help run test check-release coverage fuzz bench docs check-docs install packages abi-update format lint clean

# Ninja itself notices what changed once a build folder is configured. Its benchmarks and tests need
# packages that the rest does without, so only the tasks that use them turn them on.
configure-release := test -f build/release/build.ninja || cmake --preset release -DVELORA_BUILD_TESTS=OFF
configure-tests = grep -qsx VELORA_BUILD_TESTS:BOOL=ON build/$(PRESET)/CMakeCache.txt && \
	test -f build/$(PRESET)/build.ninja || cmake --preset $(PRESET) -DVELORA_BUILD_TESTS=ON

help: ## List the tasks
	@awk -F ':.*## ' '/^[a-z-]+:.*## / { printf "make %-10s %s\n", $$1, $$2 }' $(firstword $(MAKEFILE_LIST))

run: ## Build the library and run the example of a remote-desktop host session
	@$(install-packages) build
	@$(configure-release)
	@cmake --build --preset release --target example_host_session
	@mkdir -p build/run
	@VELORA_DEFAULTS_FILE="$(CURDIR)/build/run/UserDefaults.json" XDG_CONFIG_HOME="$(CURDIR)/build/run" \
		build/release/examples/host_session build/run

test: ## Build and run all tests; PRESET=asan or tsan for a sanitizer
	@$(install-packages) build test
	@$(configure-tests)
	@cmake --build --preset $(PRESET)
	@ctest --preset $(PRESET) --parallel $$(nproc)

check-release: ## Run the checks that take longer than those of every change; PARTS="fuzz site"
	@scripts/check-release.sh $(PARTS)

coverage: ## Run all tests and tell which lines of the library they reach: build/coverage/index.html
	@$(install-packages) build test coverage
	@test -f build/coverage/build.ninja || cmake --preset coverage
	@cmake --build --preset coverage
	@scripts/coverage.sh

fuzz: ## Run the fuzz targets; FUZZ_SECONDS=60 for each target, FUZZ_TARGETS=URLFuzz
	@$(install-packages) build fuzz
	@test -f build/fuzz/build.ninja || cmake --preset fuzz
	@cmake --build --preset fuzz
	@scripts/fuzz.sh $(if $(FUZZ_SECONDS),--seconds $(FUZZ_SECONDS)) $(FUZZ_TARGETS)

# Configured each time: packages of peers may have come or gone. To try them, they are built with what `make` has built.
bench: ## Measure the library beside its peers: table, results.json, results.svg; BENCH_QUICK=1 only tries it
	@$(install-packages) build bench
	@mkdir -p build
ifeq ($(BENCH_QUICK),)
	@cmake --preset bench >build/bench-configuring.txt || { cat build/bench-configuring.txt; exit 1; }
	@cmake --build --preset bench --target benchmarks
	@/usr/bin/python3 -B benchmarks/report.py build/bench $(BENCH_ARGUMENTS)
else
	@$(configure-release)
	@cmake --preset release -DVELORA_BUILD_BENCHMARKS=ON >build/bench-configuring.txt || { cat build/bench-configuring.txt; exit 1; }
	@cmake --build --preset release --target benchmarks
	@/usr/bin/python3 -B benchmarks/report.py build/release --quick $(BENCH_ARGUMENTS)
	@cmake --preset release -DVELORA_BUILD_BENCHMARKS=OFF >build/bench-configuring.txt
endif

docs: ## Write the guide and the reference of the public headers to build/docs/html
	@$(install-packages) build docs
	@$(configure-release)
	@cmake --build --preset release --target docs
	@echo "The documentation: build/docs/html/index.html"

check-docs: docs ## Look at that site in a browser: links, widths, text cut off, contrast; light and dark
	@scripts/check-docs.sh

install: ## Install the library and its tools into PREFIX (/usr/local), below DESTDIR if given
	@$(install-packages) build
	@$(configure-release)
	@cmake --build --preset release --target Velora_UserDefaults velora-defaults velora-log
	@cmake --install build/release --prefix "$(abspath $(PREFIX))"
	@scripts/announce-library.sh "$(abspath $(PREFIX))"

# Configured each time, with the compiler's flags that Debian builds its packages with.
packages: ## Make Debian packages of the library, its headers and its tools in build/packages
	@$(install-packages) build package
	@rm -f build/packages/*.deb
ifeq ($(PACKAGES_QUICK),)
	@CXXFLAGS="$$(dpkg-buildflags --get CPPFLAGS) $$(dpkg-buildflags --get CXXFLAGS)" \
		LDFLAGS="$$(dpkg-buildflags --get LDFLAGS)" \
		cmake --fresh --preset packages -DCMAKE_DISABLE_PRECOMPILE_HEADERS=ON
	@cmake --build --preset packages
	@cd build/packages && cpack --config CPackConfig.cmake
else
	@$(configure-release)
	@cmake --preset release -DCMAKE_INSTALL_PREFIX=/usr -DCMAKE_SKIP_INSTALL_RPATH=ON >build/packages.txt
	@cmake --build --preset release
	@cpack --config build/release/CPackConfig.cmake -B build/packages
	@cmake --preset release -DCMAKE_INSTALL_PREFIX=/usr/local -DCMAKE_SKIP_INSTALL_RPATH=OFF >build/packages.txt
endif
	@ls build/packages/*.deb

abi-update: ## Accept the library's binary interface as it is now: what later versions are compared with
	@scripts/check-abi.sh --update

format: ## Lay out all sources
	@$(install-packages) lint
	@scripts/format.sh

lint: ## Check the layout of all sources and run static analysis over them
	@$(install-packages) build test bench lint
	@scripts/format.sh --check
	@scripts/tidy.sh

clean: ## Remove everything that was built
	rm -rf build
