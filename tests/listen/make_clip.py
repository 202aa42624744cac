#!/usr/bin/env python3
"""Test clips for sync by listening, made from nothing but a subtitle.

  make_clip.py subtitle OUT.srt [--cues N] [--seed S] [--start SECONDS] [--pauses SCALE]
      writes a plausible subtitle: N lines of dialogue, each as long as it
      takes to say, with the pauses of a conversation between them.
  make_clip.py clip SUBTITLE OUT.mp4 [--music-db DB] [--no-voice] [--unspoken SHARE]
                    [--uncued N] [--seed S] [--truth OUT.json]
      speaks each cue's text at its time with espeak-ng (voices, pitch and
      speed vary from line to line) over a music bed made with sox, and
      muxes the sound with a still picture with ffmpeg.

--music-db: the bed's loudness below the voice in dB (e.g. 10); absent,
no music. --no-voice: the bed alone, as long as the clip would be.
--unspoken: the share of cues never spoken (a sign, a song's lyrics).
--uncued: sentences spoken in pauses where no cue is. --truth: where each
spoken sentence lies, cued or not, for a look afterwards.
Needs espeak-ng, sox and ffmpeg. Nothing here is kept but what is asked for.
"""
import argparse
import json
import os
import random
import re
import subprocess
import sys
import tempfile
import wave

RATE = 22050  # espeak-ng's own rate: no resampling until the mix
VOICES = ["en-us+f3", "en-gb+m4", "en-us+m3", "en-gb+f2", "en-us+m7", "en-gb-scotland+f4"]

WORDS = ("the a we you they it this that there here now then never always maybe only still just again "
         "boat river city road house window door letter train morning evening winter summer night dinner "
         "money doctor teacher sister brother captain mother father friend neighbour stranger message "
         "bring take leave find keep tell show give open close carry follow remember forget promise "
         "quickly slowly tomorrow yesterday tonight before after inside outside across under behind "
         "cold warm late early broken quiet strange careful honest ready tired lucky").split()


def sentence(rng):
    n = rng.randint(3, 11)
    text = " ".join(rng.choice(WORDS) for _ in range(n))
    return text[0].upper() + text[1:] + rng.choice([".", ".", "?", "!"])


