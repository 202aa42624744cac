#!/usr/bin/env bash
# Lumerix following a real VLC: a private D-Bus session, VLC without a
# window answering MPRIS (its dbus control), and the headless Lumerix,
# checked against VLC's own position through pause, a seek, 1.5x, 0.5x and
# quitting. VLC refuses to run as root: as root, this runs itself again as
# the unprivileged user lumerix-e2e (made here when missing).
# Usage: tests/e2e/run-vlc.sh [BUILD_DIR]   (default: build)
# Needs: scripts/setup --ci (VLC and python3-gi)
set -euo pipefail
cd "$(dirname "$0")/../.."
build=$(realpath "${1:-build}")
if [[ $(id -u) -eq 0 ]]; then
  id lumerix-e2e >/dev/null 2>&1 || useradd --create-home --shell /bin/bash lumerix-e2e
  exec runuser -u lumerix-e2e -- bash "$PWD/tests/e2e/run-vlc.sh" "$build"
fi
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
ffmpeg -loglevel error -y -f lavfi -i testsrc=duration=120:size=320x180:rate=25 -c:v libx264 -preset ultrafast \
  -g 25 -metadata title="Lumerix check" "$work/clip.mp4"
dbus-run-session -- /usr/bin/python3 tests/e2e/follow_vlc.py --lumerix "$build/lumerix" --work "$work" \
  2> >(grep -v 'fd limit' >&2)
