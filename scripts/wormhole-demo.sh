#!/usr/bin/env bash
# A short demonstration of the message transport with the wormhole tool: a listener in one
# process prints what writes from other processes store, in a private container that is
# removed afterwards. Each step waits for the listener's own output line, never for a fixed
# time, so the demonstration is as fast as the machine and never races it.
#
#   scripts/wormhole-demo.sh [BUILD_DIR]      default build
set -euo pipefail
cd "$(dirname "$0")/.."
case "${1:-}" in
  -h|--help) sed -n '2,7p' "$0" | sed 's/^# \{0,1\}//'; exit 0 ;;
esac
wormhole=${1:-build}/apps/wormhole/wormhole
[[ -x $wormhole ]] || { echo "wormhole-demo: $wormhole is not built" >&2; exit 1; }
root=$(mktemp -d)
listener=
cleanup() {
  if [[ -n $listener ]]; then
    kill -INT "$listener" 2>/dev/null || true
    wait "$listener" 2>/dev/null || true
  fi
  rm -rf "$root"
}
trap cleanup EXIT
export VEXO_CONTAINER_ROOT=$root

step() { printf '\n$ %s\n' "$*"; "$@"; }

# The next line the listener prints (its announcement on standard error, then one line per
# message), shown indented; gives up after a generous time so that a broken build cannot hang.
expect_listener() {
  local line
  if ! read -r -t 10 -u "$listener_output" line; then
    echo "wormhole-demo: the listener printed nothing within 10 s" >&2
    exit 1
  fi
  printf '  [listener] %s\n' "$line"
}

echo "== wormhole demonstration (container under $root)"
exec {listener_output}< <(exec "$wormhole" listen mixerStatus turntableStatus1 libraryItems 2>&1)
listener=$!
expect_listener   # "listening for ...": it is registered, so no post can be missed
step "$wormhole" write mixerStatus '{"volume": 0.8, "crossfaderPosition": 0.5, "syncActive": true}'
expect_listener
step "$wormhole" write turntableStatus1 '{"playing": true, "bpm": 128, "key": "8A", "currentDisplayTime": "1:02"}'
expect_listener
step "$wormhole" write libraryItems '{"sectionName": "Playlists", "rangeOfItems": "{0, 2}", "items": ["Warm-up", "Peak time"]}'
expect_listener
step "$wormhole" read turntableStatus1
step "$wormhole" clear mixerStatus
step "$wormhole" post mixerStatus
expect_listener
echo
echo "(the listener printed each message as it arrived; the last one is null because the"
echo " file was cleared before the notification)"
