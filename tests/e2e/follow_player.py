#!/usr/bin/python3
"""Lumerix following a real VLC, Chromium, Firefox, Celluloid or Totem over
MPRIS, checked against the player's own clock.

Runs inside a D-Bus session (see run-player.sh). The player plays a clip
(VLC without a window; a browser a page with an audible video, since
browsers announce only videos with sound; Celluloid and Totem a file named
like an episode, without a title tag); the subtitle has one cue a second,
numbered by its start second, so the cue Lumerix shows must be
floor(the player's position). A player's position may move in steps (VLC:
about a quarter second), each reported when the player reaches it: its
clock is the line through the moments a new value first shows. The script
plays, pauses, seeks, plays at 1.5x and 0.5x (through MPRIS; a browser
cannot be given a speed there, so its page changes speed itself, on a
schedule), turns full screen on and off where the player takes that over
MPRIS, and quits the player, and fails when a cue is wrong outside a short
settling time after each event, or goes backwards. It prints how late cue
changes come at each speed, how soon the right cue shows after the seek,
when full screen was seen, and the name the status line gives the track.
"""
import os, signal, statistics, subprocess, sys, threading, time

import gi
gi.require_version("Gio", "2.0")
from gi.repository import Gio, GLib

from e2e_common import Follower, arguments, counting_subtitle, pct, quit_failures, verdict

SETTLE = 1.5
NEAR_BOUNDARY = 0.15
CLIP_SECONDS = 120
# Seconds after Lumerix starts. A browser cannot be given a speed over MPRIS:
# its page changes speed by itself at about the same moments (PAGE).
# Half speed is the longest: a whole-second clock shows a new value only every
# two seconds there.
SCRIPT = [(12.0, "pause"), (14.0, "play"), (16.0, "seek +10"), (19.0, "rate 1.5"), (31.0, "rate 0.5"),
          (51.0, "rate 1"), (53.0, "fullscreen on"), (55.0, "fullscreen off"), (56.0, "quit")]
BROWSERS = ("chromium", "firefox")
LABELS = {"vlc": "VLC", "chromium": "Chromium", "firefox": "Firefox", "celluloid": "Celluloid", "totem": "Totem"}
# Firefox's first start asks and tells a lot; none of it is wanted here.
FIREFOX_PREFS = """user_pref("media.autoplay.default", 0);
user_pref("media.autoplay.blocking_policy", 0);
user_pref("browser.shell.checkDefaultBrowser", false);
user_pref("browser.aboutwelcome.enabled", false);
user_pref("datareporting.policy.dataSubmissionEnabled", false);
user_pref("toolkit.telemetry.reportingpolicy.firstRun", false);
"""
PAGE = """<!doctype html><title>Lumerix check</title><video id=v src="clip.webm" autoplay></video>
<script>const v = document.getElementById("v");
for (const [at, rate] of [[RATE_TIMES]]) setTimeout(() => { v.playbackRate = rate; }, at * 1000);</script>"""
PATH, PLAYER = "/org/mpris/MediaPlayer2", "org.mpris.MediaPlayer2.Player"
LEAD = 6.0  # seconds from the page's start to Lumerix's, about


def wait_for_name(bus, prefix, what):
    end = time.monotonic() + 30
    while time.monotonic() < end:
        names = bus.call_sync("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "ListNames",
                              None, None, Gio.DBusCallFlags.NONE, 2000, None).unpack()[0]
        found = [n for n in names if n.startswith(prefix)]
        if found:
            return found[0]
        time.sleep(0.2)
    sys.exit(f"e2e: {what} never appeared on MPRIS")


