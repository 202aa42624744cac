#!/usr/bin/python3
"""Lumerix following a real VLC or Chromium over MPRIS, checked against the
player's own clock.

Runs inside a D-Bus session (see run-player.sh). The player plays a clip
(VLC without a window; Chromium a page with an audible video, since browsers
announce only videos with sound); the subtitle has one cue a second,
numbered by its start second, so the cue Lumerix shows must be
floor(the player's position). A player's position may move in steps (VLC:
about a quarter second), each reported when the player reaches it: its
clock is the line through the moments a new value first shows. The script
plays, pauses, seeks, plays at 1.5x and 0.5x (VLC through MPRIS; the page
changes Chromium's speed itself, on a schedule) and quits the player, and
fails when a cue is wrong outside a short settling time after each event,
or goes backwards. It prints how late cue changes come at each speed.
"""
import os, signal, statistics, subprocess, sys, threading, time

import gi
gi.require_version("Gio", "2.0")
from gi.repository import Gio, GLib

from e2e_common import Follower, arguments, counting_subtitle, pct, quit_failures, verdict

SETTLE = 1.5
NEAR_BOUNDARY = 0.15
CLIP_SECONDS = 120
# Seconds after Lumerix starts. Chromium cannot be given a speed over MPRIS:
# its page changes speed by itself at about the same moments (PAGE).
SCRIPT = [(12.0, "pause"), (14.0, "play"), (16.0, "seek +10"), (19.0, "rate 1.5"), (31.0, "rate 0.5"),
          (45.0, "rate 1"), (50.0, "quit")]
PAGE = """<!doctype html><title>Lumerix check</title><video id=v src="clip.webm" autoplay></video>
<script>const v = document.getElementById("v");
for (const [at, rate] of [[RATE_TIMES]]) setTimeout(() => { v.playbackRate = rate; }, at * 1000);</script>"""
PATH, PLAYER = "/org/mpris/MediaPlayer2", "org.mpris.MediaPlayer2.Player"
LEAD = 6.0  # seconds from the page's start to Lumerix's, about


