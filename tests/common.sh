# Sourced by the checks that run real desktops and players.

# as_e2e_user SCRIPT ARG...: sway, VLC and Chromium refuse root, and mutter
# its XWayland when another user's X servers ran before; as root, run the
# script again as the unprivileged user lumerix-e2e (made when missing).
# Returns when not root.
as_e2e_user() {
  [[ $(id -u) -eq 0 ]] || return 0
  id lumerix-e2e >/dev/null 2>&1 || useradd --create-home --shell /bin/bash lumerix-e2e
  exec runuser -u lumerix-e2e -- bash "$@"
}

# stop_all PID...: SIGTERM to each, SIGKILL to any still running ten seconds
# later, and every one reaped. A compositor can hang on its way out (mutter
# once did, after every check had passed): a bare `wait` then held the whole
# run until CI's time ran out.
stop_all() {
  local pid deadline=$((SECONDS + 10))
  kill "$@" 2>/dev/null
  for pid; do
    # A child that has exited stays a zombie until reaped, which kill -0 counts as alive.
    while [[ $(ps -o stat= -p "$pid" 2>/dev/null) == [^Z]* ]] && ((SECONDS < deadline)); do sleep 0.1; done
    kill -9 "$pid" 2>/dev/null
    wait "$pid" 2>/dev/null
  done
  return 0
}

# still_clip FILE: two minutes of a dark, still picture, which keeps OCR to
# the bar; a real file, so players report a fixed length.
still_clip() {
  ffmpeg -loglevel error -y -f lavfi -i color=c=0x203050:s=320x180:d=120:r=25 -c:v libx264 -preset ultrafast \
    -g 25 -metadata title="Lumerix check" "$1"
}

# counting_subtitle FILE WORDS: a cue a second for two minutes, "WORDS N"
# from second N.
counting_subtitle() {
  local s
  for s in $(seq 0 119); do
    printf '%d\n00:%02d:%02d,000 --> 00:%02d:%02d,000\n%s %d\n\n' \
      $((s + 1)) $((s / 60)) $((s % 60)) $(((s + 1) / 60)) $(((s + 1) % 60)) "$2" "$s"
  done >"$1"
}

# scratch_dir LABEL: a fresh folder in $work, removed at exit unless
# LUMERIX_GUI_KEEP=1 keeps it (and its screenshots) for a look afterwards.
scratch_dir() {
  work=$(mktemp -d)
  if [[ -n ${LUMERIX_GUI_KEEP:-} ]]; then echo "$1: screenshots in $work"; else trap 'rm -rf "$work"' EXIT; fi
}
