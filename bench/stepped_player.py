#!/usr/bin/python3
"""How close Lumerix follows a player whose position comes in steps.

A stand-in MPRIS player on the session bus ("org.mpris.MediaPlayer2.stepped")
plays from 0 s at a given rate and reports its position rounded down to a
step (Firefox reports whole seconds; VLC moves every 0.26 s). Lumerix runs
headless against it with a subtitle of one cue a second, numbered by its
start; each change of the shown cue is compared with the player's true
position at the moment the line arrives. Prints the lateness of cue
changes (p50, p95, worst, in ms of wall time; negative: early) and the
number of cues that went backwards. Run inside a D-Bus session:

  dbus-run-session -- /usr/bin/python3 bench/stepped_player.py build/lumerix [STEP] [RATE] [SECONDS]
"""
import json, math, os, statistics, subprocess, sys, tempfile, threading, time

import gi
gi.require_version("Gio", "2.0")
from gi.repository import Gio, GLib

XML = """<node>
 <interface name="org.mpris.MediaPlayer2">
  <method name="Raise"/><method name="Quit"/>
  <property name="Identity" type="s" access="read"/>
  <property name="CanQuit" type="b" access="read"/>
  <property name="CanRaise" type="b" access="read"/>
  <property name="HasTrackList" type="b" access="read"/>
  <property name="DesktopEntry" type="s" access="read"/>
  <property name="SupportedUriSchemes" type="as" access="read"/>
  <property name="SupportedMimeTypes" type="as" access="read"/>
 </interface>
 <interface name="org.mpris.MediaPlayer2.Player">
  <method name="Play"/><method name="Pause"/><method name="PlayPause"/><method name="Stop"/>
  <property name="PlaybackStatus" type="s" access="read"/>
  <property name="Rate" type="d" access="read"/>
  <property name="Position" type="x" access="read"/>
  <property name="Metadata" type="a{sv}" access="read"/>
  <property name="CanPlay" type="b" access="read"/>
  <property name="CanPause" type="b" access="read"/>
  <property name="CanSeek" type="b" access="read"/>
  <property name="CanControl" type="b" access="read"/>
 </interface>
</node>"""


def main():
    lumerix = sys.argv[1]
    step = float(sys.argv[2]) if len(sys.argv) > 2 else 1.0
    rate = float(sys.argv[3]) if len(sys.argv) > 3 else 1.0
    seconds = float(sys.argv[4]) if len(sys.argv) > 4 else 40.0
    start = time.monotonic()

    def true_position(at):
        return (at - start) * rate

    def reported():
        p = true_position(time.monotonic())
        return math.floor(p / step) * step if step > 0 else p

    values = {
        "Identity": GLib.Variant("s", "Stepped"), "CanQuit": GLib.Variant("b", False),
        "CanRaise": GLib.Variant("b", False), "HasTrackList": GLib.Variant("b", False),
        "DesktopEntry": GLib.Variant("s", ""), "SupportedUriSchemes": GLib.Variant("as", []),
        "SupportedMimeTypes": GLib.Variant("as", []), "PlaybackStatus": GLib.Variant("s", "Playing"),
        "Rate": GLib.Variant("d", rate),
        "Metadata": GLib.Variant("a{sv}", {"xesam:title": GLib.Variant("s", "Stepped S01E01"),
                                           "mpris:trackid": GLib.Variant("o", "/stepped/1"),
                                           "mpris:length": GLib.Variant("x", 3600 * 1000000)}),
        "CanPlay": GLib.Variant("b", True), "CanPause": GLib.Variant("b", True),
        "CanSeek": GLib.Variant("b", False), "CanControl": GLib.Variant("b", True),
    }

    def get_property(conn, sender, path, iface, name):
        if name == "Position":
            return GLib.Variant("x", int(round(reported() * 1e6)))
        return values.get(name)

    def method_call(conn, sender, path, iface, method, params, invocation):
        invocation.return_value(None)

    bus = Gio.bus_get_sync(Gio.BusType.SESSION, None)
    node = Gio.DBusNodeInfo.new_for_xml(XML)
    for iface in node.interfaces:
        bus.register_object("/org/mpris/MediaPlayer2", iface, method_call, get_property, None)
    Gio.bus_own_name_on_connection(bus, "org.mpris.MediaPlayer2.stepped", Gio.BusNameOwnerFlags.NONE, None, None)
    loop = GLib.MainLoop()
    threading.Thread(target=loop.run, daemon=True).start()

    work = tempfile.mkdtemp()
    srt = os.path.join(work, "count.srt")
    with open(srt, "w") as f:
        for n in range(int(seconds * rate) + 30):
            f.write(f"{n + 1}\n{n // 3600:02d}:{n // 60 % 60:02d}:{n % 60:02d},000 --> "
                    f"{(n + 1) // 3600:02d}:{(n + 1) // 60 % 60:02d}:{(n + 1) % 60:02d},000\nC{n}\n\n")
    env = dict(os.environ, XDG_CONFIG_HOME=work)
    proc = subprocess.Popen([lumerix, "--headless", "--player", "stepped", srt], stdout=subprocess.PIPE,
                            stderr=subprocess.DEVNULL, env=env, text=True)
    late, back, shown = [], 0, None
    deadline = start + seconds
    for line in proc.stdout:
        at = time.monotonic()
        if at > deadline:
            break
        event = json.loads(line)
        text = event.get("text", "")
        if not text.startswith("C"):
            continue
        n = int(text[1:])
        if shown is not None and n < shown:
            back += 1
        if shown is not None and n == shown + 1 and at - start > 6:
            late.append((true_position(at) - n) / rate * 1000)
        shown = n
    proc.terminate()
    proc.wait()
    loop.quit()
    if len(late) < 5:
        print(f"stepped player: too few cue changes ({len(late)})")
        return 1
    late.sort()
    p95 = late[min(len(late) - 1, int(0.95 * len(late)))]
    print(f"step {step:g} s at {rate:g}x: {len(late)} cue changes, late p50 {statistics.median(late):.0f} ms, "
          f"p95 {p95:.0f} ms, worst {max(late, key=abs):.0f} ms; {back} backwards")
    return 0


sys.exit(main())
