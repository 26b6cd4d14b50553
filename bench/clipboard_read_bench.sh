#!/bin/bash
# clipboard_read_bench.sh -- the X11 clipboard reader's peak memory for a large INCR text, on a
# private Xvfb (bench/clipboard_read_memory.cpp).
#   bench/clipboard_read_bench.sh [SIZE_MB [LIMIT_MB]]   (default 200 MB, no limit)
set -u
root=$(cd "$(dirname "$0")/.." && pwd)
BENCH=${BENCH:-$root/build/bench/clipboard_read_memory}
display=":$((170 + RANDOM % 50))"
Xvfb "$display" -nolisten tcp >/dev/null 2>&1 &
xvfb=$!
trap 'kill "$xvfb" 2>/dev/null' EXIT
for _ in $(seq 1 100); do [ -S "/tmp/.X11-unix/X${display#:}" ] && break; sleep 0.05; done
DISPLAY=$display "$BENCH" "${1:-200}" ${2:+"$2"}
