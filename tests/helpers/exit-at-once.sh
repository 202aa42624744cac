#!/bin/sh
# Fake helper that dies at once; each launch leaves a line in $1.
echo launched >> "$1"
exit 3
