#!/usr/bin/python3
"""The bar on KDE Plasma's compositor under Wayland.

Runs as KWin's child (see run-kde-wayland.sh). A native-Wayland mpv plays
full screen; Lumerix puts its bar in the layer shell's overlay layer. KWin's
own screenshot service (ScreenShot2, its permission check off for this
private session) gives the picture, read back by OCR.

Checks: the cue reads above the full-screen player, which stays full screen;
Lumerix does not ask KWin for keys on demand, which its protocol version
lacks (asking would leave the bar without keys); Lumerix quits cleanly and
GTK prints no CRITICAL.
"""
import argparse, os, subprocess, sys, time

import gi
gi.require_version("Gio", "2.0")
from gi.repository import Gio, GLib

import gui_common
from gui_common import check, mpris, poll, stop_lumerix, verdict, wayland_mpv


def screenshot(bus, path, width, height):
    """KWin writes the raw picture into a pipe and says its layout."""
    r, w = os.pipe()
    fds = Gio.UnixFDList.new()
    index = fds.append(w)
    os.close(w)
    reply, _ = bus.call_with_unix_fd_list_sync(
        "org.kde.KWin", "/org/kde/KWin/ScreenShot2", "org.kde.KWin.ScreenShot2", "CaptureArea",
        GLib.Variant("(iiuua{sv}h)", (0, 0, width, height, {}, index)), None, Gio.DBusCallFlags.NONE, 10000, fds, None)
    del fds
    meta = reply.unpack()[0]
    data = bytearray()
    while chunk := os.read(r, 1 << 20):
        data += chunk
    os.close(r)
    wd, ht, stride = meta["width"], meta["height"], meta["stride"]
    with open(path + ".bgra", "wb") as f:  # QImage's 32-bit formats are BGRA in memory here
        for row in range(ht):
            f.write(data[row * stride:row * stride + wd * 4])
    subprocess.run(["convert", "-size", f"{wd}x{ht}", "-depth", "8", f"bgra:{path}.bgra", path], check=True)
    return path


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--lumerix", required=True)
    ap.add_argument("--work", required=True)
    args = ap.parse_args()
    gui_common.LABEL = "kde-wayland: "
    bus = Gio.bus_get_sync(Gio.BusType.SESSION, None)
    mpv = wayland_mpv(bus, args.work)

    err_path = os.path.join(args.work, "lumerix.err")
    lumerix = subprocess.Popen([args.lumerix, "--player", "mpv", os.path.join(args.work, "clip.srt")],
                               stderr=open(err_path, "w"))
    seen = ""

    def reads():
        nonlocal seen
        seen = " ".join(subprocess.run(["tesseract", screenshot(bus, os.path.join(args.work, "shot.png"), 1280, 720),
                                        "-"], capture_output=True, text=True).stdout.split())
        return "KDE line" in seen
    poll(reads, 30)  # the bar's start, however slow; then the verdict below
    check("KDE line" in seen, "the cue reads above the full-screen native-Wayland mpv", seen)
    check(bool(mpris(bus, "Fullscreen", "org.mpris.MediaPlayer2")), "mpv stays full screen")

    err = stop_lumerix(lumerix, err_path)
    check("on-demand keyboard" not in err, "no keys on demand asked of a compositor that lacks them", err[-300:])
    mpv.terminate()
    mpv.wait(10)
    return verdict()


if __name__ == "__main__":
    sys.exit(main())
