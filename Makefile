# Quick start: `make demo` and `make test`. Each installs what is missing, configures and builds.

BUILD ?= build
DEMO_ROOT ?= /tmp/custodo-demo
JOBS ?= $(shell nproc)
CMAKE_FLAGS ?=
ifeq ($(WERROR),1)
CMAKE_FLAGS += -DCUSTODO_WERROR=ON
endif
# Two boards at a time: the scenarios mostly wait on their board.
PYTEST := /usr/bin/python3 -m pytest -q -p no:cacheprovider -n 2

# Debian packages for building, the simulated board and the tests.
PACKAGES := cmake g++ make pkg-config libasound2-dev alsa-utils libfuse3-dev fuse3 \
	libubootenv-dev libubootenv-tool u-boot-tools libcap-dev libgtest-dev python3-pytest python3-pytest-xdist \
	procps psmisc sysvinit-utils
CROSS_PACKAGES := g++-aarch64-linux-gnu qemu-user libasound2-dev:arm64 libubootenv-dev:arm64 \
	libfuse3-dev:arm64 libgtest-dev:arm64

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

.PHONY: all deps build demo test test-sim test-sanitize test-target cross cross-test clean

all: build

deps:
	$(call install_missing,$(PACKAGES))

build: deps
	cmake -S . -B $(BUILD) $(CMAKE_FLAGS) >/dev/null
	cmake --build $(BUILD) -j$(JOBS)

demo: build
	$(BUILD)/custodo-board init $(DEMO_ROOT)
	$(BUILD)/custodo-board run $(DEMO_ROOT)

test: test-sim test-sanitize test-target

test-sim: build
	$(BUILD)/custodo-unit
	CUSTODO_BUILD=$(abspath $(BUILD)) $(PYTEST) tests/system

test-sanitize:
	$(MAKE) --no-print-directory test-sim BUILD=build-asan CMAKE_FLAGS="$(CMAKE_FLAGS) -DCUSTODO_SANITIZE=ON"

# The robot's variant has no vendor libraries here: its objects must still compile.
test-target: deps
	cmake -S . -B build-target -DCUSTODO_BOARD=target $(CMAKE_FLAGS) >/dev/null
	cmake --build build-target -j$(JOBS)

cross: deps
	@dpkg --print-foreign-architectures | grep -q arm64 || $(SUDO) dpkg --add-architecture arm64
	$(call install_missing,$(CROSS_PACKAGES))
	cmake -S . -B build-aarch64 -DCMAKE_TOOLCHAIN_FILE=cmake/aarch64-linux-gnu.cmake $(CMAKE_FLAGS) >/dev/null
	cmake --build build-aarch64 -j$(JOBS)

# The loader is named explicitly: qemu's -L path prefix hangs threaded programs here.
cross-test: cross
	qemu-aarch64 /usr/aarch64-linux-gnu/lib/ld-linux-aarch64.so.1 \
		--library-path /usr/aarch64-linux-gnu/lib build-aarch64/custodo-unit

clean:
	rm -rf build build-asan build-target build-aarch64
