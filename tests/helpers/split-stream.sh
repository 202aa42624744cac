#!/bin/sh
# Fake now-playing stream: one line split across two writes, then two
# lines in one write, then garbage, then silence until killed.
echo $$ >> "$1"
printf '{"type":"data","diff":false,"payload":{"bundleIdentifier":"com.apple.TV","title":"Show S01E02","playing":true,"playbackRate":1,"elapsedTime":4'
sleep 0.2
printf '0.5}}\n'
sleep 0.2
printf 'not json\n{"type":"data","diff":true,"payload":{"title":"Show S01E03"}}\n{"type":"data","diff":true,"payload":{"elapsedTime":100}}\n'
exec sleep 300
