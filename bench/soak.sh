#!/usr/bin/env bash
# soak.sh -- the real app, for a set time, on a private X server and session bus, in a fresh
# TAMARIND_HOME whose library folder is a small tmpfs. While copies stream in, one at a time,
# the app is killed with SIGKILL and started again, the disk fills up and empties, another
# process holds the store's write lock, and the command line reads and adds alongside. At the end
# it compares what the app said it stored ("Captured ... clip" in its log) with what the store
# holds: a copy logged as captured but absent is lost, and so is a `tamarind add` that said
# "inserted". Exit status 1 when anything was lost, 2 when the soak could not run.
#
# Run as root (it mounts a tmpfs). Needs Xvfb, dbus-daemon, xclip, sqlite3, python3 and a built
# tamarind (scripts/setup, scripts/build). It is heavy: run it under the build lock.
set -u
shopt -s nullglob
# Read whole before it runs, so that editing the file meanwhile can't change a soak under way.
{

usage() {
    cat <<'EOF'
Usage: bench/soak.sh [--minutes N] [--short] [--seed N] [--tmpfs-mb N] [--keep] [--tamarind PATH]

  --minutes N     how long copies are made (default 10)
  --short         a quick check: one minute, with kills, full disks and locks every few seconds
  --seed N        seed of the random intervals, holds and texts (default: the clock); the same
                  seed makes the same choices, though the moments they meet differ
  --tmpfs-mb N    size of the tmpfs that holds the library folder (default 256)
  --keep          keep the work folder (the log, the events, a copy of the store) even when
                  nothing was lost; it is always kept when something was
  --tamarind PATH the tamarind binary (default build/apps/tamarind/tamarind)
  --help          this text

Prints a summary: copies made, logged as captured, stored, lost, kills, full-disk spells, lock
spells, command-line runs and errors. Exit status: 0 nothing lost, 1 something lost, 2 could not
run.
EOF
}

root=$(cd "$(dirname "$0")/.." && pwd)
tamarind=$root/build/apps/tamarind/tamarind
minutes=10
short=0
seed=$(( $(date +%s) % 100000 ))
tmpfs_mb=256
keep=0
while (($#)); do
    case "$1" in
    --minutes) minutes=${2:?--minutes needs a number}; shift 2 ;;
    --short) short=1; shift ;;
    --seed) seed=${2:?--seed needs a number}; shift 2 ;;
    --tmpfs-mb) tmpfs_mb=${2:?--tmpfs-mb needs a number}; shift 2 ;;
    --keep) keep=1; shift ;;
    --tamarind) tamarind=${2:?--tamarind needs a path}; shift 2 ;;
    --help | -h) usage; exit 0 ;;
    *) echo "soak: unknown argument '$1' (see --help)" >&2; exit 2 ;;
    esac
done
[[ "$minutes" =~ ^[0-9]+$ && "$seed" =~ ^[0-9]+$ && "$tmpfs_mb" =~ ^[0-9]+$ ]] ||
    { echo "soak: --minutes, --seed and --tmpfs-mb take whole numbers" >&2; exit 2; }

# Seconds between events, as "least most"; the short mode packs them in.
if ((short)); then
    minutes=1 kill_every="5 12" full_every="9 16" lock_every="7 13" cli_every="1 3" large_every=7 image_every=11
else
    kill_every="15 45" full_every="25 70" lock_every="20 50" cli_every="2 6" large_every=25 image_every=40
fi
full_hold="3 7"    # seconds a full disk is held
lock_hold="3 9"    # around the store's 5-second busy timeout: some holds outlast it
import_lines=3000  # a lock spell of the import kind brings in this many clips

fail() { echo "soak: $*" >&2; exit 2; }
((EUID == 0)) || fail "run as root: the library folder is mounted as a tmpfs"
[[ -x "$tamarind" ]] || fail "no tamarind at $tamarind (scripts/build)"
for program in Xvfb dbus-daemon xclip sqlite3 python3 mount umount; do
    command -v "$program" >/dev/null || fail "$program is missing (scripts/setup)"
