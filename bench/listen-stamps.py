#!/usr/bin/env python3
"""Whether the capture's stamps say when a frame was played, by mpv's clock.

Run inside tests/listen/with-sound.sh, from a build with -DLUMERIX_BENCH=ON:
  bash tests/listen/with-sound.sh python3 bench/listen-stamps.py [BUILD_DIR] [SECONDS]
mpv plays a generated clip (no music) into the private sound server while
bench/hear_probe hears it; mpv's position is sampled over its IPC socket on
the same monotonic clock. Each heard speech onset is placed on mpv's clock
and compared with where the clip says that line starts; the same onsets
found by the detector in the file itself (no playing) tell the detector's
own lag apart from the stamps' error. Prints the median and spread of both.
The onsets heard live are also compared with the moment mpv is unpaused
(it starts paused): none can be heard before it.
"""
import bisect, json, os, socket, statistics, subprocess, sys, tempfile, threading, time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "tests", "listen"))
import listen_trial  # noqa: E402


def onsets(flags, frame_times, quiet=30):
    """Times of frames where speech starts after at least `quiet` frames without."""
    out, gap = [], quiet
    for f, t in zip(flags, frame_times):
        if f and gap >= quiet:
            out.append(t)
        gap = 0 if f else gap + 1
    return out


def matched(found, truth, within=0.8):
    diffs = []
    for t in found:
        i = bisect.bisect_left(truth, t)
        near = [x for x in truth[max(0, i - 1):i + 1]]
        if near:
            d = min((t - x for x in near), key=abs)
            if abs(d) <= within:
                diffs.append(d)
    return diffs


def main():
    build = os.path.realpath(sys.argv[1] if len(sys.argv) > 1 else "build")
    seconds = float(sys.argv[2]) if len(sys.argv) > 2 else 45
    with tempfile.TemporaryDirectory(prefix="lumerix-stamps-") as work:
        srt, clip, truth = (os.path.join(work, n) for n in ("said.srt", "clip.mp4", "truth.json"))
        listen_trial.make_subtitle(srt, cues=20, seed=5)
        listen_trial.make_clip(srt, clip, seed=5, truth=truth)
        starts = sorted(s["start"] for s in json.load(open(truth))["speech"])

        # The detector on the file itself: its own lag at each onset.
        raw = subprocess.run(["ffmpeg", "-loglevel", "error", "-i", clip, "-f", "s16le", "-ac", "1", "-ar", "16000",
                              "-"], check=True, capture_output=True).stdout
        v = subprocess.run([os.path.join(build, "bench", "speech_frames"), "webrtc"], input=raw,
                           capture_output=True, check=True).stdout.decode().strip()
        offline = matched(onsets([c == "1" for c in v], [i * 0.01 for i in range(len(v))]), starts)

        sock = os.path.join(work, "mpv.sock")
        # MPV_EXTRA: more mpv options, to see whether they move its clock.
        mpv = subprocess.Popen(["mpv", "--no-config", "--ao=pulse", "--vo=null", "--no-terminal",
                                f"--input-ipc-server={sock}", "--pause", clip] + os.environ.get("MPV_EXTRA", "").split(),
                               stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        # To a file: a pipe nobody reads until the end would stall the probe.
        heard = open(os.path.join(work, "heard.jsonl"), "w+")
        probe = subprocess.Popen([os.path.join(build, "bench", "hear_probe"), str(seconds)], stdout=heard,
                                 stderr=subprocess.PIPE, text=True)
        for _ in range(100):
            if os.path.exists(sock):
                break
            time.sleep(0.05)
        s = socket.socket(socket.AF_UNIX)
        s.connect(sock)
        time.sleep(1.0)  # mpv ready, paused at 0
        unpaused = time.monotonic()
        s.sendall(b'{"command": ["set_property", "pause", false]}\n')
        samples, buf = [], b""
        end = time.monotonic() + seconds - 1
        while time.monotonic() < end:
            a = time.monotonic()
            s.sendall(b'{"command": ["get_property", "time-pos"]}\n')
            while b"\n" not in buf:
                buf += s.recv(4096)
            line, buf = buf.split(b"\n", 1)
            b = time.monotonic()
            msg = json.loads(line)
            if isinstance(msg.get("data"), (int, float)) and b - a < 0.01:
                samples.append(((a + b) / 2, msg["data"]))
            time.sleep(0.05)
        _, err = probe.communicate()
        mpv.terminate()
        mpv.wait()
        heard.seek(0)
        out = heard.read()

    frames = [json.loads(l) for l in out.splitlines() if l.startswith("{")]
    ups = [u for u, _ in samples]

    def position(uptime):
        i = bisect.bisect_left(ups, uptime)
        if i == 0 or i >= len(ups):
            return None
        (u0, p0), (u1, p1) = samples[i - 1], samples[i]
        if p1 < p0 or u1 - u0 > 0.5:
            return None
        return p0 + (p1 - p0) * (uptime - u0) / (u1 - u0)

    placed = [(position(f["uptime"]), f["speech"]) for f in frames]
    placed = [(p, sp) for p, sp in placed if p is not None]
    live = matched(onsets([sp for _, sp in placed], [p for p, _ in placed]), starts)
    print("live onsets:", [round(x, 3) for x in live])
    print("frames heard: %d over %.0f s; mpv positions sampled: %d; %s" % (len(frames), seconds, len(samples),
                                                                          err.strip()))
    for name, d in (("in the file (the detector's own lag)", offline), ("heard live, on mpv's clock", live)):
        if d:
            print("speech onsets %s: %d, median %+.3f s, spread (p10..p90) %+.3f..%+.3f s" %
                  (name, len(d), statistics.median(d), sorted(d)[len(d) // 10], sorted(d)[len(d) * 9 // 10]))
        else:
            print("speech onsets %s: none matched" % name)
    # The clip's first line starts 2 s in: heard then, by the capture's own
    # stamps, whatever mpv's position says.
    first = next((f["uptime"] for f in frames if f["uptime"] > unpaused and f["speech"]), None)
    if first is not None and starts:
        print("first speech heard %+.3f s from where it plays after unpausing (by the capture's stamps alone, "
              "the detector's lag included)" % (first - unpaused - starts[0]))
    if offline and live:
        print("stamp error (live minus file): %+.3f s" % (statistics.median(live) - statistics.median(offline)))


if __name__ == "__main__":
    main()