def speak(text, voice, pitch, speed, path):
    subprocess.run(["espeak-ng", "-v", voice, "-p", str(pitch), "-s", str(speed), "-w", path, text],
                   check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    with wave.open(path, "rb") as w:
        assert w.getframerate() == RATE and w.getnchannels() == 1 and w.getsampwidth() == 2
        data = w.readframes(w.getnframes())
    return trim_silence(data)


def trim_silence(data, threshold=300):
    """The sentence without espeak's silence around it: speech starts at the cue."""
    import array
    a = array.array("h", data)
    first = next((i for i, v in enumerate(a) if abs(v) > threshold), len(a))
    last = next((i for i in range(len(a) - 1, -1, -1) if abs(a[i]) > threshold), first)
    return a[first:last + 1].tobytes()


def seconds(data):
    return len(data) / 2 / RATE


def fmt(t):
    ms = int(round(t * 1000))
    return "%02d:%02d:%02d,%03d" % (ms // 3600000, ms // 60000 % 60, ms // 1000 % 60, ms % 1000)


def parse_time(s):
    h, m, rest = s.strip().replace(".", ",").split(":")
    sec, ms = rest.split(",")
    return int(h) * 3600 + int(m) * 60 + int(sec) + int(ms.ljust(3, "0")[:3]) / 1000


def read_srt(path):
    text = open(path, encoding="utf-8-sig").read().replace("\r\n", "\n")
    cues = []
    for block in re.split(r"\n\s*\n", text):
        lines = [l for l in block.strip().split("\n") if l.strip()]
        for i, line in enumerate(lines):
            m = re.match(r"(\S+)\s*-->\s*(\S+)", line)
            if m:
                body = " ".join(re.sub(r"<[^>]+>|\{[^}]*\}", "", l) for l in lines[i + 1:])
                cues.append((parse_time(m.group(1)), parse_time(m.group(2)), body.strip()))
                break
    return cues


def make_subtitle(args):
    rng = random.Random(args.seed)
    t = args.start
    out = []
    for i in range(args.cues):
        text = sentence(rng)
        # About what espeak-ng takes at its speeds here, and a little more:
        # a subtitle stays up a moment after the line is said.
        length = 0.35 + 0.068 * len(text) + rng.uniform(0.1, 0.5)
        out.append("%d\n%s --> %s\n%s\n" % (i + 1, fmt(t), fmt(t + length), text))
        # Mostly quick exchanges, now and then a longer pause.
        t += length + args.pauses * rng.choice([0.2, 0.4, 0.6, 0.9, 1.3, 2.0, 3.5]) * rng.uniform(0.7, 1.3)
    with open(args.out, "w", encoding="utf-8") as f:
        f.write("\n".join(out))


def sox_rms_db(path):
    out = subprocess.run(["sox", path, "-n", "stats"], check=True, capture_output=True, text=True).stderr
    m = re.search(r"RMS lev dB\s+(-?[\d.]+|-inf)", out)
    return float(m.group(1)) if m and m.group(1) != "-inf" else -120.0


def music_bed(duration, path, tmp, rng):
    """A plucked arpeggio over a slowly swelling pad and a little pink noise."""
    notes = [130.81, 164.81, 196.0, 261.63, 220.0, 174.61, 146.83, 196.0]
    rng.shuffle(notes)
    parts = []
    for i, f in enumerate(notes):
        p = os.path.join(tmp, "note%d.wav" % i)
        subprocess.run(["sox", "-n", "-r", str(RATE), "-c", "1", "-b", "16", p, "synth", "0.45", "pluck", str(f)],
                       check=True)
        parts.append(p)
    bar = os.path.join(tmp, "bar.wav")
    subprocess.run(["sox"] + parts + [bar], check=True)
    repeats = int(duration / (0.45 * len(notes))) + 1
    arp = os.path.join(tmp, "arp.wav")
    subprocess.run(["sox", bar, arp, "repeat", str(repeats), "trim", "0", "%.3f" % duration], check=True)
    pad = os.path.join(tmp, "pad.wav")
    subprocess.run(["sox", "-n", "-r", str(RATE), "-c", "1", "-b", "16", pad, "synth", "%.3f" % duration,
                    "sine", "110", "tremolo", "0.2", "60", "vol", "0.25"], check=True)
    noise = os.path.join(tmp, "noise.wav")
    subprocess.run(["sox", "-n", "-r", str(RATE), "-c", "1", "-b", "16", noise, "synth", "%.3f" % duration,
                    "pinknoise", "vol", "0.04"], check=True)
    subprocess.run(["sox", "-m", arp, pad, noise, path], check=True)


def make_clip(args):
    rng = random.Random(args.seed)
    cues = read_srt(args.subtitle)
    if not cues:
        sys.exit("make_clip.py: no cues in %s" % args.subtitle)
    end = max(e for _, e, _ in cues) + 3.0
    spans = []  # (start, bytes, cued)
    with tempfile.TemporaryDirectory(prefix="lumerix-clip-") as tmp:
        wav = os.path.join(tmp, "line.wav")
        for start, stop, text in cues:
            if not text or rng.random() < args.unspoken:
                continue
            voice = rng.choice(VOICES)
            pitch = rng.randint(25, 75)
            speed = rng.randint(150, 190)
            data = speak(text, voice, pitch, speed, wav)
            room = max(0.3, stop - start)
            if seconds(data) > room:  # say it faster rather than run into the next line
                speed = min(320, int(speed * seconds(data) / room) + 5)
                data = speak(text, voice, pitch, speed, wav)
            spans.append((start, data[: int(room * RATE) * 2], True))
        # Speech where no cue is: in the longest pauses between lines.
        gaps = sorted(((cues[i + 1][0] - cues[i][1], cues[i][1]) for i in range(len(cues) - 1)), reverse=True)
        for length, at in gaps[: args.uncued]:
            if length < 2.0:
                break
            data = speak(sentence(rng), rng.choice(VOICES), rng.randint(25, 75), 200, wav)
            data = data[: int((length - 1.0) * RATE) * 2]
            spans.append((at + 0.5, data, False))
        spans.sort(key=lambda s: s[0])

        # The voice track, built by placing each line at its time; a line
        # that would run into the next is cut short.
        track = bytearray()
        truth = []
        for i, (start, data, cued) in enumerate(spans):
            at = int(round(start * RATE)) * 2
            if len(track) < at:
                track.extend(bytes(at - len(track)))
            track = track[:at]
            limit = int(round(spans[i + 1][0] * RATE)) * 2 - at if i + 1 < len(spans) else len(data)
            piece = data[:limit]
            track.extend(piece)
            truth.append({"start": round(start, 3), "end": round(start + seconds(piece), 3), "cued": cued})
        total = int(round(end * RATE)) * 2
        track.extend(bytes(max(0, total - len(track))))
        track = track[:total]
        voice = os.path.join(tmp, "voice.wav")
        with wave.open(voice, "wb") as w:
            w.setnchannels(1)
            w.setsampwidth(2)
            w.setframerate(RATE)
            w.writeframes(bytes(track))
        # The voice's loudness is taken over the speech alone, so the bed
        # sits the asked number of dB below what is said, not below the pauses.
        spoken = os.path.join(tmp, "spoken.wav")
        with wave.open(spoken, "wb") as w:
            w.setnchannels(1)
            w.setsampwidth(2)
            w.setframerate(RATE)
            w.writeframes(b"".join(d for _, d, _ in spans) or bytes(2 * RATE))
        voice_db = sox_rms_db(spoken)

        mix = os.path.join(tmp, "mix.wav")
        if args.music_db is not None:
            music = os.path.join(tmp, "music.wav")
            music_bed(end, music, tmp, rng)
            gain = voice_db - args.music_db - sox_rms_db(music)
            level = os.path.join(tmp, "music-level.wav")
            subprocess.run(["sox", music, level, "gain", "%.2f" % gain], check=True)
            if args.no_voice:
                mix = level
            else:
                subprocess.run(["sox", "-m", "-v", "0.9", voice, "-v", "0.9", level, mix], check=True)
        elif args.no_voice:
            subprocess.run(["sox", "-n", "-r", str(RATE), "-c", "1", "-b", "16", mix, "trim", "0", "%.3f" % end],
                           check=True)
        else:
            mix = voice
        subprocess.run(["ffmpeg", "-loglevel", "error", "-y", "-f", "lavfi", "-i",
                        "color=c=0x203050:s=320x180:r=25:d=%.3f" % end, "-i", mix, "-c:v", "libx264",
                        "-preset", "ultrafast", "-tune", "stillimage", "-g", "25", "-c:a", "aac", "-b:a", "96k",
                        "-shortest", "-metadata", "title=Lumerix sound check", args.out], check=True)
    if args.truth:
        with open(args.truth, "w") as f:
            json.dump({"duration": round(end, 3), "speech": truth}, f, indent=1)


def main():
    p = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    sub = p.add_subparsers(dest="command", required=True)
    s = sub.add_parser("subtitle")
    s.add_argument("out")
    s.add_argument("--cues", type=int, default=40)
    s.add_argument("--seed", type=int, default=1)
    s.add_argument("--start", type=float, default=2.0)
    s.add_argument("--pauses", type=float, default=1.0, help="the pauses between lines, scaled")
    c = sub.add_parser("clip")
    c.add_argument("subtitle")
    c.add_argument("out")
    c.add_argument("--music-db", type=float)
    c.add_argument("--no-voice", action="store_true")
    c.add_argument("--unspoken", type=float, default=0.0)
    c.add_argument("--uncued", type=int, default=0)
    c.add_argument("--seed", type=int, default=1)
    c.add_argument("--truth")
    args = p.parse_args()
    make_subtitle(args) if args.command == "subtitle" else make_clip(args)


if __name__ == "__main__":
    main()
