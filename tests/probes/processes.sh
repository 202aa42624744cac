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
# until SECONDS COMMAND...: polls until COMMAND succeeds; fails after SECONDS,
# a bound for a run that never gets there, not a timing.
until_true() {
  local bound=$1; shift
  for _ in $(seq $((bound * 20))); do "$@" && return 0; sleep 0.05; done
  return 1
}
export -f until_true

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
until_true 60 pgrep -P "$lumerix" -f "$work/bin/lumerix-mpris" >/dev/null || fail "no helper started"
kill -TERM "$lumerix"
until_true 30 eval '! kill -0 "$lumerix" 2>/dev/null' || fail "Lumerix still running 30 s after SIGTERM"
wait "$lumerix" || fail "Lumerix exited with status $? after SIGTERM"
pgrep -f "$work/bin/lumerix-mpris" >/dev/null && fail "the stubborn helper outlived Lumerix"

for mode in stream serve; do
  echo "-- the $mode helper does not outlive a Lumerix killed with SIGKILL"
  dbus-run-session -- bash -c 2>"$work/bus.log" '
    XDG_CONFIG_HOME='"$work"'/config '"$build"'/lumerix --headless >/dev/null 2>&1 &
    lumerix=$!
    until_true 60 pgrep -P $lumerix -f "lumerix-mpris '"$mode"'" >/dev/null ||
      { echo "FAIL: no '"$mode"' helper started" >&2; exit 1; }
    helper=$(pgrep -P $lumerix -f "lumerix-mpris '"$mode"'")
    kill -KILL $lumerix
    until_true 30 eval "! kill -0 $helper 2>/dev/null" && exit 0
    echo "FAIL: lumerix-mpris '"$mode"' still running 30 s after Lumerix was killed" >&2
    exit 1
  ' || { grep FAIL "$work/bus.log" >&2; exit 1; }
done
echo "-- one poll helper for the whole run"
dbus-run-session -- bash -c 2>"$work/bus.log" '
  XDG_CONFIG_HOME='"$work"'/config '"$build"'/lumerix --headless >/dev/null 2>&1 &
  lumerix=$!
  until_true 60 pgrep -P $lumerix -f "lumerix-mpris serve" >/dev/null ||
    { echo "FAIL: no poll helper started" >&2; exit 1; }
  seen=""
  for _ in $(seq 30); do seen="$seen $(pgrep -P $lumerix -f "lumerix-mpris serve" || true)"; sleep 0.1; done
  kill -TERM $lumerix; wait $lumerix
  count=$(echo $seen | tr " " "\n" | sort -u | grep -c .)
  [[ $count -eq 1 ]] || { echo "FAIL: $count poll helpers in 3 s, not one" >&2; exit 1; }
' || { grep FAIL "$work/bus.log" >&2; exit 1; }
echo "processes: all good"
