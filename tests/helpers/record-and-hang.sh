#!/bin/sh
# Fake helper that never answers: notes its pid in $1 and starts a
# grandchild, then waits. Whatever stops it must stop the grandchild too.
echo $$ >> "$1"
sleep 300 &
wait
