#!/bin/sh
# Fake poll helper: prints whatever the test last wrote to the file in $1,
# after an optional delay in $2 seconds (a slow player).
[ -n "$2" ] && sleep "$2"
cat "$1"
