#!/usr/bin/env bash
# The bar on KDE Plasma under Wayland: KWin (Plasma 5.27's compositor) on a
# virtual framebuffer, a full-screen native-Wayland mpv, and Lumerix in the
# layer shell; KWin's screenshot read back by OCR. See kde_wayland.py.
# KWin has no way here to send a real click or key (no input devices, no
# remote-desktop service): keys on KDE stay a manual check.
# Usage: tests/gui/run-kde-wayland.sh [BUILD_DIR]   (default: build)
# Needs: scripts/setup --ci (kwin-wayland)
set -euo pipefail
cd "$(dirname "$0")/../.."
build=$(realpath "${1:-build}")
source tests/common.sh
as_e2e_user "$PWD/tests/gui/run-kde-wayland.sh" "$build"
scratch_dir kde-wayland
still_clip "$work/clip.mp4"
counting_subtitle "$work/clip.srt" "KDE line"
mkdir -m 700 "$work/run"
export XDG_RUNTIME_DIR=$work/run XDG_CONFIG_HOME=$work/config NO_AT_BRIDGE=1
export KWIN_SCREENSHOT_NO_PERMISSION_CHECKS=1 QT_QPA_PLATFORM=wayland
mkdir -p "$work/config/lumerix"
echo '{"DidOnboard": true}' >"$work/config/lumerix/settings.json"
unset DISPLAY WAYLAND_DISPLAY
# kwin_wayland carries a file capability (cap_sys_resource, for real-time
# scheduling) that a container may not grant: a copy runs without it.
cp /usr/bin/kwin_wayland "$work/kwin_wayland"
# KWin runs one program once it is up, its output into KWin's log: it leaves
# its words and status in files, and KWin is stopped here.
cat >"$work/child.sh" <<CHILD
timeout 120 /usr/bin/python3 tests/gui/kde_wayland.py --lumerix "$build/lumerix" --work "$work" >"$work/checks" 2>&1
echo \$? >"$work/status"
CHILD
dbus-run-session -- bash -c '
  source tests/common.sh
  "$1/kwin_wayland" --virtual --width 1280 --height 720 --socket wayland-kde "bash $1/child.sh" >"$1/kwin.log" 2>&1 &
  kwin=$!
  while [[ ! -e $1/status ]] && kill -0 $kwin 2>/dev/null; do sleep 0.2; done
  stop_all $kwin
  cat "$1/checks" 2>/dev/null
  [[ -e $1/status ]] || tail -20 "$1/kwin.log"
  exit "$(cat "$1/status" 2>/dev/null || echo 1)"
' _ "$work" 2> >(grep -v -e 'fd limit' -e 'dbus-daemon' >&2)
