# The two commands of the README.
#   make test   installs what is missing, then builds and runs the whole suite
#               twice: optimised, and under AddressSanitizer + UBSan; and runs
#               every fuzz target for a few seconds.
#   make demo   builds and runs the demo on the bundled sample photo.
#   make tsan   builds and runs the suite under ThreadSanitizer.
# And the benchmarks:
#   make bench  builds the optimised benchmark program and runs it; options
#               for it go in BENCH_ARGS, e.g. BENCH_ARGS=--benchmark_filter=cq
# And the fuzz targets (clang's libFuzzer, build/fuzz; see fuzz/run.sh):
#   make fuzz SECONDS=N  runs each of the eight targets for N seconds (default
#                        60), one after another; fails if any finds a problem
#   make fuzz-smoke      the same for 3 seconds each (about 35 s in all)

.PHONY: test test-release test-asan tsan deps build demo bench compare install clean fuzz fuzz-smoke fuzz-build

deps:
	@bash scripts/install-deps.sh

build: deps
	cmake --preset release
	cmake --build --preset release

demo: deps
	cmake --preset release
	cmake --build --preset release --target qzimages_cli qzimages_python
	@bash scripts/link-python.sh build/release/python
	./build/release/cli/qzimages demo -o demo-out

# The Python module next to OpenCV, Pillow, scikit-image and NumPy; the table
# goes to bench/results/compare.json.
compare: deps
	@bash scripts/install-deps.sh --compare
	cmake --preset release
	cmake --build --preset release --target qzimages_python
	/usr/bin/python3 bench/compare.py $(COMPARE_ARGS)

# Installs the libraries, the program, the headers and the Python package
# under PREFIX (default /usr/local).
PREFIX ?= /usr/local
install: deps
	cmake --preset release
	cmake --build --preset release --target qzimages qzhost qzimages_cli qzimages_python
	cmake --install build/release --prefix $(PREFIX)
	-ldconfig

bench: deps
	cmake --preset release
	cmake --build --preset release --target qz_bench
	./build/release/bench/qzimages_bench $(BENCH_ARGS)

test-release: deps
	cmake --preset release
	cmake --build --preset release
	@bash scripts/link-python.sh build/release/python
	ctest --preset release

test-asan: deps
	cmake --preset asan
	cmake --build --preset asan
	ctest --preset asan

# The fuzz targets run briefly between the two suites, so that the last
# lines of the output are the sanitizer suite's summary.
test: test-release fuzz-smoke test-asan

# The suite under ThreadSanitizer, against a oneTBB built with it from
# Debian's source (once; see scripts/build-tsan-tbb.sh for why).
tsan: deps
	@bash scripts/build-tsan-tbb.sh build/tsan-tbb
	cmake --preset tsan
	cmake --build --preset tsan
	ctest --preset tsan

# Every target of the project instrumented for libFuzzer, with ASan and
# UBSan, in a separate clang build.
FUZZ_DIR := build/fuzz
SECONDS ?= 60
fuzz-build: deps
	cmake -S . -B $(FUZZ_DIR) -G Ninja -DCMAKE_CXX_COMPILER=clang++-14 -DCMAKE_BUILD_TYPE=RelWithDebInfo \
	  -DQZ_FUZZ=ON -DQZ_BUILD_TESTS=OFF -DQZ_BUILD_PYTHON=OFF -DQZ_BUILD_BENCH=OFF
	cmake --build $(FUZZ_DIR) -j2 --target fuzz_all

fuzz: fuzz-build
	bash fuzz/run.sh $(FUZZ_DIR) $(SECONDS)

fuzz-smoke: fuzz-build
	bash fuzz/run.sh $(FUZZ_DIR) 3

clean:
	rm -rf build
