#!/usr/bin/env bash
# The bar on sway (wlroots), the Wayland layer-shell path: sway headless
# with its software renderer, a full-screen mpv drawing through Wayland
# shared memory, and Lumerix following it; grim's screenshot read back by
# OCR. Checks that the cue reads above the full-screen player, that the bar
# is a layer surface (not a window sway manages), that mpv stays full
# screen, that the bar comes back when its monitor goes away and starts on
# the monitor its saved place is on, that a second subtitle's line reads
# under the first's, that `lumerix --do` reaches it, and that GTK and the
# libraries print no CRITICAL. sway refuses to
# run as root: as root, this runs itself again as the unprivileged user
# lumerix-e2e (made here when missing).
# Usage: tests/gui/run-sway.sh [BUILD_DIR]   (default: build)
# Needs: scripts/setup --ci (sway, grim)
set -euo pipefail
cd "$(dirname "$0")/../.."
build=$(realpath "${1:-build}")
source tests/common.sh
as_e2e_user "$PWD/tests/gui/run-sway.sh" "$build"
scratch_dir sway
still_clip "$work/clip.mp4"
counting_subtitle "$work/clip.srt" "Layer shell line"
counting_subtitle "$work/second.srt" "Second row"
mkdir -m 700 "$work/run"
export XDG_RUNTIME_DIR=$work/run WLR_BACKENDS=headless WLR_RENDERER=pixman WLR_LIBINPUT_NO_DEVICES=1
export XDG_CONFIG_HOME=$work/config NO_AT_BRIDGE=1
# Not a first run: the guide (a window titled Lumerix too) stays away.
mkdir -p "$work/config/lumerix"
echo '{"DidOnboard": true}' >"$work/config/lumerix/settings.json"
unset DISPLAY WAYLAND_DISPLAY
printf 'output HEADLESS-1 resolution 1280x720 position 0 0\nxwayland disable\n' >"$work/sway.conf"

dbus-run-session -- bash -s "$build" "$work" <<'INNER' 2> >(grep -v 'fd limit' >&2)
set -uo pipefail
source tests/common.sh
build=$1 work=$2
fails=0
# eventually SECONDS COMMAND...: COMMAND until it succeeds; false after
# SECONDS, a bound for a run that never gets there, not a timing.
eventually() {
  local bound=$1
  shift
  for _ in $(seq $((bound * 2))); do "$@" && return 0; sleep 0.5; done
  return 1
}
check() {  # check DESCRIPTION COMMAND...
  local what=$1
  shift
  if "$@"; then echo "ok    sway: $what"; else echo "FAIL  sway: $what"; fails=$((fails + 1)); fi
}
sway -c "$work/sway.conf" >"$work/sway.log" 2>&1 &
sway=$!
for _ in $(seq 300); do [[ -S $XDG_RUNTIME_DIR/wayland-1 ]] && break; sleep 0.1; done
export WAYLAND_DISPLAY=wayland-1 SWAYSOCK=$(ls "$XDG_RUNTIME_DIR"/sway-ipc.*.sock)
tree() { swaymsg -t get_tree; }
fullscreen_mpv() { tree | tr -d ' \n' | grep -q '"fullscreen_mode":1,[^{}]*"app_id":"mpv"\|"app_id":"mpv"[^{}]*"fullscreen_mode":1'; }
# mpv would draw clip.srt itself (same name as the clip): the line read must be Lumerix's.
mpv --no-config --script=/usr/lib/mpv-mpris/mpris.so --ao=null --vo=wlshm --fs --no-terminal --sub-auto=no "$work/clip.mp4" &
mpv=$!
for _ in $(seq 300); do fullscreen_mpv && break; sleep 0.1; done
"$build/lumerix" --player mpv --second "$work/second.srt" "$work/clip.srt" >"$work/lumerix.out" 2>"$work/lumerix.err" &
lumerix=$!
seen=""
cue_on_screen() {
  grim "$work/shot.png" && seen=$(tesseract "$work/shot.png" - 2>/dev/null | tr '\n' ' ') &&
    grep -q "Layer shell line" <<<"$seen"
}
both_on_screen() { cue_on_screen && grep -qE "Layer shell line [0-9]+ +Second row [0-9]+" <<<"$seen"; }
check "the cue reads above the full-screen mpv" eventually 30 cue_on_screen
check "the second subtitle's line reads under it" eventually 30 both_on_screen
check "mpv stays full screen" fullscreen_mpv
check "the bar is a layer surface, not a window sway manages" bash -c "! swaymsg -t get_tree | grep -q '\"name\": \"Lumerix\"'"
# No global shortcuts on sway: a key bound to `lumerix --do` is the way.
check "lumerix --do offset-0.1 exits 0" "$build/lumerix" --do offset-0.1
sleep 0.5
check "--do moves the timing by -0.1 s (side file)" python3 -c \
  'import json, sys; sys.exit(abs(json.load(open(sys.argv[1]))["offset"] + 0.1) > 1e-9)' "$work/clip.srt.sync.json"
