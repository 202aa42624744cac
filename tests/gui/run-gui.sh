#!/usr/bin/env bash
# The bar as a person sees it, on a virtual screen: a private D-Bus session,
# Xvfb, openbox with a compositor, then mutter (GNOME's window manager); a
# full-screen mpv; screenshots read back by OCR. Also runs the GTK shell's
# unit tests that need a display.
# Usage: tests/gui/run-gui.sh [BUILD_DIR]   (default: build; a gtk build)
# Needs: scripts/setup --e2e
set -euo pipefail
cd "$(dirname "$0")/../.."
build=$(realpath "${1:-build}")
source tests/common.sh
scratch_dir gui
still_clip "$work/clip.mp4"
export NO_AT_BRIDGE=1
dbus-run-session -- xvfb-run -a -s "-screen 0 1280x720x24" \
  bash -c '"$1"/tests/lumerix_gtk_tests --gtest_brief=1 && python3 tests/gui/check_bar.py --lumerix "$1"/lumerix --work "$2"' \
  _ "$build" "$work" 2> >(grep -v -e 'fd limit' -e 'dbus-daemon' >&2)
