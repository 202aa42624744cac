#!/usr/bin/env python3
"""How well sync by listening does on generated clips (see listen-accuracy).

Each clip: a made-up subtitle spoken line by line by espeak-ng (voices,
pitch and speed vary by line), over a music bed from silent to 10 dB under
the voice, some lines never spoken and some speech with no line; mpv plays
it, and Lumerix listens with a copy of the subtitle shifted by an offset
in -30..+30 s and stretched by one of the frame-rate presets in turn.
Prints a line per clip, then the figures.
"""
import argparse, json, os, random, statistics, subprocess, sys, tempfile, time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "tests", "listen"))
import listen_trial  # noqa: E402

MUSIC = [None, 20, 15, 12, 10]  # dB under the voice; None: no music


def detector_figures(clip, truth, speech_frames):
    """Share of the spoken frames each detector hears, and of the others it
    takes for speech; from the clip's own sound, without playing it."""
    raw = subprocess.run(["ffmpeg", "-loglevel", "error", "-i", clip, "-f", "s16le", "-ac", "1", "-ar", "16000", "-"],
                         check=True, capture_output=True).stdout
    spans = json.load(open(truth))["speech"]
    out = {}
    for name in ("webrtc", "portable"):
        v = subprocess.run([speech_frames, name], input=raw, capture_output=True, check=True).stdout.decode().strip()
        said = [False] * len(v)
        for s in spans:
            for i in range(int(s["start"] * 100), min(len(v), int(s["end"] * 100))):
                said[i] = True
        hit = sum(1 for a, b in zip(v, said) if a == "1" and b)
        false = sum(1 for a, b in zip(v, said) if a == "1" and not b)
        out[name] = (hit / max(1, sum(said)), false / max(1, len(v) - sum(said)))
    return out


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--lumerix", required=True)
    ap.add_argument("--speech-frames")
    ap.add_argument("--clips", type=int, default=21)
    ap.add_argument("--cues", type=int, default=45)
    ap.add_argument("--seed", type=int, default=1)
    args = ap.parse_args()
    rng = random.Random(args.seed)
    rows = []
    t_start = time.monotonic()
    with tempfile.TemporaryDirectory(prefix="lumerix-bench-") as work:
        for i in range(args.clips):
            seed = args.seed * 1000 + i
            offset = round(rng.uniform(-30, 30), 3)
            scale = listen_trial.PRESETS[i % len(listen_trial.PRESETS)]
            music = MUSIC[i % len(MUSIC)]
            unspoken = 0.1 if i % 3 == 1 else 0.0
            uncued = 3 if i % 3 == 2 else 0
            said = os.path.join(work, "said%d.srt" % i)
            clip = os.path.join(work, "clip%d.mp4" % i)
            truth = os.path.join(work, "truth%d.json" % i)
            listen_trial.make_subtitle(said, cues=args.cues, seed=seed)
            listen_trial.make_clip(said, clip, seed=seed, music_db=music, unspoken=unspoken, uncued=uncued,
                                   truth=truth)
            srt = os.path.join(work, "clip%d.srt" % i)
            listen_trial.retime(said, srt, offset, scale)
            got = listen_trial.run(args.lumerix, work, clip, srt, timeout=110)
            r = got["result"]
            row = {"clip": i, "offset": offset, "scale": scale, "music": music, "unspoken": unspoken,
                   "uncued": uncued, "seconds": got["seconds"], "cpu": got["cpu"], "result": r}
            if r is not None:
                row["error"] = r["offset"] - offset
                row["scale_ok"] = abs(r["scale"] - scale) < 1e-5
            if args.speech_frames:
                row["detectors"] = detector_figures(clip, truth, args.speech_frames)
            rows.append(row)
            what = "no result (%s)" % ("gave up" if got["ended"] else "time limit") if r is None else \
                "offset %+.3f (error %+.3f s), scale %.6f%s" % (r["offset"], row["error"], r["scale"],
                                                               "" if row["scale_ok"] else " WRONG RATE")
            det = ""
            if "detectors" in row:
                d = row["detectors"]
                det = "; speech heard/false: webrtc %.2f/%.2f, portable %.2f/%.2f" % (
                    d["webrtc"][0], d["webrtc"][1], d["portable"][0], d["portable"][1])
            print("clip %2d: offset %+7.3f s, scale %.6f, music %s, unspoken %.0f %%, uncued %d -> %s after %s s, "
                  "CPU %s%s" % (i, offset, scale, "none" if music is None else "-%d dB" % music, 100 * unspoken,
                                uncued, what, got["seconds"],
                                "%.2f %%" % (100 * got["cpu"]) if got["cpu"] is not None else "?", det), flush=True)

    n = len(rows)
    synced = [r for r in rows if r["result"] is not None]
    right = [r for r in synced if r["scale_ok"]]
    within = lambda s: sum(1 for r in right if abs(r["error"]) <= s)
    wrong = [r for r in synced if not r["scale_ok"] or abs(r["error"]) > 0.5]
    times = [r["seconds"] for r in synced if r["seconds"] is not None]
    cpus = [r["cpu"] for r in rows if r["cpu"] is not None]
    print()
    print("clips: %d, synced: %d, no result: %d" % (n, len(synced), n - len(synced)))
    print("within 0.1 s (and the right rate): %d of %d = %.0f %%   (goal >= 90 %%)" % (within(0.1), n, 100 * within(0.1) / n))
    print("within 0.25 s (and the right rate): %d of %d = %.0f %%" % (within(0.25), n, 100 * within(0.25) / n))
    print("wrong results applied (off by more than 0.5 s or a wrong rate): %d   (goal 0)" % len(wrong))
    if right:
        errs = sorted(abs(r["error"]) for r in right)
        print("offset error of right-rate results: median %.3f s, worst %.3f s" % (statistics.median(errs), errs[-1]))
    if times:
        print("seconds of listening to a result: median %.1f, worst %.1f   (goal: median <= 30)" %
              (statistics.median(times), max(times)))
    if cpus:
        print("CPU of Lumerix while listening: mean %.2f %%, worst %.2f %% of a core   (goal <= 2 %%)" %
              (100 * statistics.mean(cpus), 100 * max(cpus)))
    if args.speech_frames:
        for name in ("webrtc", "portable"):
            hits = [r["detectors"][name][0] for r in rows]
            falses = [r["detectors"][name][1] for r in rows]
            print("detector %-8s: speech heard %.0f %%, pauses taken for speech %.0f %% (mean over clips)" %
                  (name, 100 * statistics.mean(hits), 100 * statistics.mean(falses)))
    print("took %.0f s" % (time.monotonic() - t_start))


if __name__ == "__main__":
    main()
