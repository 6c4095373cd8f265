#!/usr/bin/env bash
# Records a short mix made from the watch face, as a person would make it, and measures it:
# vexo-phone (no sound device needed: it plays to a null output and records) and vexo-watch
# on a fresh demonstration library; then, through the face's HTTP interface, a song is loaded
# on each deck, deck 1 plays, deck 2 comes in, sync goes on, the crossfader moves to deck 2,
# deck 2 loops, its effect and its low-pass filter go on. Prints what happened when, and,
# with sox installed, the level and rough frequency of each stretch of the recording.
#
#   scripts/record-mix.sh [OUTPUT.wav|.flac] [BUILD_DIR]     (default /tmp/vexo-mix.wav, build)
set -euo pipefail
cd "$(dirname "$0")/.."
output=${1:-/tmp/vexo-mix.wav}
build=${2:-build}
[[ $output = /* ]] || output=$PWD/$output
for program in vexo-library vexo-phone vexo-watch; do
  [[ -x $build/apps/$program/$program ]] || { echo "record-mix: $build/apps/$program/$program is not built" >&2; exit 1; }
done
command -v python3 >/dev/null || { echo "record-mix: needs python3" >&2; exit 1; }

work=$(mktemp -d "${TMPDIR:-/tmp}/vexo-mix.XXXXXX")
export VEXO_CONTAINER_ROOT=$work/root XDG_DATA_HOME=$work/data XDG_CONFIG_HOME=$work/config
mkdir -p "$VEXO_CONTAINER_ROOT" "$XDG_DATA_HOME"
pids=()
cleanup() {
  for pid in "${pids[@]}"; do kill -INT "$pid" 2>/dev/null || true; done
  for pid in "${pids[@]}"; do wait "$pid" 2>/dev/null || true; done
  rm -rf "$work"
}
trap cleanup EXIT

echo "== making the demonstration library"
"$build/apps/vexo-library/vexo-library" demo "$XDG_DATA_HOME/demo" >/dev/null
"$build/apps/vexo-phone/vexo-phone" --audio-device none --record "$output" 2>"$work/phone.err" &
pids+=($!)
"$build/apps/vexo-watch/vexo-watch" --port 0 >"$work/watch.out" 2>&1 &
pids+=($!)
address=""
for _ in $(seq 100); do
  address=$(sed -n 's/^Watch face: //p' "$work/watch.out" | head -n 1)
  [[ -n $address ]] && break
  sleep 0.1
done
[[ -n $address ]] || { echo "record-mix: vexo-watch did not start" >&2; cat "$work/watch.out" >&2; exit 1; }

python3 - "$address" <<'PY'
import json, sys, time, urllib.request
base = sys.argv[1].rstrip('/')
start = time.time()

def snapshot():
    return json.load(urllib.request.urlopen(base + '/api/snapshot'))

def post(event):
    request = urllib.request.Request(base + '/api/events', data=json.dumps(event).encode(), method='POST')
    urllib.request.urlopen(request)
    time.sleep(0.4)

def objects(node, found):
    if isinstance(node, dict):
        if 'id' in node and 'kind' in node:
            found.append(node)
        for value in node.values():
            objects(value, found)
    elif isinstance(node, list):
        for value in node:
            objects(value, found)
    return found

def on_page(page, outlet):
    post({'type': 'swipe', 'page': page})
    return next(o['id'] for o in objects(snapshot()['pages'][page], []) if o.get('outlet') == outlet)

def tap(page, outlet, what):
    post({'type': 'tap', 'object': on_page(page, outlet)})
    print(f'{time.time() - start:6.1f} s  {what}', flush=True)

def pick(controller, row):
    for _ in range(50):
        modals = snapshot()['modals']
        if modals and modals[-1]['controller'] == controller:
            table = next(o for o in objects(modals[-1], []) if o['kind'] == 'table')
            if table.get('rows'):
                post({'type': 'selectRow', 'object': table['id'], 'row': row})
                return
        time.sleep(0.2)
    sys.exit(f'record-mix: the {controller} screen showed no rows')

def load(page, playlist, song):
    tap(page, 'artworkButton', f'deck {page // 2 + 1}: the library')
    pick('library', playlist)
    pick('itunesPlaylist', song)
    time.sleep(0.6)
    print(f'{time.time() - start:6.1f} s  deck {page // 2 + 1}: song {song + 1} of playlist {playlist + 1} loaded')

load(0, 1, 0)
load(2, 1, 2)
tap(1, 'crossfaderLeftButton', 'crossfader left')
tap(1, 'crossfaderLeftButton', 'crossfader all the way left: deck 1 alone')
tap(0, 'playButton', 'deck 1 plays'); time.sleep(4)
tap(2, 'playButton', 'deck 2 plays, not heard yet'); time.sleep(2)
tap(1, 'syncButton', 'sync on: deck 2 follows deck 1'); time.sleep(3)
for step in range(4):
    tap(1, 'crossfaderRightButton', 'crossfader to the right')
time.sleep(4)
tap(2, 'autoLoopButton', 'deck 2 loops 4 beats'); time.sleep(4)
tap(2, 'fxButton', 'deck 2: Echo on'); time.sleep(4)
tap(2, 'fxLowPassButton', 'deck 2: low-pass on'); time.sleep(4)
PY
kill -INT "${pids[0]}"; wait "${pids[0]}" || true
cat "$work/phone.err"
if command -v sox >/dev/null; then
  echo "== $output, one second at a time: RMS level and rough frequency"
  length=$(sox --i -D "$output" | cut -d. -f1)
  for ((second = 0; second < length; second++)); do
    sox "$output" -n trim "$second" 1 stat 2>&1 |
      awk -v s="$second" '/RMS     amplitude/ {r=$NF} /Rough   frequency/ {f=$NF} END {if (r + 0 == 0) printf "%4d s  silence\n", s; else printf "%4d s  rms %.4f  %6d Hz\n", s, r, f}'
  done
fi
echo "recorded: $output"
