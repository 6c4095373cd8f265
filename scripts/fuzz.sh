#!/usr/bin/env bash
# Builds the libFuzzer targets with clang (address + undefined sanitizers) and runs the keyed
# archive fuzzer, seeded with the interop archives and our own archives.
#
#   scripts/fuzz.sh [SECONDS]      default 300
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-300}
build=build-fuzz
if [[ ! -f $build/build.ninja ]]; then
  CC=clang CXX=clang++ cmake -S . -B $build -G Ninja -DVEXO_BUILD_FUZZERS=ON \
    -DVEXO_SANITIZE=ON -DVEXO_BUILD_BENCHMARKS=OFF -DCMAKE_BUILD_TYPE=RelWithDebInfo
fi
cmake --build $build --target keyed_unarchiver_fuzzer
corpus=fuzz-corpus/keyed-archives
mkdir -p "$corpus"
cp -n ../shared/interop/keyed-archives/*.plist ../shared/interop/keyed-archives/*.bin "$corpus"/ 2>/dev/null || true
$build/fuzz/keyed_unarchiver_fuzzer "$corpus" -max_total_time="$seconds" -max_len=65536 \
  -timeout=10 -rss_limit_mb=2048 -print_final_stats=1
