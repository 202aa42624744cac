#!/usr/bin/env python3
"""Lumerix following a real mpv over MPRIS, checked against mpv's own clock.

Runs inside a D-Bus session and an X server (see run-mpv.sh). mpv plays a
clip whose subtitle has one cue a second, numbered by its start second, so
the cue Lumerix shows must be floor(mpv's time-pos). The script plays,
pauses, seeks both ways, toggles full screen and finally quits mpv, and
fails when the shown cue is wrong outside a short settling time after each
event. It prints the error of cue changes against the true boundaries and
the settling time after each seek.
"""
import json, os, signal, socket, statistics, subprocess, sys, threading, time

from e2e_common import Follower, arguments, counting_subtitle, pct, quit_failures, verdict

SETTLE = 1.5        # s after an event in which a wrong cue is forgiven
NEAR_BOUNDARY = 0.15  # s around a cue boundary where either cue is fine
CLIP_SECONDS = 120

# (seconds after Lumerix starts, what to do)
SCRIPT = [
    (8.0, "pause"), (10.0, "resume"),
    (13.0, "seek -5"), (18.0, "seek +20"),
    (23.0, "fullscreen on"), (28.0, "seek -4"), (33.0, "fullscreen off"),
    (38.0, "quit"),
]


class Mpv:
    def __init__(self, path):
        self.sock = socket.socket(socket.AF_UNIX)
        self.sock.connect(path)
        self.buf = b""
        self.lock = threading.Lock()
        self.next_id = 0

    def call(self, *command):
        with self.lock:
            self.next_id += 1
            rid = self.next_id
            self.sock.sendall(json.dumps({"command": list(command), "request_id": rid}).encode() + b"\n")
            while True:
                while b"\n" not in self.buf:
                    chunk = self.sock.recv(65536)
                    if not chunk:
                        raise ConnectionError("mpv closed its socket")
                    self.buf += chunk
                line, self.buf = self.buf.split(b"\n", 1)
                msg = json.loads(line)
                if msg.get("request_id") == rid:
                    return msg.get("data")


def wait_for(cond, timeout, what):
    end = time.monotonic() + timeout
    while time.monotonic() < end:
        if cond():
            return
        time.sleep(0.05)
    sys.exit(f"e2e: timed out waiting for {what}")


