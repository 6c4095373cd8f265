#!/usr/bin/env bash
# Builds the libFuzzer targets with clang (address + undefined sanitizers) and runs one of
# them, seeded with what fits it: the interop archives beside the checkout (when that folder
# exists), the application's layout, and the seeds in fuzz/corpus/<target>/. The corpus
# grows in fuzz-corpus/<target>/ (not tracked); crashes land in fuzz-crashes/<target>/.
#
#   scripts/fuzz.sh [TARGET] [SECONDS]     default keyed_unarchiver, 300 seconds
#   scripts/fuzz.sh SECONDS                the keyed-archive reader, as before
#   scripts/fuzz.sh --list                 the targets
#
# Targets: keyed_unarchiver, xml_property_list, layout_loader, host_event,
# parent_application_receiver, phone_engine. Environment: VEXO_FUZZ_BUILD (build tree, default
# build-fuzz), VEXO_SHARED_DIR (folder holding interop/, default ../shared), VEXO_FUZZ_JOBS
# (parallel build jobs, default 2).
set -euo pipefail
cd "$(dirname "$0")/.."

targets=(keyed_unarchiver xml_property_list layout_loader host_event parent_application_receiver phone_engine)
usage() { sed -n '2,15p' "$0" | sed 's/^# \{0,1\}//'; }

target=keyed_unarchiver
seconds=300
case "${1:-}" in
  -h|--help) usage; exit 0 ;;
  --list) printf '%s\n' "${targets[@]}"; exit 0 ;;
  '') ;;
  *[!0-9]*) target=$1; seconds=${2:-300} ;;
  *) seconds=$1 ;;
esac
if [[ ! " ${targets[*]} " == *" $target "* ]]; then
  echo "fuzz.sh: unknown target '$target' (try --list)" >&2
  exit 2
fi
if [[ $seconds == *[!0-9]* || -z $seconds ]]; then
  echo "fuzz.sh: SECONDS must be a whole number, not '$seconds'" >&2
  exit 2
fi

build=${VEXO_FUZZ_BUILD:-build-fuzz}
if [[ ! -f $build/build.ninja ]]; then
  CC=clang CXX=clang++ cmake -S . -B "$build" -G Ninja -DVEXO_BUILD_FUZZERS=ON \
    -DVEXO_SANITIZE=ON -DVEXO_BUILD_BENCHMARKS=OFF -DCMAKE_BUILD_TYPE=RelWithDebInfo
fi
cmake --build "$build" --target "${target}_fuzzer" -j "${VEXO_FUZZ_JOBS:-2}"

corpus=fuzz-corpus/$target
crashes=fuzz-crashes/$target
mkdir -p "$corpus" "$crashes"
interop=${VEXO_SHARED_DIR:-../shared}/interop/keyed-archives
seed_interop() {
  if [[ -d $interop ]]; then
    cp -n "$interop"/*"$1" "$corpus"/ 2>/dev/null || true
  else
    echo "fuzz.sh: no interop archives at $interop; seeding without them (set VEXO_SHARED_DIR)"
  fi
}
case $target in
  keyed_unarchiver|parent_application_receiver|phone_engine) seed_interop .plist; seed_interop .bin ;;
  xml_property_list) seed_interop .plist ;;
  layout_loader) cp -n resources/Interface.json "$corpus"/ ;;
esac
if [[ -d fuzz/corpus/$target ]]; then
  cp -n fuzz/corpus/"$target"/* "$corpus"/ 2>/dev/null || true
fi

# Targets of the programs' layers are built in folders of their own under fuzz/.
binary=$build/fuzz/${target}_fuzzer
[[ $target == phone_engine ]] && binary=$build/fuzz/phone/${target}_fuzzer
exec "$binary" "$corpus" -max_total_time="$seconds" -max_len=65536 \
  -timeout=10 -rss_limit_mb=2048 -print_final_stats=1 -artifact_prefix="$crashes/"
