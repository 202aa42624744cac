#!/usr/bin/python3
"""The bar on GNOME's compositor under Wayland, with real input.

Runs as mutter's child (see run-gnome-wayland.sh): WAYLAND_DISPLAY, DISPLAY
(XWayland) and the session bus are mutter's. A native-Wayland mpv plays full
screen; Lumerix, which finds no layer shell here, draws its bar through
XWayland. Screenshots come from mutter's own screen cast (a PipeWire stream)
and the pointer and keys from its remote-desktop session: xdotool would go
round the compositor and prove nothing about where real keys go.

Checks: the cue reads above the full-screen player; the keys are the
player's until the bar is clicked; a click on the bar gives it the keys (Left shifts the timing, the side file says -0.5) while mpv
neither seeks nor leaves full screen; Lumerix quits cleanly.
"""
import argparse, json, os, subprocess, sys, time

import gi
gi.require_version("Gio", "2.0")
from gi.repository import Gio, GLib

import gui_common
from gui_common import check, mpris, poll, stop_lumerix, verdict, wait_for, wayland_mpv

BTN_LEFT = 0x110
KEY_SHIFT_L, KEY_LEFT = 0xFFE1, 0xFF51


def sh(*cmd):
    return subprocess.run(cmd, capture_output=True, text=True).stdout


class Mutter:
    """One remote-desktop session with its screen cast of the virtual monitor.
    The session lives as long as this connection does."""

    def __init__(self):
        self.bus = Gio.bus_get_sync(Gio.BusType.SESSION, None)
        rd = self.call("org.gnome.Mutter.RemoteDesktop", "/org/gnome/Mutter/RemoteDesktop",
                       "org.gnome.Mutter.RemoteDesktop", "CreateSession", None)[0]
        self.rd = rd
        session_id = self.call("org.gnome.Mutter.RemoteDesktop", rd, "org.freedesktop.DBus.Properties", "Get",
                               GLib.Variant("(ss)", ("org.gnome.Mutter.RemoteDesktop.Session", "SessionId")))[0]
        sc = self.call("org.gnome.Mutter.ScreenCast", "/org/gnome/Mutter/ScreenCast", "org.gnome.Mutter.ScreenCast",
                       "CreateSession",
                       GLib.Variant("(a{sv})", ({"remote-desktop-session-id": GLib.Variant("s", session_id)},)))[0]
        self.stream = self.call("org.gnome.Mutter.ScreenCast", sc, "org.gnome.Mutter.ScreenCast.Session",
                                "RecordMonitor", GLib.Variant("(sa{sv})", ("Meta-0", {})))[0]
        self.node = None

        def added(_conn, _sender, _path, _iface, _signal, params):
            self.node = params.unpack()[0]
        self.bus.signal_subscribe(None, "org.gnome.Mutter.ScreenCast.Stream", "PipeWireStreamAdded", self.stream,
                                  None, Gio.DBusSignalFlags.NONE, added)
        self.session("Start", None)
        ctx = GLib.MainContext.default()
        end = time.monotonic() + 10
        while self.node is None and time.monotonic() < end:
            ctx.iteration(False)
            time.sleep(0.02)
        if self.node is None:
            sys.exit("gnome-wayland: mutter's screen cast never started")
        # The first key of a session is dropped: a harmless one first.
        self.key(KEY_SHIFT_L)

    def call(self, name, path, iface, method, params):
        return self.bus.call_sync(name, path, iface, method, params, None, Gio.DBusCallFlags.NONE, 5000,
                                  None).unpack()

    def session(self, method, params):
        return self.call("org.gnome.Mutter.RemoteDesktop", self.rd, "org.gnome.Mutter.RemoteDesktop.Session",
                         method, params)

    def click(self, x, y):
        self.session("NotifyPointerMotionAbsolute", GLib.Variant("(sdd)", (self.stream, x, y)))
        time.sleep(0.1)
        for pressed in (True, False):
            self.session("NotifyPointerButton", GLib.Variant("(ib)", (BTN_LEFT, pressed)))
            time.sleep(0.05)
        time.sleep(0.3)

    def key(self, keysym):
        for pressed in (True, False):
            self.session("NotifyKeyboardKeysym", GLib.Variant("(ub)", (keysym, pressed)))
            time.sleep(0.05)
        time.sleep(0.4)

    def shot(self, path):
        subprocess.run(["gst-launch-1.0", "-q", "pipewiresrc", f"path={self.node}", "num-buffers=1", "!",
                        "videoconvert", "!", "pngenc", "!", "filesink", f"location={path}"],
                       check=True, capture_output=True, timeout=20)
        return path


