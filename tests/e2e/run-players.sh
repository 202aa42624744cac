#!/usr/bin/env bash
# Every player Lumerix is checked against, one after the other, each with
# its figures (run-player.sh and run-mpv.sh say how). Not in CI: Firefox,
# Celluloid and Totem are large installs; CI checks mpv, VLC and Chromium.
# A player that is not installed is skipped and named at the end.
# Usage: tests/e2e/run-players.sh [BUILD_DIR] [PLAYER...]   (default: build, all)
# Needs: scripts/setup --ci, and sudo apt-get install firefox-esr celluloid totem
set -uo pipefail
cd "$(dirname "$0")/../.."
build=${1:-build}
shift || true
players=("$@")
((${#players[@]})) || players=(mpv vlc chromium firefox celluloid totem)
failed=() skipped=()
for p in "${players[@]}"; do
  echo "== $p"
  if [[ $p == mpv ]]; then
    bash tests/e2e/run-mpv.sh "$build"
  else
    bash tests/e2e/run-player.sh "$p" "$build"
  fi
  case $? in
    0) ;;
    2) skipped+=("$p") ;;
    *) failed+=("$p") ;;
  esac
done
((${#skipped[@]})) && echo "not run: ${skipped[*]}"
((${#failed[@]})) && { echo "failed: ${failed[*]}"; exit 1; }
echo "players: all that ran passed"
