#!/usr/bin/python3
"""Lumerix following a real VLC over MPRIS, checked against VLC's own clock.

Runs inside a D-Bus session (see run-vlc.sh). VLC plays a clip without a
window; the subtitle has one cue a second, numbered by its start second, so
the cue Lumerix shows must be floor(VLC's position). VLC's position moves
in steps of about a quarter second, each step reported when VLC reaches it:
its clock is the line through the moments a new value first shows. The
script plays, pauses, seeks, plays at 1.5x and 0.5x and quits VLC, and fails
when a cue is wrong outside a short settling time after each event, or goes
backwards. It prints how late cue changes come at each speed.
"""
import os, signal, statistics, subprocess, sys, threading, time

import gi
gi.require_version("Gio", "2.0")
from gi.repository import Gio, GLib

from e2e_common import Follower, arguments, counting_subtitle, pct, quit_failures, verdict

SETTLE = 1.5
NEAR_BOUNDARY = 0.15
CLIP_SECONDS = 120
SCRIPT = [(12.0, "pause"), (14.0, "play"), (16.0, "seek +10"), (19.0, "rate 1.5"), (31.0, "rate 0.5"),
          (45.0, "rate 1"), (50.0, "quit")]
BUS, PATH, PLAYER = "org.mpris.MediaPlayer2.vlc", "/org/mpris/MediaPlayer2", "org.mpris.MediaPlayer2.Player"


def main():
    args = arguments()
    srt = counting_subtitle(args.work, CLIP_SECONDS)

    vlc = subprocess.Popen(["vlc", "--intf", "dummy", "--control", "dbus", "--vout", "dummy", "--aout", "dummy",
                            "--no-video-title-show", os.path.join(args.work, "clip.mp4")],
                           stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    subprocess.run(["gdbus", "wait", "--session", "--timeout", "20", BUS], check=True)
    bus = Gio.bus_get_sync(Gio.BusType.SESSION, None)

    def call(method, *params, iface=PLAYER, sig=None):
        return bus.call_sync(BUS, PATH, iface, method, GLib.Variant(sig, params) if sig else None, None,
                             Gio.DBusCallFlags.NONE, 2000, None)

    def get(name):
        return call("Get", PLAYER, name, iface="org.freedesktop.DBus.Properties", sig="(ss)").unpack()[0]

    end = time.monotonic() + 15
    while get("Position") < 300000:
        if time.monotonic() > end:
            sys.exit("e2e: VLC did not start playing")
        time.sleep(0.05)

    follower = Follower(args.lumerix, "vlc", srt, args.work)
    lum, t0, shown, statuses = follower.proc, follower.t0, follower.shown, follower.statuses

    samples = []  # (time, VLC's position, rate) where a new value first showed
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
        elif what.startswith("rate"):
            call("Set", PLAYER, "Rate", GLib.Variant("d", float(what.split()[1])),
                 iface="org.freedesktop.DBus.Properties", sig="(ssv)")
        elif what == "quit":
            alive = False
            sampler.join(timeout=2)
            call("Quit", iface="org.mpris.MediaPlayer2")
    vlc.wait(timeout=10)
    quit_at = events[-1][0]
    time.sleep(5)
    still_running = lum.poll() is None
    lum.send_signal(signal.SIGTERM)
    code = lum.wait(timeout=10)

    failures = quit_failures("VLC", still_running, code, statuses, quit_at)

    def settling(t):
        return any(0 <= t - e < SETTLE for e, _ in events)

    def segment_of(t):  # the speed in force, and whether the clock is steady there
        rate = 1.0
        for e, what in events:
            if e <= t and what.startswith("rate"):
                rate = float(what.split()[1])
        return rate

    # VLC's clock around a moment: the line through the first sightings of
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
    print("Lumerix following VLC over MPRIS (vlc --intf dummy --control dbus):")
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
