#!/bin/bash
# paste_bench.sh -- the paste road of the running app on a private Xvfb, and CopyQ beside it.
#
#   hotkey    N presses of Super+Ctrl+1 (XTest, bench/paste_latency): from the press to the paste
#             keystroke's arrival in our test window (tests/tools/paste_target). The paste waits
#             50 ms for the target to come to the front, so the goal is 50 ms plus under 10 ms.
#   serve     a 20 MB PNG on the clipboard, read whole by `xclip -o` REPS times: served by
#             `tamarind copy` (the same writer the app pastes with) and by CopyQ (`copyq copy`),
#             one after the other on the same display.
#
# Needs Xvfb, xclip, python3 and a built tree (scripts/build); copyq for its half (skipped
# without it). Usage: N=20 REPS=5 bench/paste_bench.sh
set -u
root=$(cd "$(dirname "$0")/.." && pwd)
build=${TAMARIND_BUILD_DIR:-$root/build}
TAMARIND=${TAMARIND:-$build/apps/tamarind/tamarind}
N=${N:-20}
REPS=${REPS:-5}
work=$(mktemp -d "${TMPDIR:-/tmp}/paste-bench.XXXXXX")
display=":$((170 + RANDOM % 50))"
cleanup() {
    for pid in ${app:-} ${target:-} ${copyq:-}; do kill "$pid" 2>/dev/null && wait "$pid" 2>/dev/null; done
    pkill -f "tamarind copy" 2>/dev/null
    [ -n "${xvfb:-}" ] && kill "$xvfb" 2>/dev/null
    rm -rf "$work"
}
trap cleanup EXIT
stats() { sort -g | awk '{a[NR]=$1} END{m=(NR%2)?a[(NR+1)/2]:(a[NR/2]+a[NR/2+1])/2; printf "median=%g min=%g max=%g n=%d", m, a[1], a[NR], NR}'; }
now_ns() { date +%s%N; }

Xvfb "$display" -nolisten tcp -screen 0 1920x1080x24 >/dev/null 2>&1 &
xvfb=$!
export DISPLAY=$display TAMARIND_HOME=$work/home
for _ in $(seq 1 100); do [ -S "/tmp/.X11-unix/X${display#:}" ] && break; sleep 0.05; done

# --- hotkey to keystroke -------------------------------------------------------------------------
"$TAMARIND" add "pasted by the bench" >/dev/null
TAMARIND_LOG_LEVEL=info "$TAMARIND" 2>"$work/app.log" &
app=$!
for _ in $(seq 1 200); do grep -q "paste slots" "$work/app.log" 2>/dev/null && break; sleep 0.05; done
"$build/tests/paste_target" "$work/pastes.jsonl" --class gedit >/dev/null &
target=$!
sleep 0.5
"$build/bench/paste_latency" "$work/pastes.jsonl" "$N" 2>/dev/null
kill "$target" "$app"; wait "$target" "$app" 2>/dev/null; target= app=

# --- serving a 20 MB image -----------------------------------------------------------------------
python3 - "$work/big.png" <<'PY'
import os, struct, sys, zlib
width, height = 2600, 2600
raw = b"".join(b"\0" + os.urandom(width * 3) for _ in range(height))
def chunk(kind, data):
    return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data) & 0xFFFFFFFF)
png = b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", width, height, 8, 2, 0, 0, 0))
png += chunk(b"IDAT", zlib.compress(raw, 1)) + chunk(b"IEND", b"")
open(sys.argv[1], "wb").write(png)
PY
size=$(stat -c %s "$work/big.png")
read_all() {
    local t0 got
    for _ in $(seq 1 "$REPS"); do
        t0=$(now_ns)
        got=$(xclip -o -selection clipboard -t image/png | wc -c)
        echo "$(( ($(now_ns) - t0) / 1000000 ))"
        [ "$got" = "$size" ] || echo "# $1 served $got of $size bytes" >&2
    done | stats
}
id=$("$TAMARIND" add --json --image "$work/big.png" | python3 -c 'import json,sys; print(json.load(sys.stdin)["id"])')
"$TAMARIND" copy "$id"
echo "tamarind serve_20mb_png_ms $(read_all tamarind) bytes=$size"
if command -v copyq >/dev/null; then
    export HOME=$work/copyq XDG_CONFIG_HOME=$work/copyq/config XDG_DATA_HOME=$work/copyq/data
    mkdir -p "$XDG_CONFIG_HOME" "$XDG_DATA_HOME"
    copyq >/dev/null 2>&1 &
    copyq=$!
    for _ in $(seq 1 200); do copyq size >/dev/null 2>&1 && break; sleep 0.05; done
    copyq copy image/png - <"$work/big.png" >/dev/null
    sleep 0.5
    echo "copyq serve_20mb_png_ms $(read_all copyq) bytes=$size"
fi
