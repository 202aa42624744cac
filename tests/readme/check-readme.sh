#!/usr/bin/env bash
# The README's commands for Linux, run as written: every `build/lumerix` line
# in its sh blocks (up to the macOS section) that needs neither a player nor a
# display, each checked for what the README says it does. A README that
# drifts from the program fails here before a new user finds out.
#   tests/readme/check-readme.sh BUILD_DIR
set -uo pipefail
root=$(cd "$(dirname "$0")/../.." && pwd)
build=$(cd "${1:?usage: check-readme.sh BUILD_DIR}" && pwd)
readme=$root/README.md
failures=0
fail() { echo "README: $*" >&2; failures=$((failures + 1)); }

# The fenced sh blocks of the Linux part, one command a line.
commands=$(awk '/^## Building on macOS/ { exit }
  /^```sh$/ { inside = 1; next } /^```/ { inside = 0; next } inside' "$readme")
[[ -n $commands ]] || fail "no sh blocks found"

# Only the program as built: a bare `lumerix` is not on the PATH before install.
while IFS= read -r line; do
  [[ $line =~ ^lumerix([[:space:]]|$) ]] && fail "'$line' runs lumerix from the PATH; before the install it is build/lumerix"
done <<<"$commands"

# The usage synopsis names every option --help names, and no other.
help=$("$build/lumerix" --help) || fail "build/lumerix --help exited with $?"
synopsis=$(awk '/^## Using it/ { on = 1 } on && /^```$/ { n++; if (n == 2) exit; next } on && n == 1' "$readme")
for option in $(grep -oE -- '--[a-z-]+' <<<"$help" | sort -u); do
  grep -qF -- "$option" <<<"$synopsis" || fail "the usage block does not show $option, which --help lists"
done
for option in $(grep -oE -- '--[a-z-]+' <<<"$synopsis" | sort -u); do
  grep -qF -- "$option" <<<"$help" || fail "the usage block shows $option, which --help does not know"
done

ran=0
while IFS= read -r line; do
  [[ $line =~ ^build/lumerix[[:space:]] ]] || continue
  read -r -a words <<<"${line#build/lumerix }"
  case "${words[*]}" in
    --help)
      grep -q '^Usage: lumerix' <<<"$help" || fail "--help printed no usage"
      ;;
    "--dump-cues "*)
      out=$(cd "$root" && "$build/lumerix" "${words[@]}") || fail "'$line' exited with $?"
      [[ $out == '[{"start":'* ]] || fail "'$line' printed no cues: ${out:0:80}"
      ;;
    "--demo --headless")
      # It runs until Ctrl-C: once the first cue is out, SIGINT (the bound
      # is for a run that never gets there, however busy the machine).
      out_file=$(mktemp)
      (cd "$root" && exec "$build/lumerix" "${words[@]}" >"$out_file") &
      pid=$!
      for _ in $(seq 600); do
        grep -q '"text":"Lumerix is listening."' "$out_file" && break
        kill -0 $pid 2>/dev/null || break
        sleep 0.1
      done
      kill -INT $pid 2>/dev/null
      wait $pid && status=0 || status=$?
      out=$(<"$out_file")
      rm -f "$out_file"
      [[ $status -eq 0 ]] || fail "'$line' did not stop cleanly on Ctrl-C (status $status)"
      grep -q '"text":"Lumerix is listening."' <<<"$out" || fail "'$line' did not print the first cue"
      ;;
    *) continue ;;  # needs a player or a display
  esac
  ran=$((ran + 1))
done <<<"$commands"
[[ $ran -ge 3 ]] || fail "only $ran of the README's display-free commands were found (want --help, --dump-cues, --demo --headless)"

[[ $failures -eq 0 ]] && echo "README: $ran commands behave as written"
exit $((failures > 0))
