# Quick start: `make demo` and `make test` install what is missing, build and run.
BUILD ?= build
BENCH_BUILD ?= build-bench
JOBS ?= $(shell nproc)
CMAKE_FLAGS ?= -DCMAKE_BUILD_TYPE=Release

.PHONY: all deps build test demo bench clean

all: build

deps:
	@scripts/install-deps.sh build

build: deps
	cmake -S . -B $(BUILD) $(CMAKE_FLAGS)
	cmake --build $(BUILD) -j $(JOBS)

test: build
	ctest --test-dir $(BUILD) --output-on-failure -j $(JOBS)

demo: build
	$(BUILD)/tools/velmora demo

bench:
	@scripts/install-deps.sh bench
	cmake -S . -B $(BENCH_BUILD) $(CMAKE_FLAGS) -DVELMORA_BENCH=ON -DVELMORA_TESTS=OFF
	cmake --build $(BENCH_BUILD) -j $(JOBS)
	@for b in $(BENCH_BUILD)/bench/bench_*; do $$b $(BENCH_ARGS) || exit 1; done

clean:
	rm -rf $(BUILD) $(BENCH_BUILD)
