#!/bin/bash
# compare_copyq.sh -- Tamarind's command line beside CopyQ's, in one run, on the same items.
#
# Runs CopyQ's own benchmark scripts (ingest, search, storage; copied to a scratch folder,
# since they write beside themselves), then the same figures for `tamarind`, with the same item
# texts ("item J lorem ipsum dolor sit amet J%97"), needles and timing points (shell wall clock
# around one client process, start-up included), and prints the pairs side by side.
#
# Needs copyq, xvfb, xclip, xsel, xdotool and time (apt-get install copyq ...), and a built
# tamarind (scripts/build). Usage: REPS=3 bench/compare_copyq.sh
# Environment: COPYQ_BENCH (the CopyQ scripts' folder), TAMARIND (the program), REPS.
set -u
root=$(cd "$(dirname "$0")/.." && pwd)
COPYQ_BENCH=${COPYQ_BENCH:-$root/../shared/bench/copyq}
TAMARIND=${TAMARIND:-$root/build/apps/tamarind/tamarind}
export REPS=${REPS:-3}
command -v copyq >/dev/null || { echo "compare_copyq: copyq is not installed (apt-get install copyq)" >&2; exit 1; }
[ -x "$TAMARIND" ] || { echo "compare_copyq: no $TAMARIND; run scripts/build first" >&2; exit 1; }

scratch=$(mktemp -d "${TMPDIR:-/tmp}/compare-copyq.XXXXXX")
trap 'rm -rf "$scratch"' EXIT
cp -r "$COPYQ_BENCH" "$scratch/copyq" && chmod -R u+w "$scratch/copyq"
out="$scratch/figures"
: >"$out"

# --- CopyQ -----------------------------------------------------------------------------------------
for bench in bench_ingest bench_search bench_storage; do
    echo "== copyq $bench (reps $REPS)" >&2
    "$scratch/copyq/$bench.sh" 2>/dev/null | sed 's/^/copyq /' >>"$out"
done

# --- Tamarind --------------------------------------------------------------------------------------
now_ns() { date +%s%N; }
ms_between() { awk -v a="$1" -v b="$2" 'BEGIN{printf "%.1f", (b-a)/1e6}'; }
stats() {
    sort -g | awk '{a[NR]=$1} END{ m = (NR%2) ? a[(NR+1)/2] : (a[NR/2]+a[NR/2+1])/2;
        printf "median=%g min=%g max=%g n=%d", m, a[1], a[NR], NR }'
}
declare -A samples
sample() { samples[$1]+="$2"$'\n'; }
fresh_home() { export TAMARIND_HOME="$scratch/home-$RANDOM$RANDOM"; mkdir -p "$TAMARIND_HOME"; }
# items PREFIX N -- N lines of import JSON
items() { awk -v p="$1" -v n="$2" 'BEGIN{for (j = 0; j < n; ++j) printf "{\"text\":\"%s %d lorem ipsum dolor sit amet %d\"}\n", p, j, j % 97}'; }

for n in 1000 10000 100000; do items item "$n" >"$scratch/items-$n.jsonl"; done

echo "== tamarind ingest" >&2
for rep in $(seq 1 "$REPS"); do
    for n in 1000 10000 100000; do
        fresh_home
        t0=$(now_ns); "$TAMARIND" import "$scratch/items-$n.jsonl" >/dev/null; t1=$(now_ns)
        sample "ingest_import_$n" "$(ms_between "$t0" "$t1")"
        got=$("$TAMARIND" list --count)
        [ "$got" = "$n" ] || echo "# WARNING import $n: $got clips" >&2
        if [ "$n" = 10000 ]; then
            sample storage_bytes_per_item "$(awk -v b="$(stat -c %s "$TAMARIND_HOME/share/Tamarind/Tamarind.store")" -v n="$n" 'BEGIN{printf "%.1f", b/n}')"
        fi
    done
    fresh_home
    t0=$(now_ns)
    for ((i = 0; i < 1000; i++)); do "$TAMARIND" add "proc item $i lorem ipsum dolor sit amet $((i % 97))" >/dev/null; done
    t1=$(now_ns)
    sample ingest_cli_per_item_1000 "$(ms_between "$t0" "$t1")"
done

echo "== tamarind search" >&2
declare -A needle=([one]="item 4242 lorem" [some]="amet 42" [none]="zzzz" [all]="LOREM")
declare -A expect=([10k_one]=1 [10k_some]=103 [10k_none]=0 [10k_all]=10000
                   [100k_one]=10 [100k_some]=1030 [100k_none]=0 [100k_all]=100000)
for size in 10k 100k; do
    fresh_home
    [ "$size" = 10k ] && "$TAMARIND" import "$scratch/items-10000.jsonl" >/dev/null
    # CopyQ's 100k is 10 tabs of 10,000 with a prefix per tab; one library here, same texts.
    if [ "$size" = 100k ]; then
        for k in $(seq 1 10); do items "t$k item" 10000; done | "$TAMARIND" import - >/dev/null
    fi
    for rep in $(seq 1 $((REPS * 5))); do
        for k in one some none all; do
            t0=$(now_ns); got=$("$TAMARIND" search "${needle[$k]}" --count); t1=$(now_ns)
            sample "search${size}_count_${k}" "$(ms_between "$t0" "$t1")"
            t0=$(now_ns); "$TAMARIND" search "${needle[$k]}" --limit 50 --json >/dev/null; t1=$(now_ns)
            sample "search${size}_page_${k}" "$(ms_between "$t0" "$t1")"
            [ "$got" = "${expect[${size}_$k]}" ] || echo "# WARNING search $size $k: $got hits, CopyQ's count is ${expect[${size}_$k]}" >&2
        done
    done
done

for figure in "${!samples[@]}"; do
    echo "tamarind $figure ms $(printf '%s' "${samples[$figure]}" | sed '/^$/d' | stats)" >>"$out"
done

# --- side by side ----------------------------------------------------------------------------------
median() { awk -v who="$1" -v f="$2" '$1 == who && $2 == f { for (i = 3; i <= NF; ++i) if ($i ~ /^median=/) { sub("median=", "", $i); print $i } }' "$out"; }
row() { printf '| %s | %s | %s |\n' "$1" "$(median copyq "$2")" "$(median tamarind "$3")"; }
echo
echo "Medians in ms (bytes for storage), REPS=$REPS, $(nproc) cores, load $(cut -d' ' -f1-3 /proc/loadavg), $(date -Is)"
echo
echo "| Figure | CopyQ | Tamarind |"
echo "|---|---|---|"
row "add 1,000 items, one process per item" ingest_cli_per_item_1000 ingest_cli_per_item_1000
row "add 1,000 items in one process (copyq add ITEMS / tamarind import)" ingest_cli_bulk_1000 ingest_import_1000
row "add 10,000 items in one process" ingest_cli_bulk_10000 ingest_import_10000
row "add 100,000 items (CopyQ: 10 tabs of 10,000)" ingest_cli_bulk_100k_10tabs ingest_import_100000
for size in 10k 100k; do
    for k in one some none all; do
        row "search $size, \"${needle[$k]}\": CopyQ select() / Tamarind count" "search${size}_sel_${k}_total_ms" "search${size}_count_${k}"
        row "search $size, \"${needle[$k]}\": CopyQ scan / Tamarind first page as JSON" "search${size}_scan_${k}_total_ms" "search${size}_page_${k}"
    done
done
row "bytes on disk per item at 10,000" storage_bytes_per_item storage_bytes_per_item
