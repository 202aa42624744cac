"""What the checks of the bar on screen share: the verdict lines, waiting,
and, for the Wayland desktops, a full-screen mpv and Lumerix's end."""
import os, signal, subprocess, sys, time

FAILURES = []
LABEL = ""  # "sway: " and the like, before each line
MPRIS, MPRIS_PATH = "org.mpris.MediaPlayer2.mpv", "/org/mpris/MediaPlayer2"


def check(ok, what, detail=""):
    print(("ok    " if ok else "FAIL  ") + LABEL + what + (f"  ({detail})" if detail and not ok else ""), flush=True)
    if not ok:
        FAILURES.append(what)
    return ok


def wait_for(cond, timeout, what):
    end = time.monotonic() + timeout
    while time.monotonic() < end:
        value = cond()
        if value:
            return value
        time.sleep(0.1)
    sys.exit(f"{LABEL or 'gui: '}timed out waiting for {what}")


def poll(cond, timeout):
    """cond's first true value, or its last when timeout passes: for a check
    that waits for what it looks at (the timeout is for failure, not a
    timing) and then judges it, rather than ending the run."""
    end = time.monotonic() + timeout
    while True:
        value = cond()
        if value or time.monotonic() >= end:
            return value
        time.sleep(0.1)


def verdict():
    if FAILURES:
        print(f"{LABEL}{len(FAILURES)} checks failed")
        return 1
    print(f"{LABEL}all checks passed")
    return 0


def mpris(bus, prop, iface="org.mpris.MediaPlayer2.Player"):
    """A property of the mpv started by wayland_mpv."""
    from gi.repository import Gio, GLib  # python3-gi: only the Wayland checks need it
    return bus.call_sync(MPRIS, MPRIS_PATH, "org.freedesktop.DBus.Properties", "Get",
                         GLib.Variant("(ss)", (iface, prop)), None, Gio.DBusCallFlags.NONE, 2000, None).unpack()[0]


def wayland_mpv(bus, work):
    """A native-Wayland mpv playing clip.mp4 full screen, once MPRIS says so.
    Not --sub-auto: mpv would draw clip.srt itself, and the text read must be
    Lumerix's."""
    env = dict(os.environ)
    env.pop("DISPLAY", None)
    mpv = subprocess.Popen(["mpv", "--no-config", "--script=/usr/lib/mpv-mpris/mpris.so", "--ao=null", "--vo=wlshm",
                            "--fs", "--no-terminal", "--sub-auto=no", "--keep-open=yes",
                            os.path.join(work, "clip.mp4")], env=env)
    subprocess.run(["gdbus", "wait", "--session", "--timeout", "15", MPRIS], check=True)
    wait_for(lambda: mpris(bus, "Fullscreen", "org.mpris.MediaPlayer2"), 10, "mpv to go full screen")
    return mpv


def stop_lumerix(lumerix, err_path):
    """SIGTERM, a clean exit, and no CRITICAL on its stderr, which it returns."""
    lumerix.send_signal(signal.SIGTERM)
    check(lumerix.wait(10) == 0, "quits cleanly on SIGTERM")
    with open(err_path) as f:
        err = f.read()
    check("CRITICAL" not in err, "no CRITICAL from GTK or the libraries", err[-300:])
    return err
