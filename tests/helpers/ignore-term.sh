#!/bin/sh
# Fake helper that will not stop when asked: ignores SIGTERM, notes its pid
# in $1, says something on stdout now and then, and runs forever.
trap '' TERM
echo $$ >> "$1"
while :; do
  echo '{"type":"data","diff":true,"payload":{}}'
  sleep 1
done
