# Quick start: `make demo` and `make test` install what is missing, build and run.
BUILD ?= build
SANITIZE_BUILD ?= build-sanitize
TSAN_BUILD ?= build-tsan
WIN32_BUILD ?= build-win32
WIN64_BUILD ?= build-win64
JOBS ?= $(shell nproc)
CMAKE_FLAGS ?= -DCMAKE_BUILD_TYPE=Release

.PHONY: all deps build test demo bench bench-build sanitize tsan windows clean

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

# The instrumented builds optimise at -O1 with line tables only: what the sanitizers' reports need
# (file and line of every frame), and half the compile time of -O2 with full debug information.
# They also leave inlining to the compiler in the loops the release build flattens (the same
# results; flattened, the two develop files took 45 s of CPU under instrumentation, 14 s without).
CHECKED_BUILD = -DCMAKE_BUILD_TYPE=RelWithDebInfo "-DCMAKE_CXX_FLAGS_RELWITHDEBINFO=-O1 -g1 -DVELMORA_NO_FLATTEN" \
  "-DCMAKE_C_FLAGS_RELWITHDEBINFO=-O1 -g1"

# Address and undefined-behaviour sanitizers over the library, the tool and every test. The
# tests' guard-page planes are mmap'ed, so they keep working beside the sanitizer's own checks.
# Two instrumentations are left out because they make the files built on the inlined vector
# math take minutes each instead of seconds: the per-slot stack redzones (asan-stack) and UBSan's
# pointer checks (null, alignment, object-size, pointer-overflow; vptr has no classes to check).
# Heap, global and mmap'ed-plane accesses stay fully checked, as do every arithmetic check.
SANITIZE_FLAGS = -fsanitize=address,undefined -fno-sanitize=null,alignment,vptr,pointer-overflow,object-size \
  -fno-sanitize-recover=all -fno-omit-frame-pointer --param asan-stack=0
sanitize: deps
	cmake -S . -B $(SANITIZE_BUILD) $(CHECKED_BUILD) "-DCMAKE_C_FLAGS=$(SANITIZE_FLAGS)" \
	  "-DCMAKE_CXX_FLAGS=$(SANITIZE_FLAGS)" "-DCMAKE_EXE_LINKER_FLAGS=$(SANITIZE_FLAGS)" \
	  "-DCMAKE_SHARED_LINKER_FLAGS=$(SANITIZE_FLAGS)"
	cmake --build $(SANITIZE_BUILD) -j $(JOBS)
	ASAN_OPTIONS=detect_leaks=1:verify_asan_link_order=0 UBSAN_OPTIONS=print_stacktrace=1 \
	  ctest --test-dir $(SANITIZE_BUILD) --output-on-failure -j $(JOBS)

# ThreadSanitizer over the concurrency test (every family from several host threads at once).
# The compiler's OpenMP runtime is not instrumented, so the sanitizer cannot see the barrier that
# ends a parallel loop and would report its workers' rows as racing with the code after it; the
# run keeps one OpenMP thread per team, and the host threads are what it checks.
tsan: deps
	cmake -S . -B $(TSAN_BUILD) $(CHECKED_BUILD) -DVELMORA_TOOLS=OFF \
	  "-DCMAKE_C_FLAGS=-fsanitize=thread" "-DCMAKE_CXX_FLAGS=-fsanitize=thread" \
	  "-DCMAKE_EXE_LINKER_FLAGS=-fsanitize=thread" "-DCMAKE_SHARED_LINKER_FLAGS=-fsanitize=thread"
	cmake --build $(TSAN_BUILD) -j $(JOBS) --target test_core_concurrency_test
	OMP_NUM_THREADS=1 TSAN_OPTIONS=halt_on_error=1 $(TSAN_BUILD)/tests/test_core_concurrency_test

# The Windows DLLs (32-bit standard-call, as the editor loads it, and 64-bit), cross-built with
# mingw-w64, then their tests under Wine: the whole suite on 64-bit, and on 32-bit the export and
# decoration checks plus, where Wine's 32-bit half is installed, the stack-balance probe and suite.
WINDOWS_FLAGS = -DVELMORA_TOOLS=OFF -DCMAKE_CROSSCOMPILING_EMULATOR=wine
windows:
	@scripts/install-deps.sh windows
	cmake -S . -B $(WIN64_BUILD) -DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/mingw-x86_64.cmake $(WINDOWS_FLAGS)
	cmake --build $(WIN64_BUILD) -j $(JOBS)
	cmake -S . -B $(WIN32_BUILD) -DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/mingw-i686.cmake $(WINDOWS_FLAGS)
	cmake --build $(WIN32_BUILD) -j $(JOBS)
	@# Wine's server and services start here, detached from CTest's pipes (a service that
	@# inherited a test's output would keep CTest waiting for it), and stay up for the runs.
	@# The prefix is created and booted before any test starts: the server will not start
	@# without its directory, and two tests creating the prefix at once fail one of them.
	export WINEPREFIX=$(CURDIR)/$(WIN64_BUILD)/wine WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml="; \
	  mkdir -p "$$WINEPREFIX" && wineserver -p 30 && wine wineboot </dev/null >/dev/null 2>&1 || \
	  { echo "Wine could not start a prefix in $$WINEPREFIX" >&2; wineserver -k; exit 1; }; \
	  ctest --test-dir $(WIN64_BUILD) --output-on-failure -j $(JOBS) && \
	  ctest --test-dir $(WIN32_BUILD) --output-on-failure -j $(JOBS); \
	  rc=$$?; wineserver -k; exit $$rc

# The benchmarks build in the main build folder, on the library objects the tests already use
# (CI builds them so they keep compiling), then run. `make build` never builds them.
bench-build:
	@scripts/install-deps.sh bench
	cmake -S . -B $(BUILD) $(CMAKE_FLAGS) -DVELMORA_BENCH=ON
	cmake --build $(BUILD) -j $(JOBS) --target velmora_benchmarks

bench: bench-build
	@for b in $(BUILD)/bench/bench_*; do $$b $(BENCH_ARGS) || exit 1; done

clean:
	rm -rf $(BUILD) $(SANITIZE_BUILD) $(TSAN_BUILD) $(WIN32_BUILD) $(WIN64_BUILD)
