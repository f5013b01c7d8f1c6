# Thin wrapper over CMake. `make run` converts the bundled samples, `make test` runs every test.
BUILD ?= build
JOBS ?= 2
MAKEFLAGS += --no-print-directory
CMAKE_FLAGS ?=
# Where `make install` puts the program; DESTDIR stages it under another root (as packagers do).
PREFIX ?= /usr/local
DESTDIR ?=

.PHONY: all deps configure build run test install package bench fuzz clean

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

# Install and package need only the program and its man page, not the test programs.
install: configure
	@cmake --build $(BUILD) -j$(JOBS) --target quillmend qm_man
	@DESTDIR="$(DESTDIR)" cmake --install $(BUILD) --prefix "$(PREFIX)"

package: configure
	@cmake --build $(BUILD) -j$(JOBS) --target quillmend qm_man
	@cd $(BUILD) && cpack -G DEB

bench: build
	@bash bench/run $(BUILD)
	@bash bench/folder $(BUILD)

fuzz: deps
	@bash fuzz/run

clean:
	rm -rf $(BUILD) build-*
