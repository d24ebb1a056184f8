#!/usr/bin/env bash
# Builds oneTBB with ThreadSanitizer for the tsan preset, from the Debian
# source of exactly the version that is installed, into DEST (default
# build/tsan-tbb).  Does nothing when DEST already holds that version.
#
# Why not Debian's libtbb: ThreadSanitizer sees only the synchronisation of
# instrumented code.  In the uninstrumented libtbb the hand-off of a task to
# a worker, the join at the end of a parallel_for and the reuse of task
# objects by TBB's small-object pool are invisible to it, so every parallel
# kernel shows up as racing: hundreds of reports per suite, with our own
# kernel bodies and TBB's inlined templates on both sides.  No suppression
# can silence those without also silencing real races in the kernels.  With
# an instrumented libtbb there are none.
#
# The scalable allocator (libtbbmalloc) is left out on purpose: without it
# libtbb falls back to malloc, which the sanitizer intercepts, instead of
# recycling memory behind the sanitizer's back.
set -euo pipefail

dest=${1:-build/tsan-tbb}
mkdir -p "$dest"
dest=$(cd "$dest" && pwd)

src_pkg=$(dpkg-query -W -f='${source:Package}' libtbb-dev)
version=$(dpkg-query -W -f='${source:Version}' libtbb-dev)
if [[ -f "$dest/.debian-version" && "$(cat "$dest/.debian-version")" == "$version" &&
      -f "$dest/lib/cmake/TBB/TBBConfig.cmake" ]]; then
  exit 0
fi
echo "build-tsan-tbb: building $src_pkg $version with ThreadSanitizer into $dest"

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# A private list of deb-src entries for the archives the system already
# uses, so the system's own apt configuration is left untouched.
mkdir -p "$work/apt/parts" "$work/apt/lists/partial"
: > "$work/apt/none.list"
shopt -s nullglob
for f in /etc/apt/sources.list.d/*.sources; do
  sed -E 's/^Types:.*/Types: deb-src/' "$f" > "$work/apt/parts/$(basename "$f")"
done
for f in /etc/apt/sources.list /etc/apt/sources.list.d/*.list; do
  if [[ -f "$f" ]]; then sed -nE 's/^deb([[:space:]])/deb-src\1/p' "$f" > "$work/apt/parts/$(basename "$f")"; fi
done
shopt -u nullglob
apt_opts=(-o "Dir::Etc::SourceList=$work/apt/none.list" -o "Dir::Etc::SourceParts=$work/apt/parts"
          -o "Dir::State::Lists=$work/apt/lists" -o APT::Sandbox::User=root)
apt-get "${apt_opts[@]}" -qq update
(cd "$work" && apt-get "${apt_opts[@]}" -qq source --download-only "$src_pkg=$version")
# Unpacks the upstream source and applies Debian's patches.
dpkg-source -x "$work"/*.dsc "$work/src" > /dev/null

cmake -S "$work/src" -B "$work/build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DTBB_SANITIZE=thread -DTBB_TEST=OFF -DTBB_EXAMPLES=OFF -DTBB_STRICT=OFF \
  -DTBBMALLOC_BUILD=OFF -DTBBMALLOC_PROXY_BUILD=OFF -DTBB_DISABLE_HWLOC_AUTOMATIC_SEARCH=ON \
  -DCMAKE_INSTALL_PREFIX="$dest" -DCMAKE_INSTALL_LIBDIR=lib > /dev/null
cmake --build "$work/build" -j2
rm -rf "$dest/include" "$dest/lib"
cmake --install "$work/build" > /dev/null
echo "$version" > "$dest/.debian-version"
