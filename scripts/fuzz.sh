#!/usr/bin/env bash
# Builds the libFuzzer targets (the fuzz preset) and runs each for as long as asked:
#   scripts/fuzz.sh [SECONDS-PER-TARGET] [TARGET...]     (default 60 seconds, every target)
# New inputs collect in build/fuzz/tests/fuzz/scratch/<target>/; a crash leaves its input as
# build/fuzz/tests/fuzz/<target>-crash-*. Keep such an input in tests/fuzz/corpus/<target>/
# once the fault is fixed. Every target runs; the script fails at the end if any of them did.
set -euo pipefail
cd "$(dirname "$0")/.."

seconds=${1:-60}
[ $# -gt 0 ] && shift
targets=("$@")
[ ${#targets[@]} -gt 0 ] ||
  targets=(JsonFuzz ConfigFuzz TracksFuzz ThaiFuzz ReplyFuzz SimParserFuzz IfdAnswerFuzz)

scripts/install-deps.sh clang libclang-rt-14-dev
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz

out=build/fuzz/tests/fuzz
export ASAN_OPTIONS=halt_on_error=1:abort_on_error=1 UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1
# Every target runs even after one has crashed: a crash in one says nothing about the others.
failed=()
for target in "${targets[@]}"; do
  echo "== $target for ${seconds}s"
  mkdir -p "$out/scratch/$target"
  dict=()
  [ -f "tests/fuzz/$target.dict" ] && dict=("-dict=tests/fuzz/$target.dict")
  if "$out/$target" -max_total_time="$seconds" -artifact_prefix="$out/$target-" "${dict[@]}" \
      "$out/scratch/$target" "tests/fuzz/corpus/$target"; then
    echo "== $target: passed"
  else
    echo "== $target: FAILED (exit $?)"
    failed+=("$target")
  fi
done
if [ ${#failed[@]} -gt 0 ]; then
  echo "fuzz: ${#failed[@]} of ${#targets[@]} targets failed: ${failed[*]}" >&2
  exit 1
fi
echo "fuzz: all ${#targets[@]} targets passed"
