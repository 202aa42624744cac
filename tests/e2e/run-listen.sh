#!/usr/bin/env bash
# Sync by listening, end to end: a clip made here (espeak-ng speaks a
# subtitle's lines over a quiet music bed), played by a real mpv into a
# private PulseAudio server whose default output is a null sink; the headless
# Lumerix listens with a copy of the subtitle shifted and stretched by known
# amounts, and must write the side file that undoes them. The same clip
# without the voices must leave the side file as it was.
# Usage: tests/e2e/run-listen.sh [BUILD_DIR]   (default: build)
# Needs: scripts/setup --e2e
set -euo pipefail
cd "$(dirname "$0")/../.."
build=$(realpath "${1:-build}")
for tool in espeak-ng sox ffmpeg mpv pulseaudio pactl xvfb-run dbus-run-session; do
  command -v "$tool" >/dev/null || { echo "run-listen.sh: no $tool (bash scripts/setup --e2e)" >&2; exit 2; }
done
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
bash tests/listen/with-sound.sh python3 tests/e2e/listen_check.py --lumerix "$build/lumerix" --work "$work"
