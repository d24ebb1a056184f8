#!/usr/bin/env bash
# Installs the Debian packages the build and the tests need, and only those
# that are missing, so that a fresh Debian 12 machine needs nothing by hand.
set -euo pipefail

packages=(
  cmake ninja-build g++ binutils   # build toolchain; nm reads the export table
  libtbb-dev                       # oneTBB: the parallel loops of the kernels
  libhwy-dev                       # Highway: the vector kernels, dispatched by instruction set at run time
  libgtest-dev libgmock-dev        # GoogleTest: the unit suite
  libspng-dev                      # PNG reading and writing in the command-line host
  libjpeg62-turbo-dev              # JPEG reading in the command-line host
  libtiff-dev                      # TIFF reading and writing in the command-line host
  libcli11-dev                     # command-line parsing
  pkg-config
  python3-pytest python3-numpy python3-pil   # end-to-end tests of the command-line host
  python3-png python3-tifffile     # end-to-end tests: writing PNG and TIFF files of every layout the readers take
  python3-dev python3-pybind11     # the Python module (pybind11 and the interpreter's headers)
  python3-skbuild python3-setuptools python3-wheel python3-pip python3-venv
                                   # pip install . (scikit-build drives the CMake build) and its test
  python3-distributed python3-tqdm # the dask.distributed batch example and its progress bar
  libbenchmark-dev                 # Google Benchmark: bench/
  clang libfuzzer-14-dev           # make fuzz: clang 14 and libFuzzer.a for fuzz/
  libclang-rt-14-dev               # clang's sanitizer runtimes and fuzzer/FuzzedDataProvider.h (the fuzz build)
  dpkg-dev                         # dpkg-source: unpacks oneTBB's source for the ThreadSanitizer build (make tsan)
)

# With --compare: the other tools that bench/compare.py measures us against.
if [[ "${1:-}" == "--compare" ]]; then
  packages+=(python3-opencv python3-skimage python3-matplotlib libvips42)
fi

missing=()
for p in "${packages[@]}"; do
  status=$(dpkg-query -W -f='${Status}' "$p" 2>/dev/null || true)
  [[ "$status" == "install ok installed" ]] || missing+=("$p")
done

if ((${#missing[@]})); then
  echo "install-deps: installing ${missing[*]}"
  sudo=""
  [[ $(id -u) -eq 0 ]] || sudo="sudo"
  export DEBIAN_FRONTEND=noninteractive
  $sudo apt-get update -qq
  $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi
