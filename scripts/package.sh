#!/usr/bin/env bash
# Builds the Debian package vexo_<version>_<arch>.deb with CPack (dependencies computed from
# the binaries by dpkg-shlibdeps), says its size and dependencies, and checks it with lintian
# when lintian is installed: an error or a warning fails.
#
#   scripts/package.sh [BUILD_DIR]    default build-release; the package is written there
set -euo pipefail
cd "$(dirname "$0")/.."
build_dir=${1:-build-release}

scripts/setup.sh "$build_dir" -DCMAKE_BUILD_TYPE=Release
rm -f "$build_dir"/vexo_*.deb
(cd "$build_dir" && cpack -G DEB)
package=$(ls "$build_dir"/vexo_*.deb)

echo "== $package: $(stat -c %s "$package") bytes, installed size $(dpkg-deb --field "$package" Installed-Size) KiB"
echo "Depends: $(dpkg-deb --field "$package" Depends)"
if command -v lintian >/dev/null; then
  echo "== lintian"
  lintian --fail-on error,warning "$package"
else
  echo "lintian is not installed; the package is not checked"
fi
