#!/usr/bin/env python3
"""A desktop portal with global shortcuts, as KDE's answers, on the session bus
it is started on.

  fake-shortcuts-portal.py bind|decline|absent

bind: sessions are created, shortcuts bound with a trigger the "desktop"
chose (Meta where Super was asked for); decline: BindShortcuts answers 1
(the user cancelled); absent: the portal runs without the interface. Prints
"ready" once the name is owned, then one line a call ("bind ID=TRIGGER ...",
"close PATH"). Reads commands on stdin: "activate ID" emits Activated on the
last session, "close" closes it from the desktop's side.
"""
import sys

from gi.repository import Gio, GLib

MODE = sys.argv[1]
PATH = "/org/freedesktop/portal/desktop"
XML = """<node>
<interface name="org.freedesktop.portal.GlobalShortcuts">
  <method name="CreateSession"><arg type="a{sv}" direction="in"/><arg type="o" direction="out"/></method>
  <method name="BindShortcuts"><arg type="o" direction="in"/><arg type="a(sa{sv})" direction="in"/>
    <arg type="s" direction="in"/><arg type="a{sv}" direction="in"/><arg type="o" direction="out"/></method>
  <signal name="Activated"><arg type="o"/><arg type="s"/><arg type="t"/><arg type="a{sv}"/></signal>
  <property name="version" type="u" access="read"/>
</interface>
<interface name="org.freedesktop.portal.Session">
  <method name="Close"/>
  <signal name="Closed"><arg type="a{sv}"/></signal>
</interface>
</node>"""
info = Gio.DBusNodeInfo.new_for_xml(XML)
bus = Gio.bus_get_sync(Gio.BusType.SESSION)
sessions = []


def say(line):
    print(line, flush=True)


def request_path(sender, token):
    return f"{PATH}/request/{sender[1:].replace('.', '_')}/{token}"


def respond(path, code, results):
    # After the call's own reply, as a real portal answers: later.
    GLib.timeout_add(50, lambda: bus.emit_signal(None, path, "org.freedesktop.portal.Request", "Response",
                                                 GLib.Variant("(ua{sv})", (code, results))) and False)


def on_session_call(conn, sender, path, iface, method, params, invocation):
    say(f"close {path}")
    invocation.return_value(None)


def on_call(conn, sender, path, iface, method, params, invocation):
    options = params.unpack()[-1]
    token = options.get("handle_token", "t")
    handle = request_path(sender, token)
    if method == "CreateSession":
        session = f"{PATH}/session/{sender[1:].replace('.', '_')}/{options['session_handle_token']}"
        bus.register_object(session, info.interfaces[1], on_session_call, None, None)
        sessions.append(session)
        respond(handle, 0, {"session_handle": GLib.Variant("s", session)})
    else:
        session, shortcuts = params.unpack()[0], params.unpack()[1]
        chosen = [(sid, {"description": GLib.Variant("s", opts["description"]),
                         "trigger_description": GLib.Variant("s", opts["preferred_trigger"].replace("LOGO", "Meta"))})
                  for sid, opts in shortcuts]
        say("bind " + " ".join(f"{sid}={opts['preferred_trigger']}" for sid, opts in shortcuts))
        if MODE == "decline":
            respond(handle, 1, {})
        else:
            respond(handle, 0, {"shortcuts": GLib.Variant("a(sa{sv})", chosen)})
    invocation.return_value(GLib.Variant("(o)", (handle,)))


def on_property(conn, sender, path, iface, name):
    return GLib.Variant("u", 1)


if MODE != "absent":
    bus.register_object(PATH, info.interfaces[0], on_call, on_property, None)


def on_stdin(channel, condition):
    line = channel.readline()
    if not line:
        loop.quit()
        return False
    words = line.split()
    if words and words[0] == "activate":
        bus.emit_signal(None, PATH, "org.freedesktop.portal.GlobalShortcuts", "Activated",
                        GLib.Variant("(osta{sv})", (sessions[-1], words[1], 0, {})))
    elif words and words[0] == "close":
        bus.emit_signal(None, sessions[-1], "org.freedesktop.portal.Session", "Closed", GLib.Variant("(a{sv})", ({},)))
    return True


loop = GLib.MainLoop()
Gio.bus_own_name_on_connection(bus, "org.freedesktop.portal.Desktop", Gio.BusNameOwnerFlags.NONE,
                               lambda *a: say("ready"), None)
GLib.io_add_watch(GLib.IOChannel.unix_new(sys.stdin.fileno()), GLib.PRIORITY_DEFAULT, GLib.IO_IN | GLib.IO_HUP,
                  on_stdin)
loop.run()
