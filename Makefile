# Plenavue: `make run` runs the main job, `make test` builds and runs every test.
# Both install the Debian packages that are missing first.

BUILD_DIR ?= build
JOBS ?= $(shell nproc)

.PHONY: all deps build run test bench clean

all: build

deps:
	@bash scripts/install-deps.sh

$(BUILD_DIR)/build.ninja:
	cmake -S . -B $(BUILD_DIR) -G Ninja

build: deps $(BUILD_DIR)/build.ninja
	cmake --build $(BUILD_DIR) -j $(JOBS)

run: build
	@bash scripts/run.sh $(BUILD_DIR)/plenavue

test: build
	cd $(BUILD_DIR) && ctest --output-on-failure -j $(JOBS)

bench: build
	@for b in $(BUILD_DIR)/bench/bench_*; do [ -x "$$b" ] && "$$b"; done

clean:
	rm -rf $(BUILD_DIR)
