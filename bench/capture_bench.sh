#!/bin/bash
# capture_bench.sh -- the running app on a private Xvfb: idle CPU, resident memory, and the
# latency from a copy to the inserted clip, for a short text and for a 4K PNG.
#
#   idle     utime+stime (/proc/PID/stat, 10 ms ticks) and context switches of the app over
#            IDLE seconds in which nothing is copied, after SETTLE seconds of quiet
#   latency  N copies, each 0.5 s after the last: from just before `xclip` starts to the row in
#            the store, seen by a poller asking SQLite every 2 ms (as CopyQ's bench polls its
#            history); the app's tick is 0.3 s, so about 150 ms of it is the wait for a tick
#
# Needs Xvfb, xclip, sqlite3 and python3, and a built tamarind. Usage: IDLE=60 N=20 bench/capture_bench.sh
set -u
root=$(cd "$(dirname "$0")/.." && pwd)
TAMARIND=${TAMARIND:-$root/build/apps/tamarind/tamarind}
IDLE=${IDLE:-60}
SETTLE=${SETTLE:-5}
N=${N:-20}
work=$(mktemp -d "${TMPDIR:-/tmp}/capture-bench.XXXXXX")
display=":$((120 + RANDOM % 50))"
cleanup() {
    [ -n "${app:-}" ] && kill "$app" 2>/dev/null && wait "$app" 2>/dev/null
    pkill -f "xclip -selection clipboard" 2>/dev/null
    [ -n "${xvfb:-}" ] && kill "$xvfb" 2>/dev/null
    rm -rf "$work"
}
trap cleanup EXIT

Xvfb "$display" -nolisten tcp -screen 0 3840x2160x24 >/dev/null 2>&1 &
xvfb=$!
export DISPLAY=$display TAMARIND_HOME=$work/home
for _ in $(seq 1 100); do [ -S "/tmp/.X11-unix/X${display#:}" ] && break; sleep 0.05; done
"$TAMARIND" 2>"$work/app.log" &
app=$!
store=$work/home/share/Tamarind/Tamarind.store
for _ in $(seq 1 100); do [ -f "$store" ] && break; sleep 0.05; done

ticks() { sed 's/^.*) //' "/proc/$1/stat" | awk '{print $12 + $13}'; }
switches() { awk '/^(non)?voluntary_ctxt_switches:/{s+=$2} END{print s+0}' "/proc/$1/status"; }
now_ms() { date +%s%3N; }
stats() { sort -g | awk '{a[NR]=$1} END{m=(NR%2)?a[(NR+1)/2]:(a[NR/2]+a[NR/2+1])/2; printf "median=%g min=%g max=%g n=%d", m, a[1], a[NR], NR}'; }

sleep "$SETTLE"
c0=$(ticks "$app"); w0=$(switches "$app")
sleep "$IDLE"
c1=$(ticks "$app"); w1=$(switches "$app")
echo "idle_cpu_ms $(((c1 - c0) * 1000 / $(getconf CLK_TCK))) over=${IDLE}s"
echo "idle_context_switches_per_s $(awk -v a="$w0" -v b="$w1" -v t="$IDLE" 'BEGIN{printf "%.2f", (b-a)/t}')"
echo "idle_rss_kb $(awk '/^VmRSS:/{print $2}' "/proc/$app/status")"

# latency WHAT FILE... -- the samples of N copies made by `copy K`, each found by `found K`
latency() {
    local k t0 seen
    for ((k = 1; k <= N; k++)); do
        t0=$(now_ms)
        copy "$k"
        seen=""
        for _ in $(seq 1 2500); do
            if found "$k"; then seen=$(now_ms); break; fi
            sleep 0.002
        done
        [ -n "$seen" ] && echo $((seen - t0)) || echo "# copy $k not captured within 5 s" >&2
        sleep 0.5
    done
}

# xclip stays behind to serve the clipboard; with our stdout it would hold the pipe of $(...) open.
copy() { printf 'latency probe %s' "$1" | xclip -selection clipboard -i >/dev/null 2>&1; }
found() { [ "$(sqlite3 "$store" "SELECT count(*) FROM clip WHERE text = 'latency probe $1'")" = 1 ]; }
echo "latency_text_ms $(latency | stats)"

# 4K PNGs that differ in one pixel row, so that none is a duplicate of another.
python3 - "$work" "$N" <<'EOF'
import struct, sys, zlib
folder, count = sys.argv[1], int(sys.argv[2])
width, height = 3840, 2160
def chunk(kind, data):
    return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data) & 0xffffffff)
for k in range(1, count + 1):
    # A pattern that shifts from row to row, so that it compresses about as a screenshot does.
    base = bytes((i * 7 + (i // 3840) * 13) % 256 for i in range(width * 3 + 256))
    rows = bytearray()
    for y in range(height):
        rows.append(0)
        rows += base[y % 256 : y % 256 + width * 3]
    rows[1] = k % 256
    png = b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", width, height, 8, 2, 0, 0, 0))
    png += chunk(b"IDAT", zlib.compress(bytes(rows), 6)) + chunk(b"IEND", b"")
    open(f"{folder}/shot-{k}.png", "wb").write(png)
EOF
before=$(sqlite3 "$store" "SELECT count(*) FROM clip WHERE kind IN ('image', 'screenshot')")
copy() { xclip -selection clipboard -t image/png -i "$work/shot-$1.png" >/dev/null 2>&1; }
found() { [ "$(sqlite3 "$store" "SELECT count(*) FROM clip WHERE kind IN ('image', 'screenshot')")" -ge $((before + $1)) ]; }
echo "latency_4k_png_ms $(latency | stats) bytes=$(stat -c %s "$work/shot-1.png")"
echo "rss_after_kb $(awk '/^VmRSS:/{print $2}' "/proc/$app/status")"
