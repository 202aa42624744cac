#!/usr/bin/env bash
# The bar's keys with the chord while a full-screen mpv holds the keyboard,
# on a virtual X screen with openbox, and `lumerix --do` beside them.
# Usage: tests/gui/run-global-keys.sh [BUILD_DIR]   (default: build; a gtk build)
# Needs: scripts/setup --e2e
set -euo pipefail
cd "$(dirname "$0")/../.."
build=$(realpath "${1:-build}")
source tests/common.sh
scratch_dir global-keys
still_clip "$work/clip.mp4"
export NO_AT_BRIDGE=1
dbus-run-session -- xvfb-run -a -s "-screen 0 1280x720x24" \
  python3 tests/gui/check_global_keys.py --lumerix "$build/lumerix" --work "$work" \
  2> >(grep -v -e 'fd limit' -e 'dbus-daemon' >&2)
