#!/usr/bin/env python3
"""The bar's keys with the chord while a full-screen mpv has the keyboard.

Runs inside a D-Bus session and an X server with openbox (see
run-global-keys.sh). Another client holds Ctrl+Alt+Super+F before the bar
starts. Checks: the chord's Right moves the timing by +0.5 s (side file) and
mpv neither seeks nor loses full screen; the chord's H hides the bar and
shows it again; the key held elsewhere is named in the status line and the
others still work; `lumerix --do` reaches the running bar, an unknown
action exits 2 and, once the bar is gone, --do says Lumerix is not running.
"""
import argparse, ctypes, json, os, socket, subprocess, sys, time

from check_bar import Bar, Screen, fullscreen, sh, start_mpv, status_reads, write_subtitles
from gui_common import check, verdict, wait_for

CHORD = "ctrl+alt+super"


def hold_key(keysym):
    """Another client grabbing the chord with keysym, as a desktop's own
    shortcut would; returns the process (it holds the key until killed)."""
    code = f"""
import ctypes, sys, time
x = ctypes.CDLL("libX11.so.6")
x.XOpenDisplay.restype = ctypes.c_void_p
x.XDefaultRootWindow.restype = ctypes.c_ulong
x.XDefaultRootWindow.argtypes = [ctypes.c_void_p]
x.XStringToKeysym.restype = ctypes.c_ulong
x.XKeysymToKeycode.argtypes = [ctypes.c_void_p, ctypes.c_ulong]
x.XGrabKey.argtypes = [ctypes.c_void_p, ctypes.c_int, ctypes.c_uint, ctypes.c_ulong, ctypes.c_int, ctypes.c_int,
                       ctypes.c_int]
x.XSync.argtypes = [ctypes.c_void_p, ctypes.c_int]
d = x.XOpenDisplay(None)
code = x.XKeysymToKeycode(d, x.XStringToKeysym(b"{keysym}"))
for lock in (0, 2, 16, 18):  # Caps and Num Lock (Mod2 here)
    x.XGrabKey(d, code, 4 | 8 | 64 | lock, x.XDefaultRootWindow(d), 0, 1, 1)
x.XSync(d, 0)
print("held", flush=True)
time.sleep(3600)
"""
    holder = subprocess.Popen([sys.executable, "-c", code], stdout=subprocess.PIPE, text=True)
    check(holder.stdout.readline().strip() == "held", f"another client holds {CHORD}+{keysym}")
    return holder


def mpv_time(sock_path):
    with socket.socket(socket.AF_UNIX) as s:
        s.connect(sock_path)
        s.sendall(b'{"command": ["get_property", "time-pos"]}\n')
        return json.loads(s.makefile().readline())["data"]


def side_offset(path):
    try:
        with open(path) as f:
            return round(json.load(f)["offset"], 3)
    except (OSError, ValueError, KeyError):
        return None


def mapped(wid):
    return "IsViewable" in sh("xwininfo", "-id", wid, check=False)


def chord(key_name):
    sh("xdotool", "key", "--clearmodifiers", f"{CHORD}+{key_name}")
    time.sleep(0.5)


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--lumerix", required=True)
    ap.add_argument("--work", required=True)
    args = ap.parse_args()
    screen = Screen(args.work)
    env, _ = write_subtitles(args.work)
    subtitle = os.path.join(args.work, "clip.srt")
    side = subtitle + ".sync.json"

    openbox = subprocess.Popen(["openbox"], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    compositor = subprocess.Popen(["xcompmgr"], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    time.sleep(1)
    holder = hold_key("f")
    mpv, mpv_wid = start_mpv(args)
    bar = None
    try:
        wait_for(lambda: fullscreen(mpv_wid), 10, "mpv to go full screen")
        bar = Bar(args.lumerix, [subtitle], env)
        time.sleep(1)
        # The key held elsewhere is named once, after the start hint.
        ok, seen = status_reads(screen, bar, "Ctrl+Alt+Super+F is taken by another program", timeout=15,
                                 threshold="50%")
        check(ok, "a key another program holds is named in the status line", seen)

        sh("xdotool", "windowactivate", "--sync", mpv_wid)
        time.sleep(0.5)
        focus = sh("xdotool", "getwindowfocus").strip()
        check(focus == mpv_wid, "mpv has the keyboard", f"focus {focus}, mpv {mpv_wid}")
        sock = os.path.join(args.work, "mpv.sock")
        before, at = mpv_time(sock), time.monotonic()
        chord("Right")
        wait_for(lambda: side_offset(side) is not None, 5, "the side file")
        check(side_offset(side) == 0.5, "the chord's Right moves the timing by +0.5 s", str(side_offset(side)))
        # mpv's own Right seeks 5 s: it must not have seen the key.
        moved = mpv_time(sock) - before - (time.monotonic() - at)
        check(abs(moved) < 1.0, "mpv does not seek", f"{moved:+.2f} s beyond the clock")
        check(fullscreen(mpv_wid), "mpv stays full screen")
        chord("comma")
        check(side_offset(side) == 0.4, "the chord's comma moves it by -0.1 s, with F held elsewhere",
              str(side_offset(side)))

        chord("h")
        check(wait_for(lambda: not mapped(bar.wid), 3, "the bar to hide"), "the chord's H hides the bar")
        chord("h")
        check(wait_for(lambda: mapped(bar.wid), 3, "the bar to come back"), "the chord's H shows it again")

        done = subprocess.run([args.lumerix, "--do", "offset-0.1"], env=env, capture_output=True, text=True)
        check(done.returncode == 0 and done.stderr == "", "lumerix --do offset-0.1 exits 0", done.stderr)
        time.sleep(0.5)
        check(side_offset(side) == 0.3, "--do reaches the running bar", str(side_offset(side)))
        both = [subprocess.Popen([args.lumerix, "--do", "offset+0.5"], env=env) for _ in range(2)]
        check([p.wait(10) for p in both] == [0, 0], "two at once both exit 0")
        time.sleep(0.5)
        check(side_offset(side) == 1.3, "and neither is lost", str(side_offset(side)))
        unknown = subprocess.run([args.lumerix, "--do", "offset+5"], env=env, capture_output=True, text=True)
        check(unknown.returncode == 2 and "toggle-bar" in unknown.stderr, "an unknown action exits 2 with the list",
              unknown.stderr)
        check(bar.stop() == 0, "quits cleanly with the keys grabbed")
        err = bar.proc.stderr.read()
        check("CRITICAL" not in err, "no CRITICAL from GTK or the libraries", err[-300:])
        bar = None
        gone = subprocess.run([args.lumerix, "--do", "mark1"], env=env, capture_output=True, text=True)
        check(gone.returncode == 1 and gone.stderr == "Lumerix is not running\n",
              "--do without a bar: exit 1, Lumerix is not running", f"{gone.returncode} {gone.stderr!r}")
        # Released at exit: another client can take the keys now.
        holder.terminate()
        holder.wait(5)
        hold_key("Right").terminate()
    finally:
        if bar:
            bar.stop()
        holder.kill()
        mpv.terminate()
        mpv.wait(10)
        compositor.terminate()
        openbox.terminate()
        openbox.wait(10)
    sys.exit(verdict())


if __name__ == "__main__":
    main()
