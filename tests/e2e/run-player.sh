#!/usr/bin/env bash
# Lumerix following a real player: a private D-Bus session, the player (VLC
# without a window answering MPRIS through its dbus control; Chromium or
# Firefox on Xvfb with a local page whose video has sound, into a
# PulseAudio null sink; Celluloid or Totem on Xvfb under openbox, playing a
# file named like an episode), and the headless Lumerix, checked against
# the player's own position through pause, a seek, 1.5x, 0.5x, full screen
# and quitting. VLC refuses to run as root, Chromium's sandbox wants a user:
# as root, this runs itself again as the unprivileged user lumerix-e2e
# (made here when missing).
# Usage: tests/e2e/run-player.sh vlc|chromium|firefox|celluloid|totem [BUILD_DIR]   (default: build)
# Needs: scripts/setup --ci (VLC, Chromium, PulseAudio, python3-gi); Firefox,
# Celluloid and Totem: sudo apt-get install firefox-esr celluloid totem
set -euo pipefail
cd "$(dirname "$0")/../.."
player=${1:?usage: run-player.sh vlc|chromium|firefox|celluloid|totem [BUILD_DIR]}
build=$(realpath "${2:-build}")
case $player in
  vlc | chromium | firefox | celluloid | totem) ;;
  *) echo "run-player.sh: vlc, chromium, firefox, celluloid or totem, not $player" >&2; exit 2 ;;
esac
source tests/common.sh
as_e2e_user "$PWD/tests/e2e/run-player.sh" "$player" "$build"
command -v "$([[ $player == firefox ]] && echo firefox-esr || echo "$player")" >/dev/null ||
  { echo "run-player.sh: $player is not installed" >&2; exit 2; }
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export NO_AT_BRIDGE=1  # no accessibility bus for the GTK players: it only talks
follow=(/usr/bin/python3 tests/e2e/follow_player.py --player "$player" --lumerix "$build/lumerix" --work "$work")
quiet=(grep -v -e 'fd limit' -e 'dbus-daemon' -e 'atspi' -e 'SpiRegistry' -e 'Authorization required' -e '^$')
# A sound server with a sink that plays into nothing: a browser tab with
# sound is audible, and the desktop players have somewhere to play to.
sound() {
  mkdir -m 700 "$work/run"
  export XDG_RUNTIME_DIR=$work/run
  pulseaudio --daemonize=no --exit-idle-time=-1 -n --load="module-null-sink sink_name=null" \
    --load=module-native-protocol-unix >"$work/pulseaudio.log" 2>&1 &
  pulse=$!
  trap 'kill $pulse 2>/dev/null; wait $pulse 2>/dev/null; rm -rf "$work"' EXIT
  for _ in $(seq 50); do pactl info >/dev/null 2>&1 && break; sleep 0.1; done
}
case $player in
  vlc)
    ffmpeg -loglevel error -y -f lavfi -i testsrc=duration=120:size=320x180:rate=25 -c:v libx264 \
      -preset ultrafast -g 25 -metadata title="Lumerix check" "$work/clip.mp4"
    dbus-run-session -- "${follow[@]}" 2> >("${quiet[@]}" >&2) ;;
  chromium | firefox)
    ffmpeg -loglevel error -y -f lavfi -i testsrc=duration=120:size=320x180:rate=25 \
      -f lavfi -i sine=frequency=440:duration=120 -c:v libvpx -b:v 200k -deadline realtime -cpu-used 8 \
      -c:a libopus -shortest "$work/clip.webm"
    sound
    dbus-run-session -- xvfb-run -a -s "-screen 0 1280x720x24" "${follow[@]}" 2> >("${quiet[@]}" >&2) ;;
  celluloid | totem)
    # No title tag: the name (and the episode) come from the file's name.
    ffmpeg -loglevel error -y -f lavfi -i testsrc=duration=120:size=320x180:rate=25 \
      -f lavfi -i sine=frequency=440:duration=120 -c:v libx264 -preset ultrafast -g 25 -c:a aac -shortest \
      "$work/Show.S01E02.mp4"
    sound
    # A window manager keeps the full-screen state that Lumerix reads.
    dbus-run-session -- xvfb-run -a -s "-screen 0 1280x720x24" \
      bash -c 'openbox >/dev/null 2>&1 & exec "$@"' _ "${follow[@]}" 2> >("${quiet[@]}" >&2) ;;
esac
