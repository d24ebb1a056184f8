# The two commands of the README.
#   make test   installs what is missing, then builds and runs the whole suite
#               twice: optimised, and under AddressSanitizer + UBSan.
#   make demo   builds and runs the demo on the bundled sample photo.
#   make tsan   builds and runs the suite under ThreadSanitizer.
# And the benchmarks:
#   make bench  builds the optimised benchmark program and runs it; options
#               for it go in BENCH_ARGS, e.g. BENCH_ARGS=--benchmark_filter=cq

.PHONY: test test-release test-asan tsan deps build demo bench compare install clean

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

test: test-release test-asan

# The suite under ThreadSanitizer, against a oneTBB built with it from
# Debian's source (once; see scripts/build-tsan-tbb.sh for why).
tsan: deps
	@bash scripts/build-tsan-tbb.sh build/tsan-tbb
	cmake --preset tsan
	cmake --build --preset tsan
	ctest --preset tsan

clean:
	rm -rf build
