#!/usr/bin/env bash
# Shared set-up of ./run and ./test: installs the Debian packages that are missing
# (apt-get runs only when something is missing, so a second run is quick), then
# configures and builds one build tree.
#
#   scripts/setup.sh BUILD_DIR [extra cmake -D options...]
set -euo pipefail

packages=(
  cmake ninja-build g++ clang clang-format pkg-config python3
  googletest libgtest-dev libgmock-dev libbenchmark-dev
  libplist-dev libasio-dev libboost-dev libcli11-dev nlohmann-json3-dev
  libsqlite3-dev libtag1-dev libcairo2-dev libjpeg-dev libpng-dev libicu-dev
  libavformat-dev libavcodec-dev libavutil-dev libswresample-dev portaudio19-dev librubberband-dev
  libqm-dsp-dev libebur128-dev
  libssl-dev libqrencode-dev
  libsystemd-dev help2man dpkg-dev
)

missing=()
for package in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$package")
  fi
done

if ((${#missing[@]})); then
  echo "== installing: ${missing[*]}"
  sudo=()
  if [[ $(id -u) -ne 0 ]]; then
    command -v sudo >/dev/null || { echo "need root or sudo to install: ${missing[*]}" >&2; exit 1; }
    sudo=(sudo)
  fi
  "${sudo[@]}" apt-get update -qq
  DEBIAN_FRONTEND=noninteractive "${sudo[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi

build_dir=$1
shift
if [[ ! -f "$build_dir/build.ninja" ]]; then
  launcher=()
  # ccache is optional: when the machine has it, rebuilds of other trees reuse its objects.
  if command -v ccache >/dev/null; then launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache -DCMAKE_C_COMPILER_LAUNCHER=ccache); fi
  cmake -S . -B "$build_dir" -G Ninja "${launcher[@]}" "$@"
fi
cmake --build "$build_dir"
