# Single commands for building, testing and trying the tool.
BUILD ?= build
JOBS ?= 2
# Extra CMake options for every build directory, for example
# CMAKE_OPTIONS=-DKELTA_WERROR=ON (as CI does); when given, each build directory
# is configured again with them.
CMAKE_OPTIONS ?=
# True when the build directory $(1) is configured and no options are given.
configured = test -f $(1)/CMakeCache.txt && test -z "$(CMAKE_OPTIONS)"

PREFIX ?= /usr/local

.PHONY: all configure test test-asan test-tsan fuzz demo demo-qc bench install clean

all: configure
	cmake --build $(BUILD) -j $(JOBS)

# The dependency step first: tools/deps.sh installs the missing Debian packages
# when run as root and otherwise prints the command that would. Every build
# needs the required ones; the tests and the demo also use the optional ones.
WITH_OPTIONAL = $(filter test test-asan test-tsan demo demo-qc,$(MAKECMDGOALS))
configure:
	@tools/deps.sh $(if $(WITH_OPTIONAL),,--required)
	@$(call configured,$(BUILD)) || cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=Release $(CMAKE_OPTIONS)

test: all
	cd $(BUILD) && ctest --output-on-failure -j $(JOBS)

# The whole test suite under AddressSanitizer, UndefinedBehaviorSanitizer and
# LeakSanitizer, in its own build directory; the first report fails the run.
ASAN_BUILD ?= build-asan
test-asan:
	@tools/deps.sh
	@$(call configured,$(ASAN_BUILD)) || cmake -S . -B $(ASAN_BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo \
	  -DKELTA_SANITIZE=ON $(CMAKE_OPTIONS)
	cmake --build $(ASAN_BUILD) -j $(JOBS)
	cd $(ASAN_BUILD) && ASAN_OPTIONS=halt_on_error=1:detect_leaks=1:abort_on_error=1 \
	  UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1 ctest --output-on-failure -j $(JOBS)

# The whole test suite under ThreadSanitizer, built with clang and its OpenMP
# runtime in its own build directory. The runtime's Archer tool must be loaded
# (OMP_TOOL_LIBRARIES): it tells the sanitizer about the runtime's barriers and
# locks, without which they show as races; a first run checks that it starts.
# The first report ends the process. Reports go to files in tsan-reports, since
# a test that captures standard error would swallow them, and any such file
# fails the run.
TSAN_BUILD ?= build-tsan
ARCHER ?= $(shell realpath -q "$$(clang++ -print-resource-dir 2>/dev/null)/../../libarcher.so")
TSAN_REPORTS = $(abspath $(TSAN_BUILD))/tsan-reports
TSAN_ENV = OMP_TOOL_LIBRARIES=$(ARCHER) \
  TSAN_OPTIONS=halt_on_error=1:ignore_noninstrumented_modules=1:log_path=$(TSAN_REPORTS)/report
test-tsan:
	@tools/deps.sh
	@test -f "$(ARCHER)" || { echo "libarcher.so not found: install libomp-dev or set ARCHER"; exit 1; }
	@$(call configured,$(TSAN_BUILD)) || CC=clang CXX=clang++ cmake -S . -B $(TSAN_BUILD) \
	  -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKELTA_TSAN=ON $(CMAKE_OPTIONS)
	cmake --build $(TSAN_BUILD) -j $(JOBS)
	rm -rf $(TSAN_REPORTS) $(TSAN_BUILD)/archer-check && mkdir -p $(TSAN_REPORTS) $(TSAN_BUILD)/archer-check
	printf 'hop = 1 0 0 1\nnsimu = 4\ntsimu = 10\n' > $(TSAN_BUILD)/archer-check/walk
	$(TSAN_ENV) ARCHER_OPTIONS=verbose=1 $(TSAN_BUILD)/kelta_tracks $(TSAN_BUILD)/archer-check/walk \
	  --dir $(TSAN_BUILD)/archer-check | grep '^Archer detected OpenMP application with TSan' > /dev/null \
	  || { echo "the Archer tool $(ARCHER) did not start"; exit 1; }
	cd $(TSAN_BUILD) && { $(TSAN_ENV) ctest --output-on-failure -j $(JOBS); status=$$?; \
	  if [ -n "$$(ls -A $(TSAN_REPORTS))" ]; then cat $(TSAN_REPORTS)/*; status=1; fi; exit $$status; }

# Every fuzz target for FUZZ_SECONDS each, from the seed corpora that
# fuzz/seed_corpora.sh gathers; what they find new is kept in $(FUZZ_BUILD)/corpus.
FUZZ_BUILD ?= build-fuzz
FUZZ_SECONDS ?= 60
SHARED_DATA ?= ../shared/data
FUZZ_TARGETS = kelta_inp cif mol symmetry track_line neighbors couplings gemmi_cif
fuzz:
	@$(call configured,$(FUZZ_BUILD)) || CC=clang CXX=clang++ cmake -S . -B $(FUZZ_BUILD) \
	  -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKELTA_FUZZ=ON -DKELTA_BUILD_TESTS=OFF $(CMAKE_OPTIONS)
	cmake --build $(FUZZ_BUILD) -j $(JOBS)
	fuzz/seed_corpora.sh $(FUZZ_BUILD)/seeds $(SHARED_DATA)
	for t in $(FUZZ_TARGETS); do mkdir -p $(FUZZ_BUILD)/corpus/$$t; \
	  $(FUZZ_BUILD)/fuzz_$$t -max_total_time=$(FUZZ_SECONDS) -timeout=10 -close_fd_mask=3 -print_final_stats=1 \
	    $(FUZZ_BUILD)/corpus/$$t $(FUZZ_BUILD)/seeds/$$t || exit 1; done

# The demo: writes a crystal, generates its tracks, runs every analysis and draws
# the pictures (with gnuplot) in demo/run.
demo: all
	demo/run_demo.sh $(BUILD) demo/run

# The whole chain with quantum chemistry: the crystal, its pairs, couplings and
# lambda from psi4 (kelta_qc), the simulation and the mobility tensor, in
# demo/run_qc (about a quarter of an hour on two cores; run again, it redoes
# nothing finished). Not part of make test.
demo-qc: all
	demo/run_demo_qc.sh $(BUILD) demo/run_qc

bench: all
	cmake --build $(BUILD) -j $(JOBS) --target kelta_bench_mob kelta_bench_kmc
	$(BUILD)/kelta_bench_mob
	$(BUILD)/kelta_bench_kmc

# Executables to PREFIX/bin, their manual pages to PREFIX/share/man/man1, the
# README and the demo script to PREFIX/share/doc/kelta_mob.
install: all
	cmake --install $(BUILD) --prefix $(PREFIX)

clean:
	rm -rf $(BUILD) $(ASAN_BUILD) $(TSAN_BUILD) $(FUZZ_BUILD) demo/run demo/run_qc