def read(path):
    return " ".join(sh("tesseract", path, "-").split())


def bar_geometry(pid):
    for wid in sh("xdotool", "search", "--onlyvisible", "--name", "^Lumerix$").split():
        if sh("xdotool", "getwindowpid", wid).strip() == str(pid):
            g = dict(line.split("=") for line in sh("xdotool", "getwindowgeometry", "--shell", wid).split())
            return int(g["X"]), int(g["Y"]), int(g["WIDTH"]), int(g["HEIGHT"])
    return None


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--lumerix", required=True)
    ap.add_argument("--work", required=True)
    args = ap.parse_args()
    gui_common.LABEL = "gnome-wayland: "
    bus = Gio.bus_get_sync(Gio.BusType.SESSION, None)
    mpv = wayland_mpv(bus, args.work)  # native Wayland, as GNOME runs it
    mutter = Mutter()

    side = os.path.join(args.work, "clip.srt.sync.json")
    lumerix = subprocess.Popen([args.lumerix, "--player", "mpv", os.path.join(args.work, "clip.srt")],
                               stderr=open(os.path.join(args.work, "lumerix.err"), "w"))
    box = wait_for(lambda: bar_geometry(lumerix.pid), 15, "the bar's window under XWayland")
    seen = ""

    def reads():
        nonlocal seen
        seen = read(mutter.shot(os.path.join(args.work, "over.png")))
        return "GNOME line" in seen
    poll(reads, 30)
    check("GNOME line" in seen, "the cue reads above the full-screen native-Wayland mpv", seen)

    # Until the bar is clicked the keys are the player's: this is what shows
    # that the keys sent here go where a user's would. Far enough in that
    # mpv's seek back (5 s) shows as one.
    poll(lambda: mpris(bus, "Position") / 1e6 > 3, 15)
    before = mpris(bus, "Position") / 1e6
    mutter.key(KEY_LEFT)
    after = mpris(bus, "Position") / 1e6
    check(after < before - 2 and not os.path.exists(side), "before a click, Left is the player's (it seeks back)",
          f"{before:.2f} s, then {after:.2f} s")

    x, y, w, h = box
    before = mpris(bus, "Position") / 1e6
    mutter.click(x + w / 2, y + h / 2)
    mutter.key(KEY_LEFT)

    def saved_offset():
        try:
            with open(side) as f:
                return json.load(f).get("offset")
        except (OSError, ValueError):
            return None  # not written yet: the check below says so
    offset = poll(saved_offset, 10)
    after = mpris(bus, "Position") / 1e6
    check(offset == -0.5, "a real click gives the bar the keys (Left shifts the timing)", f"offset {offset}")
    check(after >= before, "the key does not reach mpv (no seek back)", f"{before:.2f} s, then {after:.2f} s")
    check(mpris(bus, "PlaybackStatus") == "Playing", "mpv plays on")
    check(bool(mpris(bus, "Fullscreen", "org.mpris.MediaPlayer2")), "mpv stays full screen")

    stop_lumerix(lumerix, os.path.join(args.work, "lumerix.err"))
    mpv.terminate()
    mpv.wait(10)
    return verdict()

if __name__ == "__main__":
    sys.exit(main())
