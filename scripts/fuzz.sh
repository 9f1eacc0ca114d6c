#!/usr/bin/env bash
# Builds a libFuzzer target under AddressSanitizer and UndefinedBehaviorSanitizer
# and runs it for a while.
#
#   scripts/fuzz.sh TARGET SECONDS [extra libFuzzer flags...]
#   scripts/fuzz.sh --list
#
# A target is a file tests/<subsystem>/fuzz/<Target>Fuzz.cpp defining
# LLVMFuzzerTestOneInput; TARGET is <Target> in any case ("uncompress" finds
# UncompressFuzz.cpp). Comment lines in the file say what it needs:
#   // fuzz-subsystems: core volume   library folders to build (default: its own)
#   // fuzz-libs: -lz                 extra link flags
# A target may seed its corpus: LLVMFuzzerInitialize gets the corpus folder in
# TEZ_FUZZ_SEED_DIR while the corpus is still empty.
#
# The library is built with clang into build-fuzz/<subsystems>, the target
# links against it; the corpus lives in build-fuzz/corpus-<target> and crash
# inputs land in build-fuzz/crashes-<target>. A saved corpus in
# tests/<subsystem>/fuzz/corpus/<Target>/ is read as well (new inputs are
# written to the build's corpus only). Exit status is libFuzzer's: 0 when the
# time ran out without a finding.
#
#   TEZ_FUZZ_OUT=DIR          put builds, corpora and crashes there instead
#   TEZ_FUZZ_LIBRARY_DIR=DIR  link against that build of the whole library
#                             (clang, the same sanitizers and
#                             -fsanitize=fuzzer-no-link) instead of building one
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
targets() { find "$root/tests" -path '*/fuzz/*Fuzz.cpp' | sed 's|.*/||; s|Fuzz\.cpp$||' | sort; }

if [ "${1:-}" = "--list" ]; then targets; exit 0; fi
if [ $# -lt 2 ]; then
  echo "usage: $0 TARGET SECONDS [libFuzzer flags...]   (targets: $(targets | tr '\n' ' '))" >&2
  exit 2
fi
target=$1 seconds=$2
shift 2

src=$(find "$root/tests" -path '*/fuzz/*' -iname "${target}Fuzz.cpp" | head -n 1)
if [ -z "$src" ]; then
  echo "no fuzz target '$target'; known: $(targets | tr '\n' ' ')" >&2
  exit 2
fi
name=$(basename "$src" Fuzz.cpp | tr '[:upper:]' '[:lower:]')

subsystems=$(sed -n 's|^// fuzz-subsystems: *||p' "$src" | head -n 1)
[ -n "$subsystems" ] || subsystems=$(basename "$(dirname "$(dirname "$src")")")
libs=$(sed -n 's|^// fuzz-libs: *||p' "$src" | head -n 1)

for tool in clang clang++; do
  command -v $tool >/dev/null || { echo "$tool missing: apt-get install -y clang libclang-rt-14-dev" >&2; exit 2; }
done

sanitize="-fsanitize=address,undefined -fno-sanitize-recover=undefined -fno-omit-frame-pointer -g -O1"
out=${TEZ_FUZZ_OUT:-$root/build-fuzz}
mkdir -p "$out"

if [ -n "${TEZ_FUZZ_LIBRARY_DIR:-}" ]; then
  build=$TEZ_FUZZ_LIBRARY_DIR
else
  build="$out/lib-$(echo "$subsystems" | tr ' ' '-')"
  cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=Debug \
    -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
    "-DCMAKE_C_FLAGS=$sanitize -fsanitize=fuzzer-no-link" \
    "-DCMAKE_CXX_FLAGS=$sanitize -fsanitize=fuzzer-no-link" \
    "-DCMAKE_SHARED_LINKER_FLAGS=-fsanitize=address,undefined" \
    "-DTEZ_SUBSYSTEMS=$(echo "$subsystems" | tr ' ' ';')" \
    -DTEZ_BUILD_TESTS=OFF -DTEZ_BUILD_BENCH=OFF >"$out/cmake-$name.log"
  cmake --build "$build" -j2 --target Tezcore >>"$out/cmake-$name.log"
fi

binary="$out/fuzz-$name"
# shellcheck disable=SC2086
clang++ -std=c++17 $sanitize -fsanitize=fuzzer -I"$root" -I"$build/generated" "$src" \
  -o "$binary" -L"$build" -lTezcore -Wl,-rpath,"$build" $libs

corpus="$out/corpus-$name" crashes="$out/crashes-$name"
mkdir -p "$corpus" "$crashes"
seedDir=""
[ -n "$(ls -A "$corpus")" ] || seedDir=$corpus
saved=$(dirname "$src")/corpus/$(basename "$src" Fuzz.cpp)
corpora=("$corpus")
[ -d "$saved" ] && corpora+=("$saved")

echo "fuzzing $name for $seconds s (corpus ${corpora[*]})"
TEZ_FUZZ_SEED_DIR=$seedDir \
ASAN_OPTIONS=${ASAN_OPTIONS:-abort_on_error=1} \
UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1} \
  "$binary" -max_total_time="$seconds" -rss_limit_mb=4096 -timeout=20 \
  -artifact_prefix="$crashes/" -print_final_stats=1 "$@" "${corpora[@]}"
