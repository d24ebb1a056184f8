#!/usr/bin/env bash
# Runs fuzz targets one after another, each for the same time, on a working
# copy of the committed seed corpus, and reports the findings.
#
#   fuzz/run.sh BUILD_DIR SECONDS [TARGET ...]     (default: all eight)
#
# BUILD_DIR is a QZ_FUZZ build (make fuzz configures build/fuzz).  Each
# target's corpus grows in BUILD_DIR/corpus/<target>, seeded from
# fuzz/corpus/<target> (the committed seeds are never written to); crash,
# leak, timeout and out-of-memory inputs land in BUILD_DIR/findings/<target>/
# and the log in BUILD_DIR/logs/<target>.log.  Exits 1 if any target
# reported a finding.
#
# One fuzzer runs at a time, as one job with one worker (-jobs=1
# -workers=1: libFuzzer runs the session in a child process and keeps its
# output in fuzz-0.log, which is appended to the target's log).
set -uo pipefail

here=$(cd "$(dirname "$0")" && pwd)
usage="usage: fuzz/run.sh BUILD_DIR SECONDS [TARGET ...]"
build=$(cd "${1:?$usage}" && pwd) || exit 2
seconds=${2:?$usage}
shift 2
targets=("$@")
((${#targets[@]})) || targets=(cq grayto8 imresize ind2rgb8 rgb2gray rgb2hsv npy image)

# Per input: at most 20 s, 2 GB resident, and no single allocation above
# 512 MB (a larger one from an input of a few kilobytes is a finding).
limits=(-timeout=20 -rss_limit_mb=2048 -malloc_limit_mb=512)

failed=()
for t in "${targets[@]}"; do
  exe=$build/fuzz/fuzz_$t
  [[ -x $exe ]] || { echo "fuzz: $exe is missing (build the fuzz_all target)" >&2; exit 2; }
  corpus=$build/corpus/$t findings=$build/findings/$t log=$build/logs/$t.log work=$build/logs/$t.job
  mkdir -p "$corpus" "$findings" "$work"
  cp -n "$here/corpus/$t/"* "$corpus/" 2>/dev/null || true
  dict=()
  case $t in
    npy) dict=(-dict="$here/dict/npy.dict") ;;
    image) dict=(-dict="$here/dict/image.dict") ;;
  esac
  stamp=$work/start
  touch "$stamp"
  rm -f "$work/fuzz-0.log"
  echo "fuzz: $t for ${seconds}s (log $log)"
  (cd "$work" && "$exe" "$corpus" "${limits[@]}" "${dict[@]}" -max_total_time="$seconds" -print_final_stats=1 \
    -jobs=1 -workers=1 -artifact_prefix="$findings/") >"$log" 2>&1
  status=$?
  [[ -f $work/fuzz-0.log ]] && cat "$work/fuzz-0.log" >>"$log"
  runs=$(grep -o 'stat::number_of_executed_units: *[0-9]*' "$log" | grep -o '[0-9]*$' | tail -1)
  fresh=$(find "$findings" -type f -newer "$stamp" | wc -l)
  if ((status != 0 || fresh != 0)); then
    echo "fuzz: $t: FINDING after ${runs:-?} runs (exit $status); inputs in $findings/" >&2
    grep -E '^(==[0-9]+==ERROR|SUMMARY|qzfuzz:)' "$log" | head -5 >&2
    failed+=("$t")
  else
    echo "fuzz: $t: ${runs:-?} runs, no finding"
  fi
done

if ((${#failed[@]})); then
  echo "fuzz: findings in: ${failed[*]}" >&2
  exit 1
fi
echo "fuzz: no findings"
