# Entry points: `make test` (the test suite) and `make demo` (see the tool in action).
BUILD_DIR   ?= build
BUILD_TYPE  ?= Release
CMAKE_FLAGS ?=
JOBS        ?= $(shell nproc)
# The build's own make runs under this one: without this it reports every directory it enters.
MAKEFLAGS   += --no-print-directory

.PHONY: deps configure build test demo bench clean

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

clean:
	@rm -rf $(BUILD_DIR) $(BUILD_DIR)-bench
