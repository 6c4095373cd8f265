#!/usr/bin/env bash
# A short demonstration of the message transport with the wormhole tool: a listener in one
# process prints what writes from other processes store, in a private container that is
# removed afterwards.
set -euo pipefail
cd "$(dirname "$0")/.."
wormhole=build/apps/wormhole/wormhole
root=$(mktemp -d)
listener=
cleanup() {
  [[ -n $listener ]] && kill -INT "$listener" 2>/dev/null && wait "$listener" 2>/dev/null || true
  rm -rf "$root"
}
trap cleanup EXIT
export VEXO_CONTAINER_ROOT=$root

step() { printf '\n$ %s\n' "$*"; "$@"; }

echo "== wormhole demonstration (container under $root)"
"$wormhole" listen mixerStatus turntableStatus1 libraryItems &
listener=$!
sleep 0.3
step "$wormhole" write mixerStatus '{"volume": 0.8, "crossfaderPosition": 0.5, "syncActive": true}'
step "$wormhole" write turntableStatus1 '{"playing": true, "bpm": 128, "key": "8A", "currentDisplayTime": "1:02"}'
step "$wormhole" write libraryItems '{"sectionName": "Playlists", "rangeOfItems": "{0, 2}", "items": ["Warm-up", "Peak time"]}'
sleep 0.3
step "$wormhole" read turntableStatus1
step "$wormhole" clear mixerStatus
step "$wormhole" post mixerStatus
sleep 0.3
echo
echo "(the listener above printed each message as it arrived; the last one is null because the"
echo " file was cleared before the notification)"