kill "$lumerix"
wait "$lumerix"
status=$?
check "quits cleanly on SIGTERM" test "$status" -eq 0
# Monitors that come and go: a sway nested in this one, with two outputs
# that are windows here (a headless output cannot be taken away; closing
# its window takes a nested one away, as an unplug does).
swaymsg output HEADLESS-1 resolution 2600x800 >/dev/null
kill "$mpv"
WLR_BACKENDS=wayland sway -c "$work/sway.conf" >"$work/nested.log" 2>&1 &
nested=$!
for _ in $(seq 300); do [[ -S $XDG_RUNTIME_DIR/wayland-2 ]] && break; sleep 0.1; done
outer=$SWAYSOCK
# Its IPC socket comes after its display's.
eventually 30 bash -c "ls '$XDG_RUNTIME_DIR'/sway-ipc.*.sock | grep -qvx '$outer'"
export WAYLAND_DISPLAY=wayland-2 SWAYSOCK=$(ls "$XDG_RUNTIME_DIR"/sway-ipc.*.sock | grep -vx "$outer")
swaymsg create_output >/dev/null
eventually 30 bash -c '[[ $(swaymsg -t get_outputs | grep -c "\"name\": \"WL-") -ge 2 ]]'
second=$(swaymsg -t get_outputs | grep -o '"name": "WL-[0-9]*"' | tail -1 | grep -o 'WL-[0-9]*')
first=$(swaymsg -t get_outputs | grep -o '"name": "WL-[0-9]*"' | head -1 | grep -o 'WL-[0-9]*')
reads() {  # reads OUTPUT: the cue shows on that output
  grim -o "$1" "$work/$1.png" && tesseract "$work/$1.png" - 2>/dev/null | grep -q "Layer shell line"
}
absent() { ! reads "$1"; }
# No picture this time: only the bar on an empty desktop, for the OCR.
mpv --no-config --script=/usr/lib/mpv-mpris/mpris.so --ao=null --vo=null --no-terminal --sub-auto=no \
  "$work/clip.mp4" &
mpv=$!
gdbus wait --session --timeout 30 org.mpris.MediaPlayer2.mpv
# A place saved on the second monitor: the bar starts on that monitor,
# placed from its corner (not the first monitor's).
printf '{"DidOnboard": true, "LumerixPanel": "1600 100 600 120"}' >"$work/config/lumerix/settings.json"
"$build/lumerix" --player mpv "$work/clip.srt" >>"$work/lumerix.out" 2>>"$work/lumerix.err" &
lumerix=$!
check "a bar saved on the second monitor starts there" eventually 30 reads "$second"
check "and not on the first" absent "$first"
# That monitor goes away: the compositor closes the bar's surface, and the
# bar comes back on the monitor that remains.
SWAYSOCK=$outer swaymsg "[title=\"wlroots - $second\"] kill" >/dev/null
check "the bar comes back on the monitor that remains when its own goes away" eventually 30 reads "$first"
check "the bar lives on when its monitor goes away" kill -0 "$lumerix"
kill "$lumerix"
wait "$lumerix"
kill "$nested" 2>/dev/null
((fails)) && { echo "read: $seen"; cat "$work/lumerix.err"; }
stop_all "$mpv" "$sway"
if ((fails)); then echo "sway: $fails checks failed"; exit 1; fi
echo "sway: all checks passed"
INNER