done

work=$(mktemp -d "${TMPDIR:-/tmp}/tamarind-soak.XXXXXX")
home=$work/home
library=$home/share/Tamarind
store=$library/Tamarind.store
log=$work/app.log
events=$work/events.tsv
copies=$work/copies.tsv
adds=$work/cli-adds.tsv
: >"$log" >"$events" >"$copies" >"$adds" >"$work/imports.tsv" >"$work/cli.tsv"
mkdir -p "$library" "$work/pids"
loops=()
xvfb= bus= mounted=0 status=2

now() { date '+%Y-%m-%d %H:%M:%S.%3N'; }
# A line in the app's own log, so that its lines read in order with what was done to it. Never
# the word the counting looks for.
mark() { echo "$(now) ### soak: $*" >>"$log"; }
event() { printf '%s\t%s\t%s\n' "$(now)" "$1" "${2:-}" >>"$events"; mark "$1 ${2:-}"; }
between() { echo $(($1 + RANDOM % ($2 - $1 + 1))); }
stopping() { [[ -e "$work/stop" ]]; }
# Sleeps N seconds in small steps, returning early (status 1) once the soak is stopping.
doze() {
    local steps=$(($1 * 5))
    while ((steps-- > 0)); do stopping && return 1; sleep 0.2; done
    ! stopping
}
alive() { [[ -n "${1:-}" ]] && kill -0 "$1" 2>/dev/null; }
# Ends one process we started: politely, then for good.
end_process() {
    local pid=$1 i
    alive "$pid" || return 0
    kill "$pid" 2>/dev/null
    for ((i = 0; i < 50; i++)); do alive "$pid" || return 0; sleep 0.1; done
    kill -9 "$pid" 2>/dev/null
}

