#!/usr/bin/env bash
# Lumerix following a real VLC or Chromium: a private D-Bus session, the
# player (VLC without a window answering MPRIS through its dbus control;
# Chromium on Xvfb with a local page whose video has sound, into a
# PulseAudio null sink), and the headless Lumerix, checked against the
# player's own position through pause, a seek, 1.5x, 0.5x and quitting.
# VLC refuses to run as root, Chromium's sandbox wants a user: as root, this
# runs itself again as the unprivileged user lumerix-e2e (made here when
# missing).
# Usage: tests/e2e/run-player.sh vlc|chromium [BUILD_DIR]   (default: build)
# Needs: scripts/setup --ci (VLC, Chromium, PulseAudio, python3-gi)
set -euo pipefail
cd "$(dirname "$0")/../.."
player=${1:?usage: run-player.sh vlc|chromium [BUILD_DIR]}
build=$(realpath "${2:-build}")
if [[ $(id -u) -eq 0 ]]; then
  id lumerix-e2e >/dev/null 2>&1 || useradd --create-home --shell /bin/bash lumerix-e2e
  exec runuser -u lumerix-e2e -- bash "$PWD/tests/e2e/run-player.sh" "$player" "$build"
fi
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
follow=(/usr/bin/python3 tests/e2e/follow_player.py --player "$player" --lumerix "$build/lumerix" --work "$work")
case $player in
  vlc)
    ffmpeg -loglevel error -y -f lavfi -i testsrc=duration=120:size=320x180:rate=25 -c:v libx264 \
      -preset ultrafast -g 25 -metadata title="Lumerix check" "$work/clip.mp4"
    dbus-run-session -- "${follow[@]}" 2> >(grep -v 'fd limit' >&2) ;;
  chromium)
    ffmpeg -loglevel error -y -f lavfi -i testsrc=duration=120:size=320x180:rate=25 \
      -f lavfi -i sine=frequency=440:duration=120 -c:v libvpx -b:v 200k -deadline realtime -cpu-used 8 \
      -c:a libopus -shortest "$work/clip.webm"
    mkdir -m 700 "$work/run"
    export XDG_RUNTIME_DIR=$work/run
    # A sound server with a sink that plays into nothing: the tab is audible.
    pulseaudio --daemonize=no --exit-idle-time=-1 -n --load="module-null-sink sink_name=null" \
      --load=module-native-protocol-unix >"$work/pulseaudio.log" 2>&1 &
    pulse=$!
    trap 'kill $pulse 2>/dev/null; rm -rf "$work"' EXIT
    for _ in $(seq 50); do pactl info >/dev/null 2>&1 && break; sleep 0.1; done
    dbus-run-session -- xvfb-run -a -s "-screen 0 1280x720x24" "${follow[@]}" \
      2> >(grep -v -e 'fd limit' -e 'dbus-daemon' >&2) ;;
  *) echo "run-player.sh: vlc or chromium, not $player" >&2; exit 2 ;;
esac