def start_player(name, work):
    """The player's process and its bus name."""
    bus = Gio.bus_get_sync(Gio.BusType.SESSION, None)
    if name == "vlc":
        proc = subprocess.Popen(["vlc", "--intf", "dummy", "--control", "dbus", "--vout", "dummy", "--aout", "dummy",
                                 "--no-video-title-show", os.path.join(work, "clip.mp4")],
                                stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        subprocess.run(["gdbus", "wait", "--session", "--timeout", "20", "org.mpris.MediaPlayer2.vlc"], check=True)
        return proc, "org.mpris.MediaPlayer2.vlc"
    rates = ", ".join(f"[{at + LEAD}, {what.split()[1]}]" for at, what in SCRIPT if what.startswith("rate"))
    with open(os.path.join(work, "index.html"), "w") as f:
        f.write(PAGE.replace("[RATE_TIMES]", rates))
    proc = subprocess.Popen(["chromium", "--no-first-run", "--no-default-browser-check", "--disable-gpu", "--no-sandbox",
                             "--autoplay-policy=no-user-gesture-required", f"--user-data-dir={work}/chromium",
                             f"file://{work}/index.html"], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    end = time.monotonic() + 30
    while time.monotonic() < end:
        names = bus.call_sync("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "ListNames",
                              None, None, Gio.DBusCallFlags.NONE, 2000, None).unpack()[0]
        found = [n for n in names if n.startswith("org.mpris.MediaPlayer2.chromium")]
        if found:
            return proc, found[0]
        time.sleep(0.2)
    sys.exit("e2e: Chromium never appeared on MPRIS (is a sound server running?)")


def main():
    args = arguments(player=True)
    srt = counting_subtitle(args.work, CLIP_SECONDS)
    started = time.monotonic()
    player, BUS = start_player(args.player, args.work)
    label = "VLC" if args.player == "vlc" else "Chromium"
    bus = Gio.bus_get_sync(Gio.BusType.SESSION, None)

    def call(method, *params, iface=PLAYER, sig=None):
        return bus.call_sync(BUS, PATH, iface, method, GLib.Variant(sig, params) if sig else None, None,
                             Gio.DBusCallFlags.NONE, 2000, None)

    def get(name):
        return call("Get", PLAYER, name, iface="org.freedesktop.DBus.Properties", sig="(ss)").unpack()[0]

    end = time.monotonic() + 15
    while get("Position") < 300000:
        if time.monotonic() > end:
            sys.exit(f"e2e: {label} did not start playing")
        time.sleep(0.05)
    if args.player == "chromium":  # Lumerix starts LEAD seconds after the page, for the page's schedule
        time.sleep(max(0.0, started + LEAD - time.monotonic()))

    follower = Follower(args.lumerix, args.player, srt, args.work)
    lum, t0, shown, statuses = follower.proc, follower.t0, follower.shown, follower.statuses

    samples = []  # (time, the player's position, rate) where a new value first showed
    alive = True

    def sample():
        last = None
        while alive:
            try:
                before = time.monotonic()
                pos = get("Position") / 1e6
                after = time.monotonic()
                rate = get("Rate")
                playing = get("PlaybackStatus") == "Playing"
            except GLib.Error:
                return
            if pos != last and playing:
                samples.append(((before + after) / 2 - t0, pos, rate))
            last = pos
            time.sleep(0.01)
    sampler = threading.Thread(target=sample, daemon=True)
    sampler.start()

    events = []
    for at, what in SCRIPT:
        time.sleep(max(0, t0 + at - time.monotonic()))
        events.append((time.monotonic() - t0, what))
        if what in ("pause", "play"):
            call(what.capitalize())
        elif what.startswith("seek"):
            call("Seek", int(float(what.split()[1]) * 1e6), sig="(x)")
        elif what.startswith("rate") and args.player == "vlc":
            call("Set", PLAYER, "Rate", GLib.Variant("d", float(what.split()[1])),
                 iface="org.freedesktop.DBus.Properties", sig="(ssv)")
        elif what == "quit":
            alive = False
            sampler.join(timeout=2)
            if args.player == "vlc":
                call("Quit", iface="org.mpris.MediaPlayer2")
            else:
                player.terminate()  # a browser cannot be told to quit over MPRIS
    player.wait(timeout=10)
    quit_at = events[-1][0]
    time.sleep(5)
    still_running = lum.poll() is None
    lum.send_signal(signal.SIGTERM)
    code = lum.wait(timeout=10)

    failures = quit_failures(label, still_running, code, statuses, quit_at)
    # Speed changes where the player reported them (the page's come a moment off).
    changes = [(t, rate) for (t, _, rate), (_, _, before) in zip(samples[1:], samples) if rate != before]
    events += [(t, f"rate {rate:g} (seen)") for t, rate in changes]

    def settling(t):
        return any(0 <= t - e < SETTLE for e, _ in events)

    def segment_of(t):  # the speed the player reported last before t
        return round(next((rate for u, _, rate in reversed(samples) if u <= t), 1.0), 2)

    # The player's clock around a moment: the line through the first sightings of
    # its values in the two seconds around it, where nothing happened.
    def truth(t):
        near = [(u, p) for u, p, _ in samples if abs(u - t) <= 2.0]
        if len(near) < 5 or any(abs(e - t) <= 2.0 for e, _ in events):
            return None
        mu, mp = statistics.mean(u for u, _ in near), statistics.mean(p for _, p in near)
        den = sum((u - mu) ** 2 for u, _ in near)
        slope = sum((u - mu) * (p - mp) for u, p in near) / den if den else 0
        return (lambda x: mp + slope * (x - mu)), slope

    backwards = [(round(t, 2), prev, cue) for (t, cue), (_, prev) in zip(shown[1:], shown)
                 if cue is not None and prev is not None and cue < prev and not settling(t) and t < quit_at]
    if backwards:
        failures.append(f"{len(backwards)} cues went backwards outside a seek: {backwards[:5]}")
    late = {}
    for (t, cue), (prev_t, prev) in zip(shown[1:], shown):
        if cue is None or prev is None or cue != prev + 1 or t < 3 or t > quit_at or settling(t) or settling(prev_t):
            continue
        fit = truth(t)
        if fit is None or fit[1] <= 0:
            continue
        line, slope = fit
        late.setdefault(segment_of(t), []).append((line(t) - cue) / slope)
    wrong = 0
    for t in [3 + 0.1 * i for i in range(int((quit_at - 3) * 10))]:
        fit = truth(t)
        if fit is None or settling(t):
            continue
        pos = fit[0](t)
        got = next((c for when, c in reversed(shown) if when <= t), None)
        if got != int(pos) and not (abs(pos - round(pos)) < NEAR_BOUNDARY and got in (int(pos) - 1, int(pos) + 1)):
            wrong += 1
    print(f"Lumerix following {label} over MPRIS:")
    for rate in sorted(late):
        values = late[rate]
        print(f"  {rate:g}x: {len(values)} cue changes, late (ms) p50 {pct(values, .5) * 1000:+.0f}, "
              f"p95 {pct(values, .95) * 1000:+.0f}, earliest {min(values) * 1000:+.0f}")
    print(f"  wrong cue at {wrong} of the moments checked; {len(backwards)} backwards")
    if wrong > 3:
        failures.append(f"the wrong cue at {wrong} moments")
    if sum(len(v) for v in late.values()) < 15:
        failures.append(f"only {sum(len(v) for v in late.values())} cue changes measured")
    return verdict(failures)


if __name__ == "__main__":
    sys.exit(main())
