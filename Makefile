# Every target a person needs; `make demo` and `make test` set up a fresh Debian or Ubuntu machine.
BUILD_DIR ?= build
ASAN_DIR  ?= build-asan
JOBS      ?= $(shell nproc 2>/dev/null || echo 2)
CMAKE_FLAGS ?=

.PHONY: all build deps demo test asan clean

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

$(ASAN_DIR)/build.ninja:
	cmake -S . -B $(ASAN_DIR) -G Ninja -DCMAKE_BUILD_TYPE=Debug -DVORLO_SANITIZE=ON $(CMAKE_FLAGS)

asan: deps $(ASAN_DIR)/build.ninja
	cmake --build $(ASAN_DIR) -j $(JOBS)
	ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 $(ASAN_DIR)/vorlo-tests

clean:
	rm -rf $(BUILD_DIR) $(ASAN_DIR)
