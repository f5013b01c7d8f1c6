# Thin wrapper over CMake. `make run` converts the bundled samples, `make test` runs every test.
BUILD ?= build
JOBS ?= 2
MAKEFLAGS += --no-print-directory
CMAKE_FLAGS ?=

.PHONY: all deps configure build run test bench fuzz clean

all: build

deps:
	@bash scripts/install-deps

configure: deps
	@cmake -S . -B $(BUILD) $(CMAKE_FLAGS) >/dev/null

build: configure
	@cmake --build $(BUILD) -j$(JOBS)

# Only what converting and checking the samples needs, not the test programs.
run: configure
	@cmake --build $(BUILD) -j$(JOBS) --target quillmend mdfgen
	@bash scripts/run-samples $(BUILD)

test: build
	@cd $(BUILD) && ctest --output-on-failure -j$(JOBS)

bench: build
	@bash bench/run $(BUILD)

fuzz: deps
	@bash fuzz/run

clean:
	rm -rf $(BUILD) build-*
