#!/usr/bin/env bash
# Lumerix following a real mpv: a private D-Bus session, Xvfb with openbox,
# mpv with its MPRIS plugin, and the headless Lumerix, checked against mpv's
# own clock. Usage: tests/e2e/run-mpv.sh [BUILD_DIR]   (default: build)
# Needs: scripts/setup --e2e
set -euo pipefail
cd "$(dirname "$0")/../.."
build=$(realpath "${1:-build}")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
# A real file (a synthetic stream reports a growing length), a keyframe every second.
ffmpeg -loglevel error -y -f lavfi -i testsrc=duration=120:size=320x180:rate=25 -c:v libx264 -preset ultrafast \
  -g 25 -metadata title="Lumerix check" "$work/clip.mp4"
export NO_AT_BRIDGE=1
dbus-run-session -- xvfb-run -a -s "-screen 0 1280x720x24" \
  python3 tests/e2e/follow_mpv.py --lumerix "$build/lumerix" --work "$work" 2> >(grep -v 'fd limit' >&2)
