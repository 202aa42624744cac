#!/usr/bin/env bash
# What only whole processes show: Lumerix never leaves a helper behind and
# never waits forever on one.
#   tests/probes/processes.sh [BUILD_DIR]      (needs dbus-run-session)
# Exits non-zero on the first fault, saying which.
set -euo pipefail
cd "$(dirname "$0")/../.."
build=$(realpath "${1:-build}")
work=$(mktemp -d)
trap 'kill -9 $(jobs -p) 2>/dev/null || true; rm -rf "$work"' EXIT
fail() { echo "FAIL: $*" >&2; exit 1; }
children() { pgrep -P "$1" -d ' ' || true; }

echo "-- a helper that ignores SIGTERM does not keep Lumerix from quitting"
mkdir "$work/bin"
cp "$build/lumerix" "$work/bin/lumerix"
cat >"$work/bin/lumerix-mpris" <<'SH'
#!/bin/sh
trap '' TERM
while :; do sleep 1; done
SH
chmod +x "$work/bin/lumerix-mpris"
XDG_CONFIG_HOME=$work/config "$work/bin/lumerix" --headless >/dev/null 2>&1 &
lumerix=$!
sleep 1.5
kill -TERM "$lumerix"
for _ in $(seq 50); do kill -0 "$lumerix" 2>/dev/null || break; sleep 0.1; done
kill -0 "$lumerix" 2>/dev/null && fail "Lumerix still running 5 s after SIGTERM"
wait "$lumerix" || fail "Lumerix exited with status $? after SIGTERM"
pgrep -f "$work/bin/lumerix-mpris" >/dev/null && fail "the stubborn helper outlived Lumerix"

for mode in stream serve; do
  echo "-- the $mode helper does not outlive a Lumerix killed with SIGKILL"
  dbus-run-session -- bash -c 2>"$work/bus.log" '
    XDG_CONFIG_HOME='"$work"'/config '"$build"'/lumerix --headless >/dev/null 2>&1 &
    lumerix=$!
    for _ in $(seq 50); do helper=$(pgrep -P $lumerix -f "lumerix-mpris '"$mode"'" || true); [[ -n $helper ]] && break; sleep 0.1; done
    [[ -n $helper ]] || { echo "FAIL: no '"$mode"' helper started" >&2; exit 1; }
    kill -KILL $lumerix
    for _ in $(seq 30); do kill -0 $helper 2>/dev/null || exit 0; sleep 0.1; done
    echo "FAIL: lumerix-mpris '"$mode"' still running 3 s after Lumerix was killed" >&2
    exit 1
  ' || { grep FAIL "$work/bus.log" >&2; exit 1; }
done
echo "-- one poll helper for the whole run"
dbus-run-session -- bash -c 2>"$work/bus.log" '
  XDG_CONFIG_HOME='"$work"'/config '"$build"'/lumerix --headless >/dev/null 2>&1 &
  lumerix=$!
  seen=""
  for _ in $(seq 30); do seen="$seen $(pgrep -P $lumerix -f "lumerix-mpris serve" || true)"; sleep 0.1; done
  kill -TERM $lumerix; wait $lumerix
  count=$(echo $seen | tr " " "\n" | sort -u | grep -c .)
  [[ $count -eq 1 ]] || { echo "FAIL: $count poll helpers in 3 s, not one" >&2; exit 1; }
' || { grep FAIL "$work/bus.log" >&2; exit 1; }
echo "processes: all good"