cleanup() {
    trap - EXIT INT TERM
    touch "$work/stop"
    local pid file i
    for pid in "${loops[@]}"; do
        for ((i = 0; i < 150; i++)); do alive "$pid" || break; sleep 0.1; done
        alive "$pid" && kill -9 "$pid" 2>/dev/null
    done
    for file in "$work"/pids/*; do end_process "$(cat "$file")"; done
    rm -f "$library"/soak-filler*
    end_process "$bus"
    end_process "$xvfb"
    if ((mounted)); then
        for ((i = 0; i < 20; i++)); do umount "$library" 2>/dev/null && break; sleep 0.25; done
        mountpoint -q "$library" && umount -l "$library"
    fi
    if ((status == 0 && !keep)); then rm -rf "$work"; else echo "soak: kept $work" >&2; fi
    exit "$status"
}
trap cleanup EXIT
trap 'exit 2' INT TERM

# --- the private session -----------------------------------------------------------------------

mount -t tmpfs -o "size=${tmpfs_mb}m,mode=0700" tmpfs "$library" || fail "could not mount a tmpfs on $library"
mounted=1

for ((number = 200; number < 300; number++)); do
    [[ -e /tmp/.X$number-lock ]] && continue
    Xvfb ":$number" -nolisten tcp -screen 0 1280x800x24 >/dev/null 2>&1 &
    xvfb=$!
    for ((i = 0; i < 100; i++)); do [[ -S /tmp/.X11-unix/X$number ]] && break; alive "$xvfb" || break; sleep 0.05; done
    [[ -S /tmp/.X11-unix/X$number ]] && alive "$xvfb" && break
    end_process "$xvfb"
    xvfb=
done
[[ -n "$xvfb" ]] || fail "no X display could be started"
export DISPLAY=:$number

dbus-daemon --session --nofork --print-address=1 >"$work/bus.address" 2>/dev/null &
bus=$!
for ((i = 0; i < 100; i++)); do [[ -s "$work/bus.address" ]] && break; sleep 0.05; done
[[ -s "$work/bus.address" ]] || fail "the session bus did not start"
export DBUS_SESSION_BUS_ADDRESS=$(head -n 1 "$work/bus.address")
export TAMARIND_HOME=$home TAMARIND_LOG_LEVEL=info XDG_RUNTIME_DIR=$work/runtime
mkdir -m 0700 "$XDG_RUNTIME_DIR"

cli() { timeout 120 "$tamarind" "$@"; }
# Retention must not be what takes clips away.
cli settings set capture.maximumClipCount 100000000 >/dev/null || fail "could not change the settings"

# --- the app, killed and started again -----------------------------------------------------------

start_app() {
    "$tamarind" >/dev/null 2>>"$log" &
    echo $! >"$work/pids/app"
    event start "pid $!"
}

supervise() {
    RANDOM=$((seed + 1))
    start_app
    local pid until
    while ! stopping; do
        until=$(($(date +%s) + $(between $kill_every)))
        while ! stopping && (($(date +%s) < until)); do
            pid=$(cat "$work/pids/app")
            if ! alive "$pid"; then
                wait "$pid"
                event crash "pid $pid ended by itself with status $?"
                start_app
            fi
            sleep 0.2
        done
        stopping && break
        pid=$(cat "$work/pids/app")
        kill -9 "$pid" 2>/dev/null
        wait "$pid" 2>/dev/null
        event kill "pid $pid"
        sleep "0.$(between 0 9)"
        start_app
    done
}

# --- a full disk --------------------------------------------------------------------------------

fill_disk() {
    RANDOM=$((seed + 2))
    while doze "$(between $full_every)"; do
        touch "$work/full.on"
        # Megabytes first, then what is left of the last one, so that not a block is free.
        dd if=/dev/zero of="$library/soak-filler" bs=1M status=none 2>/dev/null
        dd if=/dev/zero of="$library/soak-filler-2" bs=4k status=none 2>/dev/null
        event full "free $(df --output=avail -B1 "$library" | tail -n 1 | tr -d ' ') bytes"
        doze "$(between $full_hold)"
        rm -f "$library"/soak-filler*
        rm -f "$work/full.on"
        event room ""
    done
}

# --- a held write lock --------------------------------------------------------------------------

make_import() {
    local spell=$1
    awk -v spell="$spell" -v n="$import_lines" -v salt="$RANDOM$RANDOM" \
        'BEGIN { for (i = 1; i <= n; i++) printf "{\"text\": \"soak-import-%s-%d-%s\"}\n", spell, i, salt }' \
        >"$work/import.jsonl"
}

hold_lock() {
    RANDOM=$((seed + 3))
    local spell=0 hold output code
    while doze "$(between $lock_every)"; do
        spell=$((spell + 1))
        touch "$work/lock.on"
        if ((RANDOM % 4)); then
            hold=$(between $lock_hold)
            event lock "sqlite3 BEGIN IMMEDIATE for ${hold}s"
            # The lock is taken at once and kept until COMMIT arrives on stdin.
            { echo "BEGIN IMMEDIATE;"; sleep "$hold"; echo "COMMIT;"; } | sqlite3 "$store" >/dev/null 2>"$work/lock.err" &
            echo $! >"$work/pids/lock"
            wait $!
            code=$?
            ((code == 0)) || event lock-failed "sqlite3 status $code: $(head -c 200 "$work/lock.err")"
        else
            make_import "$spell"
            event lock "tamarind import of $import_lines lines"
            cli import "$work/import.jsonl" >"$work/import-$spell.out" 2>&1
            code=$?
            output=$(tail -n 1 "$work/import-$spell.out")
            printf 'import\t%s\t%s\n' "$code" "$output" >>"$work/cli.tsv"
            # What it said it inserted, to be looked for at the end.
            [[ $code == 0 && "$output" =~ ^inserted\ ([0-9]+) ]] &&
                printf 'soak-import-%s-\t%s\n' "$spell" "${BASH_REMATCH[1]}" >>"$work/imports.tsv"
            event import-done "status $code: $output"
        fi
        rm -f "$work/lock.on" "$work/pids/lock"
        event unlock ""
    done
}

# --- the command line alongside -----------------------------------------------------------------

use_cli() {
    RANDOM=$((seed + 4))
    local n=0 output code text
    while doze "$(between $cli_every)"; do
        n=$((n + 1))
        if ((n % 2)); then
            output=$(cli list --count 2>&1)
            code=$?
            [[ $code == 0 && ! "$output" =~ ^[0-9]+$ ]] && code="0 but not a number"
            printf 'list\t%s\t%s\n' "$code" "$(echo "$output" | tail -n 1)" >>"$work/cli.tsv"
        else
            text=$(printf 'soak-cli-%05d-%04x%04x' "$n" "$RANDOM" "$RANDOM")
            output=$(cli add "$text" 2>&1)
            code=$?
            printf 'add\t%s\t%s\n' "$code" "$(echo "$output" | tail -n 1)" >>"$work/cli.tsv"
            [[ $code == 0 && "$output" == inserted* ]] && printf '%s\t%s\n' "$text" "$(now)" >>"$adds"
        fi
    done
}

# --- the copies ---------------------------------------------------------------------------------

# A PNG that no other copy has: random pixels.
make_png() {
    python3 - "$1" "$2" <<'EOF'
import os, struct, sys, zlib
path, side = sys.argv[1], int(sys.argv[2])
def chunk(kind, data):
    return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data) & 0xffffffff)
rows = b"".join(b"\0" + os.urandom(side * 3) for _ in range(side))
png = b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", side, side, 8, 2, 0, 0, 0))
open(path, "wb").write(png + chunk(b"IDAT", zlib.compress(rows)) + chunk(b"IEND", b""))
EOF
}

# Lines in the log after byte `offset` that say what became of a copy.
outcome_since() {
    tail -c +$(($1 + 1)) "$log" | grep -E -o 'Captured [A-Za-z]+ clip|Skipped capture|Save failed' | tr ' ' '_' | tr '\n' ' '
}

mkdir -p "$work/clips"
# Each copy, one line: index, kind, id, log offsets of its window, outcome, whether a reader saw it
# at once, time.
copy_loop() {
    RANDOM=$((seed + 5))
    local i=0 id kind file offset end outcome lines seen waited xclip= previous deadline extended
    local end_at=$(($(date +%s) + minutes * 60))
    while (($(date +%s) < end_at)); do
        i=$((i + 1))
        # Spaces keep it from looking like a password, so that it takes the common road.
        id=$(printf 'soak %06d %04x%04x' "$i" "$RANDOM" "$RANDOM")
        file=$work/clips/current
        if ((i % image_every == 0)); then
            kind=image
            make_png "$file" "$(between 16 200)"
        elif ((i % large_every == 0)); then
            kind=large
            # Plain words, so that the search index grows as with real text, and the id first.
            awk -v id="$id" -v n="$(between 500 6000)" \
                'BEGIN { for (k = 1; k <= n; k++) printf "%s line %d: the quick brown fox jumps over the lazy dog\n", id, k }' >"$file"
        else
            kind=text
            printf '%s' "$id" >"$file"
        fi
        offset=$(stat -c %s "$log")
        mark "copy $i $kind $id"
        previous=$xclip
        if [[ $kind == image ]]; then
            xclip -selection clipboard -quiet -t image/png -i "$file" >/dev/null 2>&1 &
        else
            xclip -selection clipboard -quiet -i "$file" >/dev/null 2>&1 &
        fi
        xclip=$!
        echo "$xclip" >"$work/pids/xclip"
        # The last owner lets go when the new one takes the clipboard.
        if [[ -n "$previous" ]]; then
            for ((w = 0; w < 20; w++)); do alive "$previous" || break; sleep 0.05; done
            end_process "$previous"
            wait "$previous" 2>/dev/null
        fi
        # Until the app says what it did with it. A held lock or a full disk may keep the answer
        # back for the 5-second busy timeout and more.
        outcome=none
        deadline=30 extended=0
        for ((waited = 0; waited < deadline; waited++)); do
            sleep 0.1
            lines=$(outcome_since "$offset")
            [[ -n "$lines" ]] && break
            if ((!extended)) && [[ -e "$work/lock.on" || -e "$work/full.on" ]]; then
                deadline=90 extended=1
            fi
        done
        # A capture that came late, after the wait for an earlier copy ended, shows here as an
        # extra line: it belongs to that earlier copy, and counting sorts it out by the kinds.
        [[ -n "$lines" ]] && outcome=${lines// /,} && outcome=${outcome%,}
        end=$(stat -c %s "$log")
        seen=-
        if [[ $outcome == *Captured* ]]; then
            # Another process reading at once, as `tamarind list` would.
            if [[ $kind == image ]]; then
                seen=?
            else
                seen=$(sqlite3 -readonly "$store" \
                    "SELECT count(*) FROM clip WHERE substr(text, 1, 20) = '$id'" 2>/dev/null || echo "?")
            fi
        fi
        printf '%d\t%s\t%s\t%s\t%s\t%s\t%s\t%s\n' "$i" "$kind" "$id" "$offset" "$end" "$outcome" "$seen" "$(now)" >>"$copies"
        sleep "0.$(between 1 3)"
    done
}

echo "soak: $minutes min, seed $seed, display $DISPLAY, library on a ${tmpfs_mb} MB tmpfs, work $work"
supervise &
loops+=($!)
for ((i = 0; i < 100; i++)); do [[ -f "$store" ]] && break; sleep 0.1; done
[[ -f "$store" ]] || fail "the app made no store; see $log"
fill_disk &
loops+=($!)
hold_lock &
loops+=($!)
use_cli &
loops+=($!)

copy_loop

# --- the count ----------------------------------------------------------------------------------

touch "$work/stop"
for pid in "${loops[@]}"; do wait "$pid" 2>/dev/null; done
loops=()
rm -f "$library"/soak-filler* "$work/full.on" "$work/lock.on"
# A last capture may still be on its way; then the app quits as a user would.
sleep 2
app=$(cat "$work/pids/app")
kill "$app" 2>/dev/null
for ((i = 0; i < 100; i++)); do alive "$app" || break; sleep 0.1; done
alive "$app" && { event hung "the app did not quit within 10 s"; kill -9 "$app"; }
wait "$app" 2>/dev/null
rm -f "$work/pids/app"
mark "quit"

mkdir -p "$work/store"
cp -a "$library"/Tamarind.store* "$work/store/" 2>/dev/null
cli export >"$work/export.jsonl" 2>"$work/export.err"
export_status=$?

python3 - "$work" "$export_status" <<'EOF'
import collections, json, re, sys
work, export_status = sys.argv[1], sys.argv[2]

# What the store holds: the copies by their 20-character id, the command line's adds whole, the
# imports counted by their spell's prefix, the images by number.
stored_ids, stored_adds, stored_imports, stored_images = set(), set(), collections.Counter(), 0
for line in open(f"{work}/export.jsonl", encoding="utf-8", errors="replace"):
    try:
        clip = json.loads(line)
    except ValueError:
        continue
    text = clip.get("text") or ""
    if text.startswith("soak "):
        stored_ids.add(text[:20])
    elif text.startswith("soak-cli-"):
        stored_adds.add(text)
    elif text.startswith("soak-import-"):
        stored_imports[text[:text.index("-", len("soak-import-")) + 1]] += 1
    if clip.get("kind") in ("image", "screenshot"):
        stored_images += 1

copies = []
for line in open(f"{work}/copies.tsv"):
    i, kind, cid, start, end, outcome, seen, when = line.rstrip("\n").split("\t")
    copies.append(dict(i=int(i), kind=kind, id=cid, start=int(start), end=int(end),
                       outcomes=[o for o in outcome.split(",") if o != "none"], seen=seen, when=when))

# A window's first capture or skip is its own copy's answer, else a failed save. Further captures
# came late, for earlier copies that had no answer, newest first, matched by kind (an image is
# "image" or "screenshot").
def is_image(outcome):
    return outcome in ("Captured_image_clip", "Captured_screenshot_clip")
late = 0
for n, copy in enumerate(copies):
    answers = [o for o in copy["outcomes"] if o != "Save_failed"]
    own = answers[:1] or [o for o in copy["outcomes"] if o == "Save_failed"][:1]
    extra = [o for o in answers[1:] if o.startswith("Captured")]
    copy["outcomes"] = own
    for outcome in extra:
        for earlier in reversed(copies[:n]):
            if earlier["outcomes"] in ([], ["Save_failed"]) and (earlier["kind"] == "image") == is_image(outcome):
                earlier["outcomes"] = [outcome]
                late += 1
                break

captured = [c for c in copies if c["outcomes"] and c["outcomes"][0].startswith("Captured")]
skipped = [c for c in copies if c["outcomes"] and c["outcomes"][0] == "Skipped_capture"]
failed = [c for c in copies if c["outcomes"] == ["Save_failed"]]
texts = [c for c in copies if c["kind"] != "image"]
captured_images = sum(1 for c in captured if c["kind"] == "image")
lost = [c for c in captured if c["kind"] != "image" and c["id"] not in stored_ids]
lost_images = max(0, captured_images - stored_images)
unseen = [c for c in captured if c["seen"] == "0"]
unanswered = [c for c in copies if not c["outcomes"]]

adds = [line.split("\t")[0] for line in open(f"{work}/cli-adds.tsv")]
lost_adds = [a for a in adds if a not in stored_adds]
lost_imports = []
for line in open(f"{work}/imports.tsv"):
    prefix, said = line.rstrip("\n").split("\t")
    if stored_imports[prefix] < int(said):
        lost_imports.append((prefix, int(said), stored_imports[prefix]))

events = [line.rstrip("\n").split("\t") for line in open(f"{work}/events.tsv")]
counts = collections.Counter(e[1] for e in events)
import_spells = sum(1 for e in events if e[1] == "lock" and "import" in e[2])
cli_runs, cli_errors = 0, collections.Counter()
for line in open(f"{work}/cli.tsv"):
    what, code, last = (line.rstrip("\n").split("\t") + ["", ""])[:3]
    cli_runs += 1
    if code != "0":
        cli_errors[f"{what}: {re.sub(r'/[^ ]*', '…', last)[:100]}"] += 1

kinds = collections.Counter(c["kind"] for c in copies)
lost_total = len(lost) + lost_images + len(lost_adds) + sum(said - kept for _, said, kept in lost_imports)
print(f"copies made             {len(copies)} ({kinds['text']} short texts, {kinds['large']} large, {kinds['image']} images)")
print(f"logged as captured      {len(captured)} ({late} matched late)")
print(f"skipped by the app      {len(skipped)}")
print(f"not kept, save failed   {len(failed)}")
print(f"no answer               {len(unanswered)}"
      f" ({sum(1 for c in unanswered if c['kind'] != 'image' and c['id'] in stored_ids)} of them stored all the same)")
print(f"stored                  {sum(1 for c in texts if c['id'] in stored_ids)} of {len(texts)} texts, {stored_images} images")
print(f"captured, but not there for a reader just after: {len(unseen)}")
print(f"lost                    {lost_total}: {len(lost)} copied texts, {lost_images} images, "
      f"{len(lost_adds)} adds, {sum(s - k for _, s, k in lost_imports)} imported lines")
print(f"kills                   {counts['kill']} (and {counts['crash']} exits on its own)")
print(f"full-disk spells        {counts['full']}")
print(f"lock spells             {counts['lock']} ({counts['lock'] - import_spells} sqlite3, {import_spells} import)")
print(f"command-line runs       {cli_runs}, errors {sum(cli_errors.values())}")
for error, times in cli_errors.most_common(6):
    print(f"  x{times} {error}")
if export_status != "0":
    print(f"the final export failed with status {export_status}: see {work}/export.err")

# The evidence: lost copies grouped by the run of the app that logged them, with what that run
# logged of note from its start up to its last lost copy.
log = open(f"{work}/app.log", "rb").read().decode("utf-8", "replace")
offsets, at = [], 0
for line in log.splitlines(keepends=True):
    offsets.append((at, line.rstrip("\n")))
    at += len(line.encode("utf-8", "replace"))
def run_of(offset):
    start = None
    for at, line in offsets:
        if at > offset:
            break
        if "### soak: start pid" in line:
            start = (at, line)
    return start
notable = re.compile(r" (error|fault) \[|Falling back|Save failed|### soak: (kill|full|room|lock|unlock|start|import)")
report = []
groups = collections.OrderedDict()
for copy in lost:
    groups.setdefault(run_of(copy["start"]), []).append(copy)
for start, group in groups.items():
    first, last = group[0], group[-1]
    report.append(f"{len(group)} lost ({first['id']} ... {last['id']}), logged by the app started at "
                  f"{start[1][:23] if start else '?'}; of note from its start to the last of them:")
    if start:
        began = start[1][:23]
        before = [e for e in events if e[0] < began]
        disk = next((e for e in reversed(before) if e[1] in ("full", "room")), None)
        lock = next((e for e in reversed(before) if e[1] in ("lock", "unlock")), None)
        state = [f"the disk full since {disk[0][11:]}" if disk and disk[1] == "full" else "",
                 f"the lock held since {lock[0][11:]} ({lock[2]})" if lock and lock[1] == "lock" else ""]
        if any(state):
            report.append("    as it started: " + " and ".join(x for x in state if x))
    lines = [line for at, line in offsets if (start[0] if start else 0) <= at <= last["end"] and notable.search(line)]
    report += ["    " + line[:200] for line in lines[:14]]
    report.append(f"  and the window of {first['id']}:")
    report += ["    " + line[:200] for at, line in offsets if first["start"] <= at < first["end"]][:6]
for prefix, said, kept in lost_imports:
    report.append(f"import {prefix}*: said inserted {said}, the store holds {kept}; its output:")
    spell = prefix[len("soak-import-"):-1]
    report += ["    " + line[:200] for line in open(f"{work}/import-{spell}.out").read().splitlines()[-6:]]
    # Spells are numbered over every lock spell; what else happened while this one ran.
    locks = [n for n, e in enumerate(events) if e[1] == "lock"]
    begin = locks[int(spell) - 1]
    finish = next((n for n in range(begin, len(events)) if events[n][1] == "import-done"), len(events) - 1)
    disk = next((events[n] for n in range(begin - 1, -1, -1) if events[n][1] in ("full", "room")), None)
    if disk and disk[1] == "full":
        report.append(f"    the disk was full since {disk[0][11:]}")
    report.append("    meanwhile: " + ", ".join(f"{e[0][11:]} {e[1]} {e[2]}".strip() for e in events[begin:finish + 1]))
for add in lost_adds:
    report.append(f"tamarind add said inserted, but the store has no {add}")
open(f"{work}/lost.txt", "w").write("\n".join(report) + "\n")
if report:
    print("\n" + "\n".join(report[:60]))
    if len(report) > 60:
        print(f"... the rest in {work}/lost.txt")
sys.exit(1 if lost_total or export_status != "0" else 0)
EOF
status=$?
exit "$status"
}
