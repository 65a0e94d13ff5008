# Single commands for building, testing and trying the tool.
BUILD ?= build
JOBS ?= 2

.PHONY: all configure test demo bench clean

all: configure
	cmake --build $(BUILD) -j $(JOBS)

configure:
	@test -f $(BUILD)/CMakeCache.txt || cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=Release

test: all
	cd $(BUILD) && ctest --output-on-failure -j $(JOBS)

# Runs the tool on a copy of the example working directory in demo/.
demo: all
	rm -rf demo/run && mkdir -p demo/run
	cp -r demo/kelta.inp demo/charge.inp demo/*.mol demo/track demo/run/
	cd demo/run && ../../$(BUILD)/kelta_mob -binfo
	@echo "demo output is in demo/run"

bench: all
	cmake --build $(BUILD) -j $(JOBS) --target kelta_bench_mob
	$(BUILD)/kelta_bench_mob

clean:
	rm -rf $(BUILD) demo/run
