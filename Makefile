# The few words to remember. Everything behind them is CMake's presets and the scripts of tools/.

PREFIX ?= /usr/local
JOBS ?= $(shell nproc)

.PHONY: help build run test bench check install clean

help:
	@echo "make run      start a router: vexl3d, its data plane, and an example table"
	@echo "make test     build everything and run the tests"
	@echo "make bench    measure, and print one table"
	@echo "make check    format, tidy, layering, sanitizers, clang"
	@echo "make install  into PREFIX ($(PREFIX)); DESTDIR is obeyed"
	@echo "make clean    remove what was built"

build:
	@tools/setup
	cmake --preset release
	cmake --build --preset release -j $(JOBS)

run: build
	tools/run

test: build
	ctest --preset release -j 2

bench: build
	cmake --build --preset release -j $(JOBS) --target acl_bench
	build/release/bin/vexl3_bench $(BENCH)
	build/release/bin/acl_bench

check:
	@tools/setup --check
	tools/check

install: build
	cmake --install build/release --prefix $(PREFIX)

clean:
	rm -rf build
