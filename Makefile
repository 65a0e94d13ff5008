# Single commands for building, testing and trying the tool.
BUILD ?= build
JOBS ?= 2

PREFIX ?= /usr/local

.PHONY: all configure test test-asan fuzz demo bench install clean

all: configure
	cmake --build $(BUILD) -j $(JOBS)

# The dependency step first: tools/deps.sh installs the missing Debian packages
# when run as root and otherwise prints the command that would. Every build
# needs the required ones; the tests and the demo also use the optional ones.
WITH_OPTIONAL = $(filter test test-asan demo,$(MAKECMDGOALS))
configure:
	@tools/deps.sh $(if $(WITH_OPTIONAL),,--required)
	@test -f $(BUILD)/CMakeCache.txt || cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=Release

test: all
	cd $(BUILD) && ctest --output-on-failure -j $(JOBS)

# The whole test suite under AddressSanitizer, UndefinedBehaviorSanitizer and
# LeakSanitizer, in its own build directory; the first report fails the run.
ASAN_BUILD ?= build-asan
test-asan:
	@tools/deps.sh
	@test -f $(ASAN_BUILD)/CMakeCache.txt || cmake -S . -B $(ASAN_BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKELTA_SANITIZE=ON
	cmake --build $(ASAN_BUILD) -j $(JOBS)
	cd $(ASAN_BUILD) && ASAN_OPTIONS=halt_on_error=1:detect_leaks=1:abort_on_error=1 \
	  UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1 ctest --output-on-failure -j $(JOBS)

# Every fuzz target for FUZZ_SECONDS each, from the seed corpora that
# fuzz/seed_corpora.sh gathers; what they find new is kept in $(FUZZ_BUILD)/corpus.
FUZZ_BUILD ?= build-fuzz
FUZZ_SECONDS ?= 60
SHARED_DATA ?= ../shared/data
FUZZ_TARGETS = kelta_inp cif mol symmetry track_line neighbors
fuzz:
	@test -f $(FUZZ_BUILD)/CMakeCache.txt || CC=clang CXX=clang++ cmake -S . -B $(FUZZ_BUILD) \
	  -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKELTA_FUZZ=ON -DKELTA_BUILD_TESTS=OFF
	cmake --build $(FUZZ_BUILD) -j $(JOBS)
	fuzz/seed_corpora.sh $(FUZZ_BUILD)/seeds $(SHARED_DATA)
	for t in $(FUZZ_TARGETS); do mkdir -p $(FUZZ_BUILD)/corpus/$$t; \
	  $(FUZZ_BUILD)/fuzz_$$t -max_total_time=$(FUZZ_SECONDS) -timeout=10 -close_fd_mask=3 -print_final_stats=1 \
	    $(FUZZ_BUILD)/corpus/$$t $(FUZZ_BUILD)/seeds/$$t || exit 1; done

# The demo: writes a crystal, generates its tracks, runs every analysis and draws
# the pictures (with gnuplot) in demo/run.
demo: all
	demo/run_demo.sh $(BUILD) demo/run

bench: all
	cmake --build $(BUILD) -j $(JOBS) --target kelta_bench_mob
	$(BUILD)/kelta_bench_mob

# Executables to PREFIX/bin, their manual pages to PREFIX/share/man/man1, the
# README and the demo script to PREFIX/share/doc/kelta_mob.
install: all
	cmake --install $(BUILD) --prefix $(PREFIX)

clean:
	rm -rf $(BUILD) $(ASAN_BUILD) $(FUZZ_BUILD) demo/run
