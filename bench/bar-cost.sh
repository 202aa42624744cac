#!/usr/bin/env bash
# What the bar costs: CPU (% of one core) and peak RSS of lumerix over a
# window, idle with the animated nameplate and following a playing mpv with
# a cue on screen (one subtitle, then two), and how soon its window is up.
# On a virtual screen with openbox and xcompmgr, like tests/gui/run-gui.sh.
# Prints figures; asserts nothing. Usage: bench/bar-cost.sh [BUILD_DIR] [SECONDS]   (build, 60)
# Needs: scripts/setup --e2e
set -euo pipefail
cd "$(dirname "$0")/.."
build=$(realpath "${1:-build}")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
ffmpeg -loglevel error -y -f lavfi -i color=c=0x203050:s=320x180:d=120:r=25 -c:v libx264 -preset ultrafast \
  -g 25 "$work/clip.mp4"
export NO_AT_BRIDGE=1
dbus-run-session -- xvfb-run -a -s "-screen 0 1280x720x24" \
  python3 bench/bar_cost.py "$build/lumerix" "$work" "${2:-60}" 2> >(grep -v -e 'fd limit' -e Openbox >&2)
