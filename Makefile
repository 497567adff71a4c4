# Thin wrapper around CMake and ctest: `make test` is what CI runs.
BUILD_DIR ?= build
BUILD_TYPE ?= RelWithDebInfo
JOBS ?= $(shell nproc 2>/dev/null || echo 2)

.PHONY: all bootstrap configure build test demo bench clean

all: build

bootstrap:
	@scripts/bootstrap

configure: bootstrap
	@cmake -S . -B $(BUILD_DIR) -G Ninja -DCMAKE_BUILD_TYPE=$(BUILD_TYPE) -DBUILD_TESTING=ON >/dev/null

build: configure
	@cmake --build $(BUILD_DIR) --parallel $(JOBS)

test: build
	@ctest --test-dir $(BUILD_DIR) --output-on-failure --parallel $(JOBS) --timeout 120

# The main job on a fresh software key, each step with its outcome and time.
demo: build
	@$(BUILD_DIR)/host/cli/zthost demo

# Release build of its own with the benchmarks, then one run: the table on standard output,
# the same as JSON in $(BUILD_DIR)/bench/results.json.
BENCH_BUILD_DIR ?= $(BUILD_DIR)/bench-release

bench: bootstrap
	@cmake -S . -B $(BENCH_BUILD_DIR) -G Ninja -DCMAKE_BUILD_TYPE=Release \
		-DZT_BUILD_BENCHMARKS=ON -DBUILD_TESTING=OFF >/dev/null
	@cmake --build $(BENCH_BUILD_DIR) --parallel $(JOBS) --target zt_bench ZtCryptographic ztsoftskf
	@$(BENCH_BUILD_DIR)/bench/zt_bench --zt-json=$(BUILD_DIR)/bench/results.json

clean:
	rm -rf $(BUILD_DIR)

# Builds the fuzzers with clang into build/fuzz and runs each for FUZZ_SECONDS on its seed corpus.
FUZZ_SECONDS ?= 60
.PHONY: fuzz-smoke
fuzz-smoke: bootstrap
	@fuzz/run_smoke $(FUZZ_SECONDS)
