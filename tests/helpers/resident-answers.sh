#!/bin/sh
# Fake resident poll helper: answers each request line on stdin with what
# the file in $1 holds at that moment, noting its pid in $2 per answer. The
# words "hang" and "exit" in the file make it stop answering (a stuck
# player) or die halfway through an answer.
while read -r request; do
  answer=$(cat "$1")
  echo $$ >> "$2"
  case "$answer" in
    hang) sleep 300 & wait ;;
    exit) printf 'true|1'; exit 0 ;;
  esac
  echo "$answer"
done