def start_player(name, work):
    """The player's process and its bus name."""
    bus = Gio.bus_get_sync(Gio.BusType.SESSION, None)
    quiet = dict(stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    if name == "vlc":
        proc = subprocess.Popen(["vlc", "--intf", "dummy", "--control", "dbus", "--vout", "dummy", "--aout", "dummy",
                                 "--no-video-title-show", os.path.join(work, "clip.mp4")], **quiet)
        return proc, wait_for_name(bus, "org.mpris.MediaPlayer2.vlc", "VLC")
    if name == "celluloid":
        proc = subprocess.Popen(["celluloid", "--new-window", os.path.join(work, "Show.S01E02.mp4")], **quiet)
        return proc, wait_for_name(bus, "org.mpris.MediaPlayer2.io.github.celluloid_player", "Celluloid")
    if name == "totem":
        proc = subprocess.Popen(["totem", os.path.join(work, "Show.S01E02.mp4")], **quiet)
        return proc, wait_for_name(bus, "org.mpris.MediaPlayer2.totem", "Totem")
    rates = ", ".join(f"[{at + LEAD}, {what.split()[1]}]" for at, what in SCRIPT if what.startswith("rate"))
    with open(os.path.join(work, "index.html"), "w") as f:
        f.write(PAGE.replace("[RATE_TIMES]", rates))
    page = f"file://{work}/index.html"
    if name == "chromium":
        proc = subprocess.Popen(["chromium", "--no-first-run", "--no-default-browser-check", "--disable-gpu",
                                 "--no-sandbox", "--autoplay-policy=no-user-gesture-required",
                                 f"--user-data-dir={work}/chromium", page], **quiet)
    else:
        profile = os.path.join(work, "firefox")
        os.makedirs(profile, exist_ok=True)
        with open(os.path.join(profile, "user.js"), "w") as f:
            f.write(FIREFOX_PREFS)
        proc = subprocess.Popen(["firefox-esr", "--no-remote", "--profile", profile, page], **quiet)
    return proc, wait_for_name(bus, f"org.mpris.MediaPlayer2.{name}",
                               f"{LABELS[name]} (is a sound server running?)")


def main():
    args = arguments(player=True)
    srt = counting_subtitle(args.work, CLIP_SECONDS)
    started = time.monotonic()
    player, BUS = start_player(args.player, args.work)
    label = LABELS[args.player]
    bus = Gio.bus_get_sync(Gio.BusType.SESSION, None)

    def call(method, *params, iface=PLAYER, sig=None):
        return bus.call_sync(BUS, PATH, iface, method, GLib.Variant(sig, params) if sig else None, None,
                             Gio.DBusCallFlags.NONE, 2000, None)

    def get(name, iface=PLAYER):
        return call("Get", iface, name, iface="org.freedesktop.DBus.Properties", sig="(ss)").unpack()[0]

    def can(what):  # a property of the player's root object that it may not have
        try:
            return bool(get(what, iface="org.mpris.MediaPlayer2"))
        except GLib.Error:
            return False

    def position_or_none():  # Celluloid takes its name a moment before it serves the player
        try:
            return get("Position")
        except GLib.Error:
            return None

    end = time.monotonic() + 15
    while (position_or_none() or 0) < 300000:
        if time.monotonic() > end:
            sys.exit(f"e2e: {label} did not start playing")
        time.sleep(0.05)
    fs_capable = can("CanSetFullscreen") and args.player != "vlc"  # VLC plays without a window here
    if args.player in BROWSERS:  # Lumerix starts LEAD seconds after the page, for the page's schedule
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
        elif what.startswith("rate") and args.player not in BROWSERS:
            call("Set", PLAYER, "Rate", GLib.Variant("d", float(what.split()[1])),
                 iface="org.freedesktop.DBus.Properties", sig="(ssv)")
        elif what.startswith("fullscreen") and fs_capable:
            call("Set", "org.mpris.MediaPlayer2", "Fullscreen", GLib.Variant("b", what.endswith("on")),
                 iface="org.freedesktop.DBus.Properties", sig="(ssv)")
        elif what == "quit":
            alive = False
            sampler.join(timeout=2)
            if can("CanQuit") and args.player not in BROWSERS:
                try:
                    call("Quit", iface="org.mpris.MediaPlayer2")
                except GLib.Error:
                    pass  # Totem leaves the bus before it answers
            else:
                player.terminate()  # a browser's quit over MPRIS closes only its media session
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
    # its values in the two seconds around it, where nothing happened; a player
    # with a coarse clock (Firefox: whole seconds, at 0.5x one new value in two
    # seconds) is given three and a half.
    def truth(t):
        for half, enough in ((2.0, 4), (3.5, 3)):
            near = [(u, p) for u, p, _ in samples if abs(u - t) <= half]
            if len(near) >= enough:
                break
        if len(near) < enough or any(abs(e - t) <= half for e, _ in events):
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
    seek_at = next(t for t, what in events if what.startswith("seek"))
    before_seek = next((c for t, c in reversed(shown) if t < seek_at and c is not None), None)
    right = next((t for t, c in shown if t > seek_at and c is not None and before_seek is not None
                  and c >= before_seek + 8), None)
    print(f"  after the seek: the cue 10 s on {'%.0f ms later' % ((right - seek_at) * 1000) if right else 'never'}")
    fs_at = next(t for t, what in events if what == "fullscreen on")
    fs_seen = next((t for t, on in follower.fullscreen if on and t >= fs_at), None)
    if fs_capable:
        print(f"  full screen: {'seen %.2f s after it was asked for' % (fs_seen - fs_at) if fs_seen else 'never seen'}")
    elif args.player == "vlc":
        print("  full screen: VLC plays without a window here; not tried")
    else:
        print("  full screen: the player does not take it over MPRIS; not tried")
    names = [s.split("\u21c4 ", 1)[1].split("  ")[0] for _, s in statuses if s.startswith("\u21c4 ") and "  " in s]
    print(f"  the status line names the track: {names[-1] if names else '(no name)'!r}")
    if wrong > 3:
        failures.append(f"the wrong cue at {wrong} moments")
    # Enough to mean something, and every speed measured. The windows around
    # each event leave few changes at 0.5x (a browser's page changes speed a
    # moment off the script, which widens them), so the total is modest.
    measured = sum(len(v) for v in late.values())
    if measured < 10:
        failures.append(f"only {measured} cue changes measured")
    missing = [f"{r:g}x" for r in (0.5, 1.0, 1.5) if not late.get(r)]
    if missing:
        seen = ", ".join(f"{rate:g}x at {t:.1f} s" for t, rate in changes) or "none"
        failures.append(f"no cue change measured at {', '.join(missing)} (speed changes the player reported: {seen})")
    return verdict(failures)


if __name__ == "__main__":
    sys.exit(main())