def main():
    args = arguments()
    clip, sock = (os.path.join(args.work, n) for n in ("clip.mp4", "mpv.sock"))
    srt = counting_subtitle(args.work, CLIP_SECONDS)

    openbox = subprocess.Popen(["openbox"], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    mpv = subprocess.Popen(["mpv", "--no-config", "--script=/usr/lib/mpv-mpris/mpris.so", "--ao=null", "--vo=x11",
                            "--no-terminal", "--sub-auto=no", "--geometry=640x360+100+100", f"--input-ipc-server={sock}",
                            "--keep-open=yes", clip])
    subprocess.run(["gdbus", "wait", "--session", "--timeout", "15", "org.mpris.MediaPlayer2.mpv"], check=True)
    wait_for(lambda: os.path.exists(sock), 10, "mpv's IPC socket")
    ipc = Mpv(sock)
    wait_for(lambda: (ipc.call("get_property", "time-pos") or 0) > 0.2, 10, "mpv to start playing")

    follower = Follower(args.lumerix, "mpv", srt, args.work)
    lum, t0, reader = follower.proc, follower.t0, follower.reader
    shown, positions, statuses, fullscreen = follower.shown, follower.positions, follower.statuses, follower.fullscreen

    samples = []  # (time, mpv time-pos, paused)
    events = []   # (time, what)
    alive = True

    def sample():
        while alive:
            try:
                before = time.monotonic()
                pos = ipc.call("get_property", "time-pos")
                paused = ipc.call("get_property", "pause")
                after = time.monotonic()
            except (ConnectionError, OSError):
                return
            if pos is not None:
                samples.append(((before + after) / 2 - t0, pos, paused))
            time.sleep(0.02)
    sampler = threading.Thread(target=sample, daemon=True)
    sampler.start()

    for at, what in SCRIPT:
        time.sleep(max(0, t0 + at - time.monotonic()))
        events.append((time.monotonic() - t0, what))
        if what == "pause":
            ipc.call("set_property", "pause", True)
        elif what == "resume":
            ipc.call("set_property", "pause", False)
        elif what.startswith("seek"):
            ipc.call("seek", float(what.split()[1]), "relative+exact")
        elif what.startswith("fullscreen"):
            ipc.call("set_property", "fullscreen", what.endswith("on"))
        elif what == "quit":
            alive = False
            ipc.call("quit")
    mpv.wait(timeout=10)
    quit_at = events[-1][0]
    time.sleep(5)
    still_running = lum.poll() is None
    lum.send_signal(signal.SIGTERM)
    code = lum.wait(timeout=10)
    reader.join(timeout=5)
    openbox.terminate()

    failures = quit_failures("mpv", still_running, code, statuses, quit_at)
    fs_on = next((t for t, on in fullscreen if on), None)
    if fs_on is None:
        failures.append("full screen was never detected")

    def shown_at(t):
        cue = None
        for when, c in shown:
            if when > t:
                break
            cue = c
        return cue

    def settling(t):
        return any(0 <= t - e < SETTLE for e, _ in events)

    wrong = []
    for t, pos, paused in samples:
        if t < 2 or t > quit_at or settling(t):
            continue
        expected = int(pos)
        near = abs(pos - round(pos)) < NEAR_BOUNDARY
        got = shown_at(t)
        if got != expected and not (near and got in (expected - 1, expected + 1)):
            wrong.append((round(t, 2), round(pos, 3), got))
    if wrong:
        failures.append(f"{len(wrong)} samples showed the wrong cue, first: {wrong[:5]}")

    # mpv's position moves in frame steps (40 ms at 25 fps); a line fitted
    # through the samples of the second around a moment is its clock then.
    def fitted(t):
        near = [(u, p) for u, p, paused in samples if abs(u - t) <= 1.0 and not paused]
        if len(near) < 20 or any(abs(e - t) <= 1.0 for e, _ in events):
            return None
        mu = statistics.mean(u for u, _ in near)
        mp = statistics.mean(p for _, p in near)
        slope = sum((u - mu) * (p - mp) for u, p in near) / sum((u - mu) ** 2 for u, _ in near)
        return lambda x: mp + slope * (x - mu), slope

    # Cue changes in steady playback against the moment mpv crossed that
    # second; and how far the position Lumerix used was from mpv's then
    # (the clock's own error, which no timing of the ticks can remove).
    errors, clock_errors = [], []
    for (t, cue), (prev_t, _), (_, pos) in zip(shown[1:], shown, positions[1:]):
        if cue is None or t < 2 or t > quit_at or settling(t) or settling(prev_t):
            continue
        fit = fitted(t)
        if fit is None:
            continue
        line, slope = fit
        if abs(line(t) - cue) > 0.9:
            continue  # not a boundary crossing (a seek landed here)
        errors.append(t - (t + (cue - line(t)) / slope))
        if pos is not None:
            clock_errors.append(line(t) - pos)  # + = Lumerix's clock behind mpv's

    settles = []
    for at, what in events:
        if not what.startswith("seek"):
            continue
        window = [s for s in samples if s[0] >= at]
        settled = None
        for i, (t, pos, _) in enumerate(window):
            if all(shown_at(u) == int(p) or abs(p - round(p)) < NEAR_BOUNDARY
                   for u, p, _ in window[i:] if u <= t + 1.0):
                settled = t - at
                break
        settles.append((what, settled))

    print("Lumerix following mpv over MPRIS (Xvfb, openbox, mpv-mpris):")
    if errors:
        absolute = [abs(e) for e in errors]
        late = [max(0.0, e) for e in errors]
        print(f"  cue changes: {len(errors)}, error against the true boundary (ms): "
              f"p50 {pct(absolute, .5) * 1000:.0f}, p95 {pct(absolute, .95) * 1000:.0f}, "
              f"max {max(absolute) * 1000:.0f}; mean signed {statistics.mean(errors) * 1000:+.0f} (+ = late); "
              f"late p95 {pct(late, .95) * 1000:.0f}, earliest {min(errors) * 1000:+.0f}")
    if clock_errors:
        absolute = [abs(e) for e in clock_errors]
        print(f"  the clock at those changes, against mpv's (ms): p50 {pct(absolute, .5) * 1000:.0f}, "
              f"p95 {pct(absolute, .95) * 1000:.0f}; mean signed {statistics.mean(clock_errors) * 1000:+.0f} (+ = behind)")
        beyond = [e - c for e, c in zip(errors, clock_errors)]
        print(f"  change late beyond the clock's error (ms): p50 {pct(beyond, .5) * 1000:+.0f}, "
              f"p95 {pct(beyond, .95) * 1000:+.0f}")
    for what, settled in settles:
        print(f"  {what}: back on the right cue after " + (f"{settled * 1000:.0f} ms" if settled is not None else "never"))
    print(f"  full screen detected {'%.2f s after the toggle' % (fs_on - events[4][0]) if fs_on else 'never'}; "
          f"samples checked: {len(samples)}")
    if len(errors) < 10:
        failures.append(f"only {len(errors)} cue changes measured")
    for what, settled in settles:
        if settled is None or settled > SETTLE:
            failures.append(f"{what}: not settled within {SETTLE} s")
    return verdict(failures)


if __name__ == "__main__":
    sys.exit(main())
