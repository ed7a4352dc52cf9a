# Entry points: `make test` (the test suite) and `make demo` (see the tool in action).
BUILD_DIR   ?= build
BUILD_TYPE  ?= Release
CMAKE_FLAGS ?=
JOBS        ?= $(shell nproc)
FUZZ_SECONDS ?= 60
SOAK_FRAMES ?= 100000
# The build's own make runs under this one: without this it reports every directory it enters.
MAKEFLAGS   += --no-print-directory

.PHONY: deps configure build test demo bench fuzz soak clean

deps:
	@scripts/install-deps build

configure: deps
	@cmake -S . -B $(BUILD_DIR) -DCMAKE_BUILD_TYPE=$(BUILD_TYPE) $(CMAKE_FLAGS) >/dev/null

build: configure
	@cmake --build $(BUILD_DIR) -j $(JOBS)

test: build
	@cd $(BUILD_DIR) && ctest --output-on-failure -j $(JOBS)

# Builds only what the demo runs, then streams frames through every pipeline into demo-out/.
demo: configure
	@cmake --build $(BUILD_DIR) -j $(JOBS) --target ztimage
	@$(BUILD_DIR)/tools/ztimage demo

bench: deps
	@cmake -S . -B $(BUILD_DIR)-bench -DCMAKE_BUILD_TYPE=Release -DZT_BUILD_BENCH=ON -DZT_BUILD_TESTS=OFF $(CMAKE_FLAGS) >/dev/null
	@cmake --build $(BUILD_DIR)-bench -j $(JOBS)
	@scripts/run-bench $(BUILD_DIR)-bench

# SOAK_FRAMES frames from the virtual cameras through every pipeline, checking memory.
soak: build
	@$(BUILD_DIR)/tests/soak/soak --frames $(SOAK_FRAMES)

# Every fuzz target for FUZZ_SECONDS, in its own clang build (build-fuzz).
fuzz:
	@FUZZ_SECONDS=$(FUZZ_SECONDS) JOBS=$(JOBS) scripts/ci-fuzz

clean:
	@rm -rf $(BUILD_DIR) $(BUILD_DIR)-bench build-fuzz
