# Every target a person needs; `make demo` and `make test` set up a fresh Debian or Ubuntu machine.
BUILD_DIR ?= build
ASAN_DIR  ?= build-asan
BENCH_DIR ?= build-bench
JOBS      ?= $(shell nproc 2>/dev/null || echo 2)
CMAKE_FLAGS ?=
PREFIX    ?= /usr/local

.PHONY: all build deps demo test asan bench install package clean

all: build

deps:
	@scripts/install-deps

$(BUILD_DIR)/build.ninja:
	cmake -S . -B $(BUILD_DIR) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo $(CMAKE_FLAGS)

build: $(BUILD_DIR)/build.ninja
	cmake --build $(BUILD_DIR) -j $(JOBS)

demo: deps build
	@scripts/demo $(BUILD_DIR)

test: deps build
	$(BUILD_DIR)/vorlo-tests
	@tests/clients/run $(BUILD_DIR)/vorlo-mcp
	$(BUILD_DIR)/vorlo-bench --notes 300 --reps 1 --quick

$(ASAN_DIR)/build.ninja:
	cmake -S . -B $(ASAN_DIR) -G Ninja -DCMAKE_BUILD_TYPE=Debug -DVORLO_SANITIZE=ON $(CMAKE_FLAGS)

# The torture test's full 500 cycles a writer take half an hour on one instrumented core; the
# sanitizers look for memory faults and undefined behaviour, which the same paths meet at 80.
ASAN_TORTURE_UPDATES ?= 80
asan: deps $(ASAN_DIR)/build.ninja
	cmake --build $(ASAN_DIR) -j $(JOBS)
	ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 VORLO_TORTURE_UPDATES=$(ASAN_TORTURE_UPDATES) \
		$(ASAN_DIR)/vorlo-tests

# A release build measured on generated libraries of 10k and 50k notes (kept under $TMPDIR and
# reused); BENCH_FLAGS passes options such as --reps 3 or --notes 2000.
$(BENCH_DIR)/build.ninja:
	cmake -S . -B $(BENCH_DIR) -G Ninja -DCMAKE_BUILD_TYPE=Release -DVORLO_TESTS=OFF $(CMAKE_FLAGS)

bench: deps $(BENCH_DIR)/build.ninja
	cmake --build $(BENCH_DIR) -j $(JOBS) --target vorlo-mcp vorlo-bench
	$(BENCH_DIR)/vorlo-bench $(BENCH_FLAGS)

# The executable and its man page under PREFIX (DESTDIR stages them elsewhere), and a .deb of both.
install: deps build
	DESTDIR="$(DESTDIR)" cmake --install $(BUILD_DIR) --prefix "$(PREFIX)"

package: deps build
	cmake --build $(BUILD_DIR) --target package

clean:
	rm -rf $(BUILD_DIR) $(ASAN_DIR) $(BENCH_DIR)

# The libFuzzer targets of tests/fuzz, built with clang, AddressSanitizer and UBSan, each run for
# FUZZ_SECONDS (or FUZZ_RUNS inputs, if set, whichever comes first) from its seed corpus, one after
# another, mutating inputs up to FUZZ_MAX_LEN bytes (128 KiB unless set). Only this target needs clang.
FUZZ_DIR     ?= build-fuzz
FUZZ_SECONDS ?= 300
FUZZ_RUNS    ?=
FUZZ_MAX_LEN ?=
FUZZ_TARGETS ?= line_handler note_parser paths json_string render_parse

.PHONY: fuzz
fuzz: deps
	@tests/fuzz/install-deps
	CC=clang CXX=clang++ cmake -S . -B $(FUZZ_DIR) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVORLO_FUZZ=ON -DVORLO_TESTS=OFF $(CMAKE_FLAGS)
	cmake --build $(FUZZ_DIR) -j $(JOBS) --target $(addprefix fuzz-,$(FUZZ_TARGETS))
	FUZZ_RUNS=$(FUZZ_RUNS) FUZZ_MAX_LEN=$(FUZZ_MAX_LEN) tests/fuzz/run $(FUZZ_DIR) $(FUZZ_SECONDS) $(FUZZ_TARGETS)
