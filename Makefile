# The few words to remember. Everything behind them is CMake's presets and the scripts of tools/.

PREFIX ?= /usr/local
JOBS ?= $(shell nproc)
# A terminal sees how far the build is; a log sees what fails.
QUIET = $(shell test -t 2 || echo --quiet)
BUILD = cmake --build --preset release -j $(JOBS)

.PHONY: help build programs run test bench check fuzz install deb clean

help:
	@echo "make run      start a router: vexl3d, its data plane, and an example table"
	@echo "make test     build everything and run the tests"
	@echo "make bench    measure, and print one table"
	@echo "make check    format, tidy, layering, size of the tests, sanitizers, threads, clang"
	@echo "make fuzz     fuzz each input from outside for FUZZ_SECONDS (600); needs clang"
	@echo "make install  into PREFIX ($(PREFIX)); DESTDIR is obeyed"
	@echo "make deb      build the Debian packages, beside this folder"
	@echo "make clean    remove what was built"

build:
	@tools/setup
	@log=$$(cmake --preset release 2>&1) || { echo "$$log"; exit 1; }
	@$(BUILD) -- $(QUIET)

programs:
	@tools/setup
	cmake --preset release
	cmake --build --preset release -j $(JOBS) --target vexdp vexl3d vexctl

run: programs
	tools/run

test: build
	@tools/test release

bench: build
	@$(BUILD) --target acl_bench transit_bench -- $(QUIET)
	build/release/bin/vexl3_bench $(BENCH)
	build/release/bin/acl_bench
	build/release/bin/transit_bench
	VEXL3_BIN=build/release/bin bench/traffic.py

check:
	@tools/setup --check
	tools/check

fuzz:
	@tools/setup --check
	cmake --preset fuzz
	cmake --build --preset fuzz -j $(JOBS)
	tools/fuzz

install: build
	cmake --install build/release --prefix $(PREFIX)

deb:
	@tools/setup --deb
	dpkg-buildpackage -us -uc -b

clean:
	rm -rf build
