# Two entry points for a newcomer on Debian 12:
#   make run    builds the daemon and runs it on its default path (pattern mode, port 0, 1080p25),
#               its REST tree at http://127.0.0.1:8080/sdi_tap/0
#   make test   builds everything with AddressSanitizer/UBSan and runs the whole test suite
# Both install missing Debian packages first.

BUILD_DIR      ?= build
TEST_BUILD_DIR ?= build/sanitize
JOBS           ?= $(shell nproc)
RUN_ROOT       := $(abspath $(BUILD_DIR))/run
RUN_ARGS       ?= -sdiport 0 -videoformat 3
# Where `make run` serves the REST tree: a local address a normal user may bind (the daemon's own
# default, every address on port 80, needs privileges). Set it to serve elsewhere.
SDI_TAP_HTTP_BASE_URL ?= http://127.0.0.1:8080

.PHONY: all deps build run test bench format clean

all: build

deps:
	@scripts/install-deps.sh

$(BUILD_DIR)/build.ninja:
	cmake -S . -B $(BUILD_DIR) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo

$(TEST_BUILD_DIR)/build.ninja:
	cmake -S . -B $(TEST_BUILD_DIR) -G Ninja -DCMAKE_BUILD_TYPE=Debug -DSDI_TAP_SANITIZE=ON

build: deps $(BUILD_DIR)/build.ninja
	cmake --build $(BUILD_DIR) -j $(JOBS)

# The installation root lives in the build tree: a registry directory whose Pathname points at
# <build>/run/root/App/Bin, so the log file lands in <build>/run/root/Logs.
run: build
	@mkdir -p $(RUN_ROOT)/registry/SOFTWARE/FirmwareAgent/CurrentVersion $(RUN_ROOT)/root/App/Bin
	@echo "$(RUN_ROOT)/root/App/Bin" > $(RUN_ROOT)/registry/SOFTWARE/FirmwareAgent/CurrentVersion/Pathname
	@echo "REST tree: $(SDI_TAP_HTTP_BASE_URL)/sdi_tap/<port> (port as in RUN_ARGS)"
	SDI_TAP_REGISTRY=$(RUN_ROOT)/registry SDI_TAP_HTTP_BASE_URL=$(SDI_TAP_HTTP_BASE_URL) $(BUILD_DIR)/bin/sdi_tap $(RUN_ARGS)

test: deps $(TEST_BUILD_DIR)/build.ninja
	cmake --build $(TEST_BUILD_DIR) -j $(JOBS)
	cd $(TEST_BUILD_DIR) && ctest --output-on-failure -j $(JOBS) --timeout 300

bench: build
	@for b in $(BUILD_DIR)/bin/*_bench; do echo "== $$b"; $$b; done

format:
	git ls-files '*.cpp' '*.h' | xargs clang-format -i

clean:
	rm -rf $(BUILD_DIR)
