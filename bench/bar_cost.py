#!/usr/bin/env python3
"""CPU and peak RSS of the bar, idle and following mpv; see bar-cost.sh.

CPU is the lumerix process's own (user + system); the helpers it runs
(lumerix-mpris, started by the playback sources) are given apart. The
idle figure is also split by whether the nameplate's glint is sweeping
(the first 45 % of every five seconds, on the uptime clock) or not.
"""
import json, os, subprocess, sys, time

lumerix, work, seconds = sys.argv[1], sys.argv[2], float(sys.argv[3])
HZ = os.sysconf("SC_CLK_TCK")


def stat(pid):
    return open(f"/proc/{pid}/stat").read().rsplit(")", 1)[1].split()


def live_children(pid):
    """CPU so far of each running child of pid (its own and what it reaped)."""
    out = {}
    for entry in os.listdir("/proc"):
        if not entry.isdigit():
            continue
        try:
            f = stat(entry)
            if int(f[1]) == pid:
                out[int(entry)] = sum(int(v) for v in f[11:15]) / HZ
        except (OSError, IndexError, ValueError):
            pass
    return out


def cpu(pid):
    """The process's own CPU, and its helpers': the reaped ones and, by pid,
    the ones still running (the resident poll helper never exits)."""
    f = stat(pid)
    return (int(f[11]) + int(f[12])) / HZ, ((int(f[13]) + int(f[14])) / HZ, live_children(pid))


def helpers_between(h0, h1):
    reaped0, live0 = h0
    reaped1, live1 = h1
    # A child running at the start and reaped by the end is in reaped1 whole:
    # take off what it had used before the start.
    return (reaped1 - reaped0) + sum(v - live0.get(c, 0) for c, v in live1.items()) - sum(
        v for c, v in live0.items() if c not in live1)


def peak_rss_mb(pid):
    for line in open(f"/proc/{pid}/status"):
        if line.startswith("VmHWM"):
            return int(line.split()[1]) / 1024


def run(label, args, env, split_glint=False):
    started = time.monotonic()
    p = subprocess.Popen([lumerix] + args, env=env, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    while not subprocess.run(["xdotool", "search", "--onlyvisible", "--pid", str(p.pid), "--name", "^Lumerix$"],
                             capture_output=True).stdout.strip():
        time.sleep(0.005)
    mapped = time.monotonic() - started
    time.sleep(5)  # past the start hint and the first layouts
    own0, helpers0 = cpu(p.pid)
    t0 = time.monotonic()
    sweep, still = [0.0, 0.0], [0.0, 0.0]
    last, lt = own0, t0
    while time.monotonic() - t0 < seconds:
        time.sleep(0.25)
        f = stat(p.pid)
        now, t = (int(f[11]) + int(f[12])) / HZ, time.monotonic()
        bucket = sweep if (time.clock_gettime(time.CLOCK_MONOTONIC) % 5) / 5 < 0.45 else still
        bucket[0] += now - last
        bucket[1] += t - lt
        last, lt = now, t
    own1, helpers1 = cpu(p.pid)
    span = time.monotonic() - t0
    print(f"{label}: window up {mapped * 1000:.0f} ms after start; CPU {100 * (own1 - own0) / span:.2f} % of a core "
          f"(helpers {100 * helpers_between(helpers0, helpers1) / span:.2f} %); peak RSS {peak_rss_mb(p.pid):.1f} MB",
          flush=True)
    if split_glint:
        print(f"  glint sweeping {100 * sweep[0] / sweep[1]:.2f} %, still {100 * still[0] / still[1]:.2f} %")
    p.terminate()
    p.wait()


def main():
    config = os.path.join(work, "config", "lumerix")
    os.makedirs(config, exist_ok=True)
    with open(os.path.join(config, "settings.json"), "w") as f:
        json.dump({"DidOnboard": True}, f)
    env = dict(os.environ, XDG_CONFIG_HOME=os.path.join(work, "config"))
    subprocess.Popen(["openbox"], stderr=subprocess.DEVNULL)
    subprocess.Popen(["xcompmgr"], stderr=subprocess.DEVNULL)
    time.sleep(1)
    run("idle, nameplate", ["--player", "nosuchplayer"], env, split_glint=True)
    srt = os.path.join(work, "long.srt")
    with open(srt, "w") as f:
        f.write("1\n00:00:00,000 --> 01:00:00,000\nA cue on screen the whole time\n")
    mpv = subprocess.Popen(["mpv", "--no-config", "--script=/usr/lib/mpv-mpris/mpris.so", "--ao=null", "--vo=x11",
                            "--no-terminal", "--sub-auto=no", "--geometry=640x360+100+100", "--loop-file=inf",
                            os.path.join(work, "clip.mp4")])
    subprocess.run(["gdbus", "wait", "--session", "--timeout", "15", "org.mpris.MediaPlayer2.mpv"], check=True)
    run("following mpv, cue shown", ["--player", "mpv", srt], env)
    second = os.path.join(work, "second.srt")
    with open(second, "w") as f:
        f.write("1\n00:00:00,000 --> 01:00:00,000\nA second line under the first\n")
    run("following mpv, two subtitles shown", ["--player", "mpv", "--second", second, srt], env)
    mpv.terminate()
    mpv.wait()


if __name__ == "__main__":
    main()
