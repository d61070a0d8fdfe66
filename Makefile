# Plenavue: `make run` runs the main job, `make test` builds and runs every test.
# Both install the Debian packages that are missing first.
#
#   make build    release build (build/)
#   make check    release build and its quick unit tests
#   make test     every test under AddressSanitizer and UndefinedBehaviorSanitizer
#                 (build-asan/), the threaded ones again under ThreadSanitizer
#                 (build-tsan/); warnings are errors in both
#   make bench    release build and every benchmark

JOBS ?= $(shell nproc)

.PHONY: all deps build program run check test test-asan test-tsan bench clean

all: build

deps:
	@bash scripts/install-deps.sh

build: deps
	cmake --preset release >/dev/null
	cmake --build --preset release -j $(JOBS)

# Only what running needs: the program, not its tests.
program: deps
	cmake --preset release >/dev/null
	cmake --build --preset release -j $(JOBS) --target plenavue

run: program
	@bash scripts/run.sh build/plenavue

check: build
	ctest --preset release -L unit -j $(JOBS)

test: test-asan test-tsan

test-asan: deps
	cmake --preset asan >/dev/null
	cmake --build --preset asan -j $(JOBS)
	ctest --preset asan -j $(JOBS)

test-tsan: deps
	cmake --preset tsan >/dev/null
	cmake --build --preset tsan -j $(JOBS)
	ctest --preset tsan -j $(JOBS)

bench: build
	@for b in build/bench/bench_*; do [ -x "$$b" ] && "$$b"; done

clean:
	rm -rf build build-debug build-asan build-tsan
