#!/usr/bin/env bash
# Runs a command where a player's sound can be heard: a private PulseAudio
# server whose default output is a null sink (what it plays goes nowhere,
# and its monitor hears it), a D-Bus session for MPRIS and an X server.
# The command gets the server's folder as $XDG_RUNTIME_DIR; all is gone after.
#   tests/listen/with-sound.sh COMMAND [ARG...]
set -euo pipefail
work=$(mktemp -d)
mkdir -m 700 "$work/run"
export XDG_RUNTIME_DIR=$work/run
pulseaudio --daemonize=no --exit-idle-time=-1 -n --load="module-null-sink sink_name=null" \
  --load=module-native-protocol-unix >"$work/pulseaudio.log" 2>&1 &
pulse=$!
trap 'kill $pulse 2>/dev/null; wait $pulse 2>/dev/null; rm -rf "$work"' EXIT
for _ in $(seq 50); do pactl info >/dev/null 2>&1 && break; sleep 0.1; done
pactl info >/dev/null 2>&1 || { cat "$work/pulseaudio.log" >&2; echo "with-sound.sh: PulseAudio did not start" >&2; exit 1; }
export NO_AT_BRIDGE=1
dbus-run-session -- xvfb-run -a -s "-screen 0 1280x720x24" "$@" 2> >(grep -v 'fd limit' >&2)
