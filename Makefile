# The two commands of the README.
#   make test   installs what is missing, then builds and runs the whole suite
#               twice: optimised, and under AddressSanitizer + UBSan.
#   make demo   builds and runs the demo on the bundled sample photo.

.PHONY: test test-release test-asan deps build demo clean

deps:
	@bash scripts/install-deps.sh

build: deps
	cmake --preset release
	cmake --build --preset release

demo: deps
	cmake --preset release
	cmake --build --preset release --target qzimages_cli
	./build/release/cli/qzimages demo -o demo-out

test-release: deps
	cmake --preset release
	cmake --build --preset release
	ctest --preset release

test-asan: deps
	cmake --preset asan
	cmake --build --preset asan
	ctest --preset asan

test: test-release test-asan

clean:
	rm -rf build
