# Quick start: `make demo` and `make test`. Each installs what is missing, configures and builds.

BUILD ?= build
DEMO_ROOT ?= /tmp/custodo-demo
JOBS ?= $(shell nproc)
CMAKE_FLAGS ?=
ifeq ($(WERROR),1)
CMAKE_FLAGS += -DCUSTODO_WERROR=ON
endif

# Debian packages for building, the simulated board, the tests, the manual pages and the Debian
# packages (and their check), and the run-time tools the supervisor calls.
PACKAGES := cmake g++ make pkg-config libasound2-dev alsa-utils libfuse3-dev fuse3 \
	libubootenv-dev libubootenv-tool u-boot-tools libcap-dev libgtest-dev libjansson-dev libinih-dev \
	python3-pytest python3-pytest-xdist dpkg-dev systemd strace procps sysvinit-utils \
	scdoc lintian

# Fuzzing: clang's libFuzzer with ASan and UBSan, each target of tests/fuzz for FUZZ_SECONDS,
# two at a time on two cores.
FUZZ_SECONDS ?= 30
FUZZ_PACKAGES := clang-14 libclang-rt-14-dev
FUZZ_TARGETS := $(patsubst tests/fuzz/%_fuzz.cpp,%,$(wildcard tests/fuzz/*_fuzz.cpp))

# Cross builds, one per board architecture: build-<name> with cmake/<triplet>.cmake and Debian's
# cross compiler, against a sysroot: SYSROOT_<name>=DIR (the robot's), or else build-<name>/sysroot,
# Debian's packages of that architecture extracted once from the host's apt sources
# (cmake/debian-sysroot.sh). An architecture without a sysroot is reported and skipped.
CROSS := aarch64 armhf
triplet_aarch64 := aarch64-linux-gnu
triplet_armhf := arm-linux-gnueabihf
debian_aarch64 := arm64
debian_armhf := armhf
CROSS_LIBS := libasound2-dev libubootenv-dev libfuse3-dev libgtest-dev libcap-dev libjansson-dev libinih-dev \
	libstdc++6
CROSS_PACKAGES := mmdebstrap qemu-user $(foreach a,$(CROSS),g++-$(triplet_$(a)))
sysroot = $(abspath $(or $(SYSROOT_$(1)),build-$(1)/sysroot))
cross_flags = -DCMAKE_TOOLCHAIN_FILE=cmake/$(triplet_$(1)).cmake -DCMAKE_SYSROOT=$(call sysroot,$(1))
no_sysroot = echo "$(1): skipped: no sysroot at $(call sysroot,$(1))"
# A scratch root with a stand-in vendor library, for the robot's variant.
VENDOR_ROOT := build-vendor/sysroot

SUDO := $(shell [ "$$(id -u)" -eq 0 ] || echo sudo)
define install_missing
	@missing=$$(for p in $(1); do \
		dpkg-query -W -f='$${Status}\n' $$p 2>/dev/null | grep -q 'install ok installed' || echo $$p; \
	done); \
	if [ -n "$$missing" ]; then \
		echo "installing:" $$missing; \
		$(SUDO) apt-get update -qq || echo "some package lists could not be updated; trying the rest"; \
		DEBIAN_FRONTEND=noninteractive $(SUDO) apt-get install -y -qq $$missing >/dev/null; \
	fi
endef

.PHONY: all deps build demo test test-sim test-sanitize test-thread test-target fuzz package cross \
	cross-test cross-vendor cross-package bench clean

all: build

deps:
	$(call install_missing,$(PACKAGES))

build: deps
	cmake -S . -B $(BUILD) $(CMAKE_FLAGS) >/dev/null
	cmake --build $(BUILD) -j$(JOBS)

# A new board root per run: the previous run's stays as $(DEMO_ROOT).1, records and all. The
# daemons that get the supervisor's messages listen on their modules and record them.
demo: build
	@if [ -e $(DEMO_ROOT)/sim/board.lock ]; then \
		flock -n $(DEMO_ROOT)/sim/board.lock true || \
			{ echo "a board is running at $(DEMO_ROOT)"; exit 1; }; \
		rm -rf $(DEMO_ROOT).1 && mv $(DEMO_ROOT) $(DEMO_ROOT).1; \
	fi
	$(BUILD)/custodo-board init $(DEMO_ROOT)
	$(BUILD)/custodo-board daemon $(DEMO_ROOT) CoreCtl listen 1
	$(BUILD)/custodo-board daemon $(DEMO_ROOT) AppBridge listen 3
	$(BUILD)/custodo-board daemon $(DEMO_ROOT) chimer listen 4
	for offset in 2.5 -0.734521 1.2; do \
		$(BUILD)/custodo-board ntpdate $(DEMO_ROOT) push \
			"22 Nov 10:00:00 ntpdate[123]: adjust time server 10.0.0.1 offset $$offset sec"; \
	done
	$(BUILD)/custodo-board run $(DEMO_ROOT) -- $(DEMO_ROOT)/opt/belvane/watchdog

test: test-sim test-sanitize test-thread test-target

# Unit and system tests, and the install and package checks, through CTest.
test-sim: build
	ctest --test-dir $(BUILD) --output-on-failure

test-sanitize:
	$(MAKE) --no-print-directory test-sim BUILD=build-asan CMAKE_FLAGS="$(CMAKE_FLAGS) -DCUSTODO_SANITIZE=ON"

test-thread:
	$(MAKE) --no-print-directory test-sim BUILD=build-tsan \
		CMAKE_FLAGS="$(CMAKE_FLAGS) -DCUSTODO_SANITIZE=thread"

# The robot's variant has no vendor libraries here: its objects must still compile.
test-target: deps
	cmake -S . -B build-target -DCUSTODO_BOARD=target $(CMAKE_FLAGS) >/dev/null
	cmake --build build-target -j$(JOBS)

# New inputs go to build-fuzz/corpus/<target>/, a failing one to build-fuzz/<target>-crash-*
# (or -timeout-*, -leak-*): keep it as a regression case in tests/fuzz/corpus/<target>/.
fuzz: deps
	$(call install_missing,$(FUZZ_PACKAGES))
	cmake -S . -B build-fuzz -DCMAKE_CXX_COMPILER=clang++-14 -DCUSTODO_FUZZ=ON $(CMAKE_FLAGS) \
		>/dev/null
	cmake --build build-fuzz -j$(JOBS) --target fuzzers
	@$(MAKE) --no-print-directory -j$(JOBS) $(FUZZ_TARGETS:%=fuzz-%)

fuzz-%:
	@mkdir -p build-fuzz/corpus/$*
	@if build-fuzz/fuzz_$* -max_total_time=$(FUZZ_SECONDS) -timeout=10 \
		-artifact_prefix=build-fuzz/$*- build-fuzz/corpus/$* tests/fuzz/corpus/$* \
		>build-fuzz/fuzz_$*.log 2>&1; then \
		echo "fuzz_$*: $$(grep -o 'Done [0-9]* runs in [0-9]* second(s)' build-fuzz/fuzz_$*.log)"; \
	else tail -n 40 build-fuzz/fuzz_$*.log; echo "fuzz_$*: failed, see build-fuzz/fuzz_$*.log"; \
		exit 1; fi

# The development package, custodo-board, from the sim build (the robot's: cross-package).
package: build
	cd $(BUILD) && cpack

cross: deps
	$(call install_missing,$(CROSS_PACKAGES))
	@$(MAKE) --no-print-directory $(CROSS:%=cross-build-%)

cross-sysroot-%:
	@[ -n "$(SYSROOT_$*)" ] || [ -d build-$*/sysroot ] || { mkdir -p build-$* && \
		cmake/debian-sysroot.sh $(debian_$*) build-$*/sysroot $(CROSS_LIBS); } || true

cross-build-%: cross-sysroot-%
	@if [ -d $(call sysroot,$*) ]; then \
		cmake -S . -B build-$* $(call cross_flags,$*) $(CMAKE_FLAGS) >/dev/null && \
		cmake --build build-$* -j$(JOBS); \
	else $(call no_sysroot,$*); fi

# The unit tests of each architecture under qemu, with the sysroot as qemu's prefix (-L).
cross-test: cross
	@$(MAKE) --no-print-directory $(CROSS:%=cross-test-%) cross-vendor

cross-test-%:
	@if [ -d $(call sysroot,$*) ]; then ctest --test-dir build-$* --output-on-failure; \
	else $(call no_sysroot,$*); fi

# The robot's variant finds a vendor library placed in a scratch root beside the aarch64 sysroot
# and links it.
cross-vendor:
	@if [ -d $(call sysroot,aarch64) ]; then \
		set -e; mkdir -p $(VENDOR_ROOT)/usr/lib; \
		aarch64-linux-gnu-g++ -shared -fPIC -Wl,-soname,libmculink.so -I. \
			-o $(VENDOR_ROOT)/usr/lib/libmculink.so tests/cross/mculink_stub.cpp; \
		cmake -S . -B build-vendor/build $(call cross_flags,aarch64) -DCUSTODO_BOARD=target \
			-DCMAKE_FIND_ROOT_PATH=$(abspath $(VENDOR_ROOT)) $(CMAKE_FLAGS) >/dev/null; \
		cmake --build build-vendor/build -j$(JOBS) --target custodo; \
		grep -qx 'MCULINK_LIB:FILEPATH=$(abspath $(VENDOR_ROOT))/usr/lib/libmculink.so' \
			build-vendor/build/CMakeCache.txt; \
		echo "the robot's variant links $(VENDOR_ROOT)/usr/lib/libmculink.so"; \
	else $(call no_sysroot,aarch64); fi

# The robot's package: the target variant for aarch64 against the robot's sysroot, which holds
# the vendor's libraries (SYSROOT_aarch64=DIR; without it, build-aarch64/sysroot).
cross-package: deps
	$(call install_missing,$(CROSS_PACKAGES))
	@$(MAKE) --no-print-directory cross-sysroot-aarch64
	cmake -S . -B build-robot $(call cross_flags,aarch64) -DCUSTODO_BOARD=target $(CMAKE_FLAGS) \
		>/dev/null
	@if grep -q '^MCULINK_LIB:FILEPATH=.*NOTFOUND$$' build-robot/CMakeCache.txt; then \
		echo "no libmculink in $(call sysroot,aarch64): the robot's sysroot holds it"; exit 1; fi
	cmake --build build-robot -j$(JOBS)
	cd build-robot && cpack

# The supervisor's footprint and speed, a Release build on simulated boards, one table beside
# the aims (bench/README.md); the aarch64 binary's size once `make cross` has configured it.
# Takes minutes; not part of `make test`.
bench: deps
	cmake -S . -B build-bench -DCMAKE_BUILD_TYPE=Release -DCUSTODO_TESTS=OFF $(CMAKE_FLAGS) >/dev/null
	cmake --build build-bench -j$(JOBS)
	c++ -O2 -o build-bench/check_floor bench/check_floor.cpp
	if [ -d build-aarch64 ]; then cmake --build build-aarch64 -j$(JOBS) --target custodo; fi
	CUSTODO_BUILD=$(abspath build-bench) /usr/bin/python3 bench/bench.py

clean:
	rm -rf build build-asan build-tsan build-fuzz build-bench build-target $(CROSS:%=build-%) \
		build-vendor build-robot
