#!/usr/bin/env bash
# The bar on GNOME under Wayland: mutter headless (GNOME's compositor, with
# XWayland), a full-screen native-Wayland mpv, and Lumerix, whose bar goes
# through XWayland there (no layer shell). Screenshots from mutter's screen
# cast over PipeWire, read back by OCR; a real click and a real key through
# mutter's remote-desktop session. See gnome_wayland.py for the checks.
# Usage: tests/gui/run-gnome-wayland.sh [BUILD_DIR]   (default: build)
# Needs: scripts/setup --ci (mutter, xwayland, pipewire, wireplumber, gstreamer1.0-pipewire)
set -euo pipefail
cd "$(dirname "$0")/../.."
build=$(realpath "${1:-build}")
# Mutter refuses to start XWayland when /tmp/.X11-unix belongs to another
# user than itself or root: earlier checks ran X servers as lumerix-e2e. As
# root, this runs itself again as that unprivileged user.
source tests/common.sh
as_e2e_user "$PWD/tests/gui/run-gnome-wayland.sh" "$build"
scratch_dir gnome-wayland
still_clip "$work/clip.mp4"
counting_subtitle "$work/clip.srt" "GNOME line"
mkdir -m 700 "$work/run"
export XDG_RUNTIME_DIR=$work/run XDG_CONFIG_HOME=$work/config XDG_CURRENT_DESKTOP=GNOME NO_AT_BRIDGE=1
mkdir -p "$work/config/lumerix"
echo '{"DidOnboard": true}' >"$work/config/lumerix/settings.json"
unset DISPLAY WAYLAND_DISPLAY
# PipeWire carries the screen cast; mutter exits with its child, the checks.
dbus-run-session -- bash -c '
  source tests/common.sh
  pipewire >"$2/pipewire.log" 2>&1 &
  pipewire=$!
  for _ in $(seq 300); do [[ -S $XDG_RUNTIME_DIR/pipewire-0 ]] && break; sleep 0.1; done
  wireplumber >"$2/wireplumber.log" 2>&1 &
  wireplumber=$!
  sleep 1
  # Mutter does not always exit with its child: the child leaves its status
  # in a file, and mutter is stopped here.
  mutter --wayland --headless --virtual-monitor 1280x720 -- bash -c "
    timeout 120 /usr/bin/python3 tests/gui/gnome_wayland.py --lumerix \"\$1/lumerix\" --work \"\$2\"
    echo \$? >\"\$2/status\"" _ "$1" "$2" &
  mutter=$!
  while [[ ! -e $2/status ]] && kill -0 $mutter 2>/dev/null; do sleep 0.2; done
  stop_all $mutter $wireplumber $pipewire
  exit "$(cat "$2/status" 2>/dev/null || echo 1)"
' _ "$build" "$work" 2> >(grep -v -e 'fd limit' -e 'dbus-daemon' >&2)
