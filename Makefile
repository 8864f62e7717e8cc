# Entry points: `make test` builds and runs every test, `make demo` runs the main job.
BUILD ?= build
JOBS ?= $(shell nproc)
CMAKE_FLAGS ?=

.PHONY: all deps configure build test demo bench install clean

all: build

deps:
	@bash scripts/install-deps.sh build

configure: deps
	@cmake -S . -B $(BUILD) -G Ninja $(CMAKE_FLAGS) > /dev/null

build: configure
	@cmake --build $(BUILD) -j $(JOBS)

test: build
	@cd $(BUILD) && ctest --output-on-failure -j $(JOBS)

demo: build
	@if [ -x $(BUILD)/tools/qrn/qrn ]; then \
	  $(BUILD)/tools/qrn/qrn demo -o qrn-demo; \
	else \
	  $(BUILD)/examples/qrn_version; \
	fi

bench:
	@bash scripts/install-deps.sh bench
	@cmake -S . -B $(BUILD)-bench -G Ninja -DCMAKE_BUILD_TYPE=Release -DQRN_BUILD_BENCH=ON -DQRN_BUILD_TESTS=OFF > /dev/null
	@cmake --build $(BUILD)-bench -j $(JOBS)
	@python3 scripts/bench-ratios.py $(BUILD)-bench/bench/bench_*

install: build
	@cmake --install $(BUILD) --prefix $(or $(PREFIX),/usr/local)

clean:
	@rm -rf $(BUILD) $(BUILD)-bench $(BUILD)-san
