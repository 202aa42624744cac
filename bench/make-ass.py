#!/usr/bin/env python3
"""Writes an Advanced SubStation script of valid events for reader benchmarks.

   make-ass.py OUT [BYTES] [--crlf]

The same dialogue as make-subrip.py writes (English lines, now and then a
word with an accent or an italic line, one or two lines an event joined by
\\N), in a script as typesetting tools save it: script info, two styles and
the events in the usual v4+ format. Now and then a sign
is drawn twice (a layer and its shadow copy), and the times start over
every 3000 events, as in a season of episodes put into one file. The same
arguments always give the same file.
"""
import random
import sys

args = [a for a in sys.argv[1:] if not a.startswith("--")]
if not args:
    sys.exit(__doc__)
target = int(args[1]) if len(args) > 1 else 50_000_000
words = ("I you we they it the a to and of in on at for with that this what where when why how no yes "
         "not never always again now then here there train station ticket midnight morning nobody everyone "
         "knows think wait come go look listen please sorry thank tell me him her us them door window road "
         "house city night day tomorrow yesterday café déjà vu señor naïve").split()
random.seed(7)
nl = "\r\n" if "--crlf" in sys.argv else "\n"
header = nl.join([
    "[Script Info]", "; generated for the reader benchmarks", "Title: Benchmark", "ScriptType: v4.00+",
    "WrapStyle: 0", "PlayResX: 1920", "PlayResY: 1080", "ScaledBorderAndShadow: yes", "",
    "[V4+ Styles]",
    "Format: Name, Fontname, Fontsize, PrimaryColour, SecondaryColour, OutlineColour, BackColour, Bold, Italic, "
    "Underline, StrikeOut, ScaleX, ScaleY, Spacing, Angle, BorderStyle, Outline, Shadow, Alignment, MarginL, "
    "MarginR, MarginV, Encoding",
    "Style: Default,Arial,56,&H00FFFFFF,&H000000FF,&H00000000,&H64000000,0,0,0,0,100,100,0,0,1,2.5,1,2,60,60,45,1",
    "Style: Sign,Arial,40,&H00FFFFFF,&H000000FF,&H00000000,&H64000000,0,0,0,0,100,100,0,0,1,2,0,8,60,60,45,1",
    "", "[Events]", "Format: Layer, Start, End, Style, Name, MarginL, MarginR, MarginV, Effect, Text", ""])


def clock(x):
    cs = int(round(x * 100))
    return "%d:%02d:%02d.%02d" % (cs // 360000, cs // 6000 % 60, cs // 100 % 60, cs % 100)


out, size = [header], len(header.encode())
while size < target:
    t = 1.0
    for k in range(3000):
        d = 1.0 + random.randrange(300) / 100
        lines = []
        for _ in range(random.randrange(1, 3)):
            line = " ".join(random.choice(words) for _ in range(random.randrange(3, 9))).capitalize() + "."
            if random.randrange(12) == 0:
                line = "{\\i1}" + line + "{\\i0}"
            lines.append(line)
        span = f"{clock(t)},{clock(t + d)}"
        event = "Dialogue: 0," + span + ",Default,,0,0,0,," + "\\N".join(lines) + nl
        if random.randrange(20) == 0:
            sign = random.choice(words).upper()
            event += "Dialogue: 1," + span + ",Sign,,0,0,0,,{\\an8\\pos(960,80)}" + sign + nl
            event += "Dialogue: 0," + span + ",Sign,,0,0,0,,{\\an8\\pos(962,82)\\1c&H000000&\\blur3}" + sign + nl
        out.append(event)
        size += len(event.encode())
        t += d + 0.2
        if size >= target:
            break
with open(args[0], "w", encoding="utf-8", newline="") as f:
    f.write("".join(out))
