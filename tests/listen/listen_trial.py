"""One sync by listening against a real mpv, for the end-to-end check and
the accuracy benchmark. Runs inside a D-Bus session, an X server and a sound
server whose default output plays into nothing (see tests/e2e/run-listen.sh).
"""
import json, os, re, signal, subprocess, threading, time

HERE = os.path.dirname(os.path.abspath(__file__))
PRESETS = [1.0, 25 / 23.976, 25 / 24, 24 / 23.976, 0.999, 0.96, 0.95904]


def make_subtitle(out, cues, seed, start=2.0, pauses=1.0):
    subprocess.run(["python3", os.path.join(HERE, "make_clip.py"), "subtitle", out, "--cues", str(cues),
                    "--seed", str(seed), "--start", str(start), "--pauses", str(pauses)], check=True)


def make_clip(srt, out, seed, music_db=None, unspoken=0.0, uncued=0, no_voice=False, truth=None):
    cmd = ["python3", os.path.join(HERE, "make_clip.py"), "clip", srt, out, "--seed", str(seed),
           "--unspoken", str(unspoken), "--uncued", str(uncued)]
    if music_db is not None:
        cmd += ["--music-db", str(music_db)]
    if no_voice:
        cmd.append("--no-voice")
    if truth:
        cmd += ["--truth", truth]
    subprocess.run(cmd, check=True, stderr=subprocess.DEVNULL)


def fmt(t):
    ms = max(0, int(round(t * 1000)))
    return "%02d:%02d:%02d,%03d" % (ms // 3600000, ms // 60000 % 60, ms // 1000 % 60, ms % 1000)


def retime(srt, out, offset, scale):
    """The subtitle as another release would time it: a line said at position
    p shows at p × scale + offset, which Lumerix undoes with exactly that
    offset and scale. Lines pushed before zero are dropped, as a release
    without that scene would have none."""
    text = open(srt, encoding="utf-8").read()
    blocks, n = [], 0
    for block in re.split(r"\n\s*\n", text.strip()):
        lines = block.split("\n")
        m = re.match(r"(\d+):(\d+):(\d+),(\d+) --> (\d+):(\d+):(\d+),(\d+)", lines[1])
        g = [int(x) for x in m.groups()]
        a = g[0] * 3600 + g[1] * 60 + g[2] + g[3] / 1000
        b = g[4] * 3600 + g[5] * 60 + g[6] + g[7] / 1000
        a, b = a * scale + offset, b * scale + offset
        if a < 0:
            continue
        n += 1
        blocks.append("%d\n%s --> %s\n%s\n" % (n, fmt(a), fmt(b), "\n".join(lines[2:])))
    open(out, "w", encoding="utf-8").write("\n".join(blocks))


def cpu_seconds(pid):
    try:
        fields = open(f"/proc/{pid}/stat").read().rsplit(")", 1)[1].split()
        return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")
    except (OSError, IndexError, ValueError):
        return None


def side_file(srt):
    """The timing the side file holds; none is no correction."""
    try:
        d = json.load(open(srt + ".sync.json"))
        return {"offset": float(d.get("offset", 0.0)), "scale": float(d.get("scale", 1.0))}
    except (OSError, ValueError, AttributeError):
        return {"offset": 0.0, "scale": 1.0}


def changed(a, b):
    return abs(a["offset"] - b["offset"]) > 1e-6 or abs(a["scale"] - b["scale"]) > 1e-9


def run(lumerix, work, clip, srt, initial=None, timeout=100.0, log=None):
    """Plays clip in mpv and lets Lumerix listen with srt. Returns what came
    of it: result (the side file's {"offset", "scale"} once it changed, else
    None), seconds (from the first listening status to the result), cpu (the
    share of one core Lumerix used meanwhile), ended (listening stopped
    without a result), statuses."""
    side = srt + ".sync.json"
    if initial is not None:
        json.dump(initial, open(side, "w"))
    elif os.path.exists(side):
        os.remove(side)
    before = side_file(srt)
    sock = os.path.join(work, "mpv.sock")
    if os.path.exists(sock):
        os.remove(sock)
    mpv = subprocess.Popen(["mpv", "--no-config", "--script=/usr/lib/mpv-mpris/mpris.so", "--ao=pulse", "--vo=null",
                            "--no-terminal", "--sub-auto=no", f"--input-ipc-server={sock}", "--keep-open=no", clip],
                           stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    env = dict(os.environ, XDG_CONFIG_HOME=os.path.join(work, "config"))
    lum = None
    out = {"result": None, "seconds": None, "cpu": None, "ended": False, "statuses": []}
    try:
        subprocess.run(["gdbus", "wait", "--session", "--timeout", "15", "org.mpris.MediaPlayer2.mpv"], check=True)
        lum = subprocess.Popen([lumerix, "--headless", "--listen", "--player", "mpv", srt], stdout=subprocess.PIPE,
                               env=env, text=True)
        t0 = time.monotonic()
        statuses = out["statuses"]

        def read():
            for line in lum.stdout:
                try:
                    msg = json.loads(line)
                except ValueError:
                    continue
                if "status" in msg:
                    statuses.append((time.monotonic() - t0, msg["status"]))
                    if log:
                        log("  %6.1f s  %s" % (statuses[-1][0], msg["status"]))

        reader = threading.Thread(target=read, daemon=True)
        reader.start()
        started = cpu0 = None
        while time.monotonic() - t0 < timeout:
            time.sleep(0.25)
            if lum.poll() is not None:
                out["ended"] = True
                break
            listening = [t for t, s in statuses if s.startswith("Listening")]
            if started is None and listening:
                started, cpu0 = time.monotonic(), cpu_seconds(lum.pid)
            now = side_file(srt)
            if changed(now, before):
                out["result"] = now
                break
            # Listening was under way and no listening status has come for
            # longer than a hint lasts, other statuses have: it stopped
            # without a result.
            if started and statuses and not statuses[-1][1].startswith("Listening") and \
                    time.monotonic() - t0 - max(listening) > 4.0:
                out["ended"] = True
                break
        end = time.monotonic()
        if started is not None:
            out["seconds"] = round(end - started, 2)
            cpu1 = cpu_seconds(lum.pid)
            if cpu0 is not None and cpu1 is not None and end > started:
                out["cpu"] = (cpu1 - cpu0) / (end - started)
    finally:
        if lum and lum.poll() is None:
            lum.send_signal(signal.SIGTERM)
            try:
                lum.wait(5)
            except subprocess.TimeoutExpired:
                lum.kill()
                lum.wait()
        mpv.terminate()
        try:
            mpv.wait(5)
        except subprocess.TimeoutExpired:
            mpv.kill()
            mpv.wait()
    final = side_file(srt)
    if out["result"] is None and changed(final, before):
        out["result"] = final  # written on the way out: a change all the same
    return out
