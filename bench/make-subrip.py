#!/usr/bin/env python3
"""Writes a SubRip file of valid cues for reader benchmarks.

   make-subrip.py OUT [BYTES] [--crlf]

Dialogue-like English lines (now and then a word with an accent, an italic
line), one or two lines a cue, hours below 100, and the times starting over
every 3000 cues, as in a season of episodes put into one file. The same
arguments always give the same file.
"""
import random
import sys

args = [a for a in sys.argv[1:] if not a.startswith("--")]
crlf = "--crlf" in sys.argv
if not args:
    sys.exit(__doc__)
target = int(args[1]) if len(args) > 1 else 50_000_000
words = ("I you we they it the a to and of in on at for with that this what where when why how no yes "
         "not never always again now then here there train station ticket midnight morning nobody everyone "
         "knows think wait come go look listen please sorry thank tell me him her us them door window road "
         "house city night day tomorrow yesterday café déjà vu señor naïve").split()
random.seed(7)
nl = "\r\n" if crlf else "\n"


def clock(x):
    ms = int(round(x * 1000))
    return "%02d:%02d:%02d,%03d" % (ms // 3600000, ms // 60000 % 60, ms // 1000 % 60, ms % 1000)


out, size = [], 0
while size < target:
    t = 1.0
    for k in range(3000):
        d = 1.0 + random.randrange(3000) / 1000
        lines = []
        for _ in range(random.randrange(1, 3)):
            line = " ".join(random.choice(words) for _ in range(random.randrange(3, 9))).capitalize() + "."
            if random.randrange(12) == 0:
                line = "<i>" + line + "</i>"
            lines.append(line)
        block = f"{k + 1}{nl}{clock(t)} --> {clock(t + d)}{nl}{nl.join(lines)}{nl}{nl}"
        out.append(block)
        size += len(block.encode())
        t += d + 0.2
        if size >= target:
            break
with open(args[0], "w", encoding="utf-8", newline="") as f:
    f.write("".join(out))
