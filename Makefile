# The two set-up commands: `make demo` and `make test`. Both install missing
# Debian packages (as root; otherwise they say which), configure and build.

JOBS ?= $(shell nproc 2>/dev/null || echo 2)
CMAKE_FLAGS ?=

.PHONY: all deps build build-asan build-tsan build-fuzz test test-plain test-asan test-tsan test-fuzz fuzz demo bench package clean

all: build

deps:
	@scripts/ensure-deps.sh

build: deps
	cmake -S . -B build $(CMAKE_FLAGS)
	cmake --build build -j $(JOBS)

# AddressSanitizer + UndefinedBehaviorSanitizer: the whole suite.
build-asan: deps
	cmake -S . -B build-asan -DAVRTEST_SANITIZE=address $(CMAKE_FLAGS)
	cmake --build build-asan -j $(JOBS)

# ThreadSanitizer: the threaded tests (board threads against the console thread).
build-tsan: deps
	cmake -S . -B build-tsan -DAVRTEST_SANITIZE=thread $(CMAKE_FLAGS)
	cmake --build build-tsan -j $(JOBS) --target avrtest_threaded_tests

test-plain: build
	cd build && ctest --output-on-failure -j $(JOBS)

test-asan: build-asan
	cd build-asan && ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 \
	  ctest --output-on-failure -j $(JOBS)

test-tsan: build-tsan
	cd build-tsan && TSAN_OPTIONS="halt_on_error=1 second_deadlock_stack=1" \
	  ctest --output-on-failure -j $(JOBS) -L threaded

# libFuzzer targets (tests/fuzz), built with clang, ASan and UBSan.
build-fuzz: deps
	cmake -S . -B build-fuzz -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
	  -DAVRTEST_SANITIZE=fuzzer -DBUILD_TESTING=OFF $(CMAKE_FLAGS)
	cmake --build build-fuzz -j $(JOBS) --target avrtest_fuzzers

# Each target replays its seed corpus, then fuzzes a few seconds.
test-fuzz: build-fuzz
	scripts/fuzz.sh 5

# A longer run; what the fuzzer finds is kept in build-fuzz/corpus for the next.
FUZZ_SECONDS ?= 60
fuzz: build-fuzz
	scripts/fuzz.sh $(FUZZ_SECONDS) keep

test: test-plain test-asan test-tsan test-fuzz
	@echo "All test suites passed (plain, ASan+UBSan, TSan, fuzzing)."

# The demo needs only the console and the emulators.
demo: deps
	cmake -S . -B build $(CMAKE_FLAGS)
	cmake --build build -j $(JOBS) --target avrtest boardsim docksim
	@scripts/demo.sh

# A Debian package of the four tools: apt install ./build/avrtest_*.deb
package: build
	cd build && cpack -G DEB

# Every build/bin/bench_* program in turn, then one table of the figures they
# leave in build/bench-table.txt. QUICK=1 runs the long ones shorter.
bench: build
	@rm -f build/bench-table.txt; failed=""; \
	for b in build/bin/bench_*; do \
	  [ -x "$$b" ] || continue; echo; \
	  AVRTEST_BENCH_TABLE="$(CURDIR)/build/bench-table.txt" AVRTEST_BENCH_QUICK="$(QUICK)" "$$b" || failed="$$failed $${b##*/}"; \
	done; echo; scripts/bench-table.sh build/bench-table.txt; \
	if [ -n "$$failed" ]; then echo "Failed:$$failed"; exit 1; fi

clean:
	rm -rf build build-asan build-tsan build-fuzz
