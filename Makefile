# Thin wrapper over CMake. `make run` converts the bundled samples, `make test` runs every test.
BUILD ?= build
JOBS ?= 2
CMAKE_FLAGS ?=

.PHONY: all deps build run test bench fuzz clean

all: build

deps:
	@bash scripts/install-deps

build: deps
	@cmake -S . -B $(BUILD) $(CMAKE_FLAGS) >/dev/null
	@cmake --build $(BUILD) -j$(JOBS)

run: build
	@bash scripts/run-samples $(BUILD)

test: build
	@cd $(BUILD) && ctest --output-on-failure -j$(JOBS)

bench: build
	@bash bench/run $(BUILD)

fuzz: deps
	@bash fuzz/run

clean:
	rm -rf $(BUILD) build-*
