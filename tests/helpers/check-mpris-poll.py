#!/usr/bin/env python3
"""lumerix-mpris serve against stand-in players on a private session bus:
what each answer says as players come, go, play, pause and name their
tracks in the ways real ones do.

  dbus-run-session -- check-mpris-poll.py LUMERIX_MPRIS

Exits 0 when every answer is right, 1 with the wrong ones, 77 (skipped)
without the GObject bindings.
"""
import os
import subprocess
import sys
import threading
import time

try:
    from gi.repository import Gio, GLib
except ImportError:
    sys.exit(77)

PATH = "/org/mpris/MediaPlayer2"
NODE = Gio.DBusNodeInfo.new_for_xml("""<node><interface name="org.mpris.MediaPlayer2.Player">
  <property name="PlaybackStatus" type="s" access="read"/>
  <property name="Position" type="x" access="read"/>
  <property name="Rate" type="d" access="read"/>
  <property name="Metadata" type="a{sv}" access="read"/>
</interface></node>""")


class Player:
    """One player: a connection of its own, so that each has its own name's object."""

    def __init__(self, suffix, status, position, rate, metadata):
        self.props = {"PlaybackStatus": GLib.Variant("s", status), "Position": GLib.Variant("x", position),
                      "Rate": GLib.Variant("d", rate), "Metadata": GLib.Variant("a{sv}", metadata)}
        self.name = "org.mpris.MediaPlayer2." + suffix
        self.bus = Gio.DBusConnection.new_for_address_sync(
            os.environ["DBUS_SESSION_BUS_ADDRESS"],
            Gio.DBusConnectionFlags.AUTHENTICATION_CLIENT | Gio.DBusConnectionFlags.MESSAGE_BUS_CONNECTION)
        self.bus.register_object(PATH, NODE.interfaces[0], None, lambda *a: self.props[a[4]], None)
        reply = self.bus.call_sync("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                                   "RequestName", GLib.Variant("(su)", (self.name, 4)), None, 0, 2000, None)
        assert reply.unpack()[0] == 1, self.name

    def leave(self):
        self.bus.close_sync(None)


def main():
    loop = GLib.MainLoop()
    threading.Thread(target=loop.run, daemon=True).start()
    failures = []

    def ask(helper, expected, what):
        # The bus's word of a name that came or went reaches the helper a
        # moment later, however busy the machine: asked again until the
        # answer is right, five seconds at most.
        end = time.monotonic() + 5
        while True:
            helper.stdin.write("\n")
            helper.stdin.flush()
            got = helper.stdout.readline().strip()
            if got == expected or time.monotonic() > end:
                break
            time.sleep(0.05)
        if got != expected:
            failures.append(f"{what}: {got!r}, not {expected!r}")

    def serve(*args):
        return subprocess.Popen([sys.argv[1], "serve", *args], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                text=True)

    helper = serve()
    ask(helper, "off", "no player on the bus")
    # No title, or one that is not a string: the file's name from the address.
    a = Player("fakeA", "Playing", 12_500_000, 1.5,
               {"xesam:title": GLib.Variant("i", 7), "xesam:url": GLib.Variant("s", "file:///v/Show%20S01E02.mkv")})
    ask(helper, "true|12.5|1.5|Show S01E02", "a player that came after the first poll")
    b = Player("fakeB.instance7", "Paused", 3_000_000, 1.0, {"xesam:title": GLib.Variant("s", "Other | film")})
    ask(helper, "true|12.5|1.5|Show S01E02", "the playing one, with another paused")
    a.leave()
    ask(helper, "false|3|1|Other | film", "the paused one, once the playing one has gone")
    b.leave()
    ask(helper, "off", "every player gone")
    helper.stdin.close()
    helper.wait(5)

    c = Player("fakeC", "Playing", 1_000_000, 1.0, {"xesam:title": GLib.Variant("s", "C")})
    d = Player("fakeD", "Playing", 2_000_000, 1.0, {"xesam:title": GLib.Variant("s", "D")})
    named = serve("--player", "fakeD")
    ask(named, "true|2|1|D", "--player picks its player among two that play")
    named.stdin.close()
    named.wait(5)
    c.leave()
    d.leave()
    loop.quit()

    for f in failures:
        print("FAIL  " + f)
    print("mpris poll: " + ("%d wrong" % len(failures) if failures else "every answer right"))
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
