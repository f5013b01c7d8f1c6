# Thin wrapper over CMake. `make run` converts the bundled samples, `make test` runs every test.
BUILD ?= build
JOBS ?= 2
MAKEFLAGS += --no-print-directory
CMAKE_FLAGS ?=
# Where `make install` puts the program; DESTDIR stages it under another root (as packagers do).
PREFIX ?= /usr/local
DESTDIR ?=

.PHONY: all deps configure build run test install package bench fuzz clean \
        windows-deps windows test-windows windows-package

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

# Windows, cross-compiled here with MinGW-w64 and tested under Wine (README: Building for Windows).
WIN_BUILD ?= build-windows
WIN_CMAKE_FLAGS = -DCMAKE_TOOLCHAIN_FILE=$(abspath cmake/mingw-w64-x86_64.cmake) \
                  -DQM_DEPS_PREFIX=$(abspath $(WIN_BUILD))/deps
WINE = /usr/lib/wine/wine64
WINE_ENV = WINEDEBUG=-all WINEDLLOVERRIDES=mscoree,mshtml=

windows-deps:
	@bash scripts/install-deps windows
	@JOBS=$(JOBS) bash scripts/build-windows-deps $(WIN_BUILD)

windows: windows-deps
	@cmake -S . -B $(WIN_BUILD) $(WIN_CMAKE_FLAGS) >/dev/null
	@cmake --build $(WIN_BUILD) -j$(JOBS) --target quillmend

# The test programs run under Wine, then the Windows program is compared with the Linux one on
# the same folders. Wine keeps its prefix (its simulated C: drive and registry) in the build
# folder; making one takes some seconds, so it is made once, before tests run in parallel.
test-windows: export WINEPREFIX = $(abspath $(WIN_BUILD))/wine
test-windows: windows-deps configure
	@cmake --build $(BUILD) -j$(JOBS) --target quillmend mdfgen
	@if [ ! -f "$$WINEPREFIX/system.reg" ]; then \
	  echo "test-windows: making a Wine prefix in $$WINEPREFIX" >&2; \
	  $(WINE_ENV) $(WINE) wineboot --init >$(WIN_BUILD)/wineboot.log 2>&1 || \
	    { cat $(WIN_BUILD)/wineboot.log >&2; exit 1; }; fi
	@cmake -S . -B $(WIN_BUILD) $(WIN_CMAKE_FLAGS) >/dev/null
	@cmake --build $(WIN_BUILD) -j$(JOBS)
	@# A Wine process start now and then dies at once on a loaded machine (no output, 0.02 s);
	@# such a test gets one more try, and a test failing twice still fails the run.
	@cd $(WIN_BUILD) && ctest --output-on-failure -j$(JOBS) --repeat until-pass:2
	@bash tests/windows/compare-with-linux $(BUILD) $(WIN_BUILD)

windows-package: windows
	@bash scripts/package-windows $(WIN_BUILD) $(WIN_BUILD)/quillmend.exe

clean:
	rm -rf $(BUILD) build-*
