# Plenavue: `make run` runs the main job, `make test` builds and runs every test.
# Both install the Debian packages that are missing first.
#
#   make build    release build (build/)
#   make check    release build and its quick unit tests
#   make test     every test under AddressSanitizer and UndefinedBehaviorSanitizer
#                 (build-asan/), the threaded ones again under ThreadSanitizer
#                 (build-tsan/), then each fuzz target for 30 s; warnings are
#                 errors everywhere
#   make fuzz     the fuzz targets (clang's libFuzzer, build-fuzz/), each for
#                 FUZZ_SECONDS (60) from its seed corpus in fuzz/corpus/
#   make bench    release build and every benchmark, the tray's memory over
#                 100 hot-key captures included

JOBS ?= $(shell nproc)
FUZZ_SECONDS ?= 60

.PHONY: all deps build program run check test test-asan test-tsan test-fuzz fuzz bench clean

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

test: test-asan test-tsan test-fuzz

test-asan: deps
	cmake --preset asan >/dev/null
	cmake --build --preset asan -j $(JOBS)
	ctest --preset asan -j $(JOBS)

test-tsan: deps
	cmake --preset tsan >/dev/null
	cmake --build --preset tsan -j $(JOBS)
	ctest --preset tsan -j $(JOBS)

# A short run of every fuzz target; about three minutes with the build.
test-fuzz:
	$(MAKE) fuzz FUZZ_SECONDS=30

fuzz: deps
	cmake --preset fuzz >/dev/null
	cmake --build --preset fuzz -j $(JOBS)
	bash scripts/fuzz.sh $(FUZZ_SECONDS)

bench: build
	@for b in build/bench/bench_*; do [ -x "$$b" ] && "$$b"; done
	@bash bench/tray_memory.sh build/plenavue

clean:
	rm -rf build build-debug build-asan build-tsan build-fuzz
