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
work=$(mktemp -d)
# LUMERIX_GUI_KEEP=1 keeps the screenshots and crops for a look afterwards.
[[ -n ${LUMERIX_GUI_KEEP:-} ]] && echo "gui: screenshots in $work" || trap 'rm -rf "$work"' EXIT
# A dark, still picture keeps OCR to the bar; a real file, so mpv reports a
# fixed length.
ffmpeg -loglevel error -y -f lavfi -i color=c=0x203050:s=320x180:d=120:r=25 -c:v libx264 -preset ultrafast \
  -g 25 -metadata title="Lumerix check" "$work/clip.mp4"
export NO_AT_BRIDGE=1
dbus-run-session -- xvfb-run -a -s "-screen 0 1280x720x24" \
  bash -c '"$1"/tests/lumerix_gtk_tests --gtest_brief=1 && python3 tests/gui/check_bar.py --lumerix "$1"/lumerix --work "$2"' \
  _ "$build" "$work" 2> >(grep -v -e 'fd limit' -e 'dbus-daemon' >&2)
