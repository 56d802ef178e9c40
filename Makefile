# The front door: every task of this project by name. The work is done by CMake and by scripts/.

PREFIX ?= /usr/local
DESTDIR ?=
# What `make test` builds with and runs: release, debug, asan or tsan.
PRESET ?= release
# For the benchmark programs, such as --benchmark_filter=File.
BENCH_ARGUMENTS ?=

install-packages := scripts/install-packages.sh
export DESTDIR

.DEFAULT_GOAL := help
.PHONY: help run test bench docs install format lint clean

# Ninja itself notices what changed once a build folder is configured. Its benchmarks and tests need
# packages that the rest does without, so only the tasks that use them turn them on.
configure-release := test -f build/release/build.ninja || cmake --preset release -DVELORA_BUILD_TESTS=OFF
configure-tests = grep -qsx VELORA_BUILD_TESTS:BOOL=ON build/$(PRESET)/CMakeCache.txt && \
	test -f build/$(PRESET)/build.ninja || cmake --preset $(PRESET) -DVELORA_BUILD_TESTS=ON

help: ## List the tasks
	@awk -F ':.*## ' '/^[a-z]+:.*## / { printf "make %-9s %s\n", $$1, $$2 }' $(firstword $(MAKEFILE_LIST))

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
	@ctest --preset $(PRESET)

bench: ## Build and run all benchmarks, with BENCH_ARGUMENTS
	@$(install-packages) build bench
	@test -f build/bench/build.ninja || cmake --preset bench
	@cmake --build --preset bench
	@for program in build/bench/benchmarks/*Benchmark; do \
		printf '\n%s\n' "$$program"; "$$program" $(BENCH_ARGUMENTS) || exit 1; \
	done

docs: ## Write the reference of the public headers to build/docs/html
	@$(install-packages) build docs
	@$(configure-release)
	@cmake --build --preset release --target docs
	@echo "The reference: build/docs/html/index.html"

install: ## Install the library into PREFIX (/usr/local), below DESTDIR if given
	@$(install-packages) build
	@$(configure-release)
	@cmake --build --preset release --target Velora_UserDefaults
	@cmake --install build/release --prefix "$(abspath $(PREFIX))"

format: ## Lay out all sources
	@$(install-packages) lint
	@scripts/format.sh

lint: ## Check the layout of all sources and run static analysis over them
	@$(install-packages) build test bench lint
	@scripts/format.sh --check
	@test -f build/lint/build.ninja || cmake --preset lint
	@scripts/tidy.sh build/lint

clean: ## Remove everything that was built
	rm -rf build
