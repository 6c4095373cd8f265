#!/usr/bin/env bash
# Builds the libFuzzer targets with clang (address + undefined sanitizers) and runs one of
# them, or every one in turn, seeded with what fits it: the interop archives beside the
# checkout (when that folder exists), the application's layout, and the seeds kept in the
# tree in fuzz/corpus/<target>/. The corpus grows in fuzz-corpus/<target>/ (not tracked);
# crashes land in fuzz-crashes/<target>/.
#
#   scripts/fuzz.sh [TARGET] [SECONDS]     default keyed_unarchiver, 300 seconds
#   scripts/fuzz.sh all [SECONDS]          every target for SECONDS each (default 60), then
#                                          executions and findings per target
#   scripts/fuzz.sh SECONDS                the keyed-archive reader, as before
#   scripts/fuzz.sh --list                 the targets
#
# Targets: keyed_unarchiver, xml_property_list, layout_loader, host_event,
# parent_application_receiver, phone_engine, image_decoder, wormhole. Environment:
# VEXO_FUZZ_BUILD (build tree, default build-fuzz), VEXO_SHARED_DIR (folder holding interop/,
# default ../shared), VEXO_FUZZ_JOBS (parallel build jobs, default 2). Exit status of "all": 1
# when any target found something.
set -euo pipefail
cd "$(dirname "$0")/.."

targets=(keyed_unarchiver xml_property_list layout_loader host_event parent_application_receiver phone_engine
  image_decoder wormhole)
usage() { sed -n '2,18p' "$0" | sed 's/^# \{0,1\}//'; }

target=keyed_unarchiver
seconds=300
case "${1:-}" in
  -h|--help) usage; exit 0 ;;
  --list) printf '%s\n' "${targets[@]}"; exit 0 ;;
  '') ;;
  all) target=all; seconds=${2:-60} ;;
  *[!0-9]*) target=$1; seconds=${2:-300} ;;
  *) seconds=$1 ;;
esac
if [[ $target != all && ! " ${targets[*]} " == *" $target "* ]]; then
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
if [[ $target == all ]]; then
  cmake --build "$build" --target "${targets[@]/%/_fuzzer}" -j "${VEXO_FUZZ_JOBS:-2}"
else
  cmake --build "$build" --target "${target}_fuzzer" -j "${VEXO_FUZZ_JOBS:-2}"
fi

interop=${VEXO_SHARED_DIR:-../shared}/interop/keyed-archives

# Fills fuzz-corpus/<target>/ with the seeds that fit the target.
seed() {
  local name=$1 corpus=fuzz-corpus/$1
  mkdir -p "$corpus" "fuzz-crashes/$name"
  seed_interop() {
    if [[ -d $interop ]]; then
      cp -n "$interop"/*"$1" "$corpus"/ 2>/dev/null || true
    else
      echo "fuzz.sh: no interop archives at $interop; seeding without them (set VEXO_SHARED_DIR)"
    fi
  }
  case $name in
    keyed_unarchiver|parent_application_receiver|phone_engine) seed_interop .plist; seed_interop .bin ;;
    xml_property_list) seed_interop .plist ;;
    layout_loader) cp -n resources/Interface.json "$corpus"/ ;;
  esac
  if [[ -d fuzz/corpus/$name ]]; then
    cp -n fuzz/corpus/"$name"/* "$corpus"/ 2>/dev/null || true
  fi
}

# Targets of the programs' layers are built in folders of their own under fuzz/.
binary_of() {
  if [[ $1 == phone_engine ]]; then echo "$build/fuzz/phone/$1_fuzzer"; else echo "$build/fuzz/$1_fuzzer"; fi
}

fuzz_arguments() {
  echo "fuzz-corpus/$1" -max_total_time="$2" -max_len=65536 -timeout=10 -rss_limit_mb=2048 \
    -print_final_stats=1 -artifact_prefix="fuzz-crashes/$1/"
}

if [[ $target != all ]]; then
  seed "$target"
  # shellcheck disable=SC2046
  exec "$(binary_of "$target")" $(fuzz_arguments "$target" "$seconds")
fi

# Every target in turn; a finding stops only its own target.
mkdir -p fuzz-logs
summary=()
found_any=0
for name in "${targets[@]}"; do
  seed "$name"
  before=$(find "fuzz-crashes/$name" -type f | wc -l)
  echo "fuzz.sh: $name for $seconds s (log in fuzz-logs/$name.log)"
  # shellcheck disable=SC2046
  "$(binary_of "$name")" $(fuzz_arguments "$name" "$seconds") >"fuzz-logs/$name.log" 2>&1 || true
  executions=$(sed -n 's/^stat::number_of_executed_units: *//p' "fuzz-logs/$name.log" | tail -1)
  after=$(find "fuzz-crashes/$name" -type f | wc -l)
  findings=$((after - before))
  ((findings > 0)) && found_any=1
  summary+=("$(printf '%-28s %12s executions  %3d findings  corpus %5d' "$name" "${executions:-?}" "$findings" \
    "$(find "fuzz-corpus/$name" -type f | wc -l)")")
done
echo
echo "fuzz.sh: $seconds s per target"
printf '%s\n' "${summary[@]}"
if ((found_any)); then
  echo "fuzz.sh: findings are in fuzz-crashes/<target>/; replay one with $build/fuzz/<target>_fuzzer FILE"
fi
exit "$found_any"
