#!/usr/bin/env python3
"""The bar on screen, read back the way a person reads it.

Runs inside a D-Bus session and an X server (see run-gui.sh). Each check
takes screenshots of the root window, crops them to the bar and reads the
text with tesseract; a bar stacked under a full-screen player reads as
nothing, so a stacking fault fails the check. Checks, in order:

1. openbox + xcompmgr, stacking: with the first-run guide open, a window
   raised over both brings the bar back on top and the guide above it; a
   second demo shows no guide; another program's override-redirect window
   mapped over the bar keeps the top (no fight).
   The demo: the first cue reads back; a click gives the bar the keys ("t": the band,
   whose cue reads back too; the status line confirms each key); the window
   is override-redirect, 32 bits deep and on all desktops; it moves by its
   background and stops at 320 wide when an edge is dragged.
2. openbox over a full-screen mpv: the cue is on top and readable; a click
   and Left shift the timing while mpv stays full screen; a click on mpv
   gives it the keys back; the frame comes back after a restart; a second
   launch hands its GB 18030 Chinese subtitle to the running bar, which
   draws its glyphs.
   Two subtitles over it: both lines read back, each at its own time, and
   "s" hands the timing keys to the second alone.
3. openbox without a compositor: the status line says the bar cannot be
   see-through; SIGHUP (a closed terminal) quits cleanly, timing saved.
4. mutter (--x11 --replace) over a full-screen mpv: on top, readable, keys.
5. A screen that shrinks (Xephyr nested in the display, resized by xrandr
   as a monitor change would): the bar comes back onto it, whole.
"""
import argparse, difflib, json, os, re, signal, subprocess, sys, time

from gui_common import FAILURES, check, poll, wait_for


def sh(*cmd, check=True):
    return subprocess.run(cmd, check=check, capture_output=True, text=True).stdout


class Screen:
    def __init__(self, work):
        self.work, self.n = work, 0

    def shot(self):
        self.n += 1
        path = os.path.join(self.work, f"shot{self.n}.png")
        sh("import", "-window", "root", path)
        return path

    def read(self, shot, box, threshold="90%", scale=200, psm=6):
        """OCR of a crop: light text on anything darker."""
        x, y, w, h = (int(v) for v in box)
        out = shot + f".{x}-{y}.png"
        levels = ["-threshold", threshold] if threshold else []
        sh("convert", shot, "-crop", f"{w}x{h}+{x}+{y}", "+repage", "-colorspace", "gray", "-resize", f"{scale}%",
           *levels, "-negate", "-bordercolor", "white", "-border", "20", out)
        return " ".join(sh("tesseract", out, "-", "--psm", str(psm), check=False).split())

    def bright_pixels(self, shot, box, level="80%"):
        x, y, w, h = (int(v) for v in box)
        text = sh("convert", shot, "-crop", f"{w}x{h}+{x}+{y}", "+repage", "-colorspace", "gray", "-threshold",
                  level, "-format", "%[fx:mean*w*h]", "info:")
        return float(text)


class Bar:
    def __init__(self, lumerix, args, env=None):
        self.proc = subprocess.Popen([lumerix] + args, env=env, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                     text=True)
        self.wid = wait_for(self.find, 15, "the bar's window")

    def find(self):
        pid = str(self.proc.pid)
        found = [w for w in Bar.windows() if sh("xdotool", "getwindowpid", w, check=False).strip() == pid]
        return found[0] if found else None

    @staticmethod
    def windows(which=()):
        """The bars on screen (of one process: ["--pid", PID])."""
        out = sh("xdotool", "search", "--onlyvisible", *which, "--name", "^Lumerix$", check=False)
        return [w for w in out.split() if "Override Redirect State: yes" in sh("xwininfo", "-id", w, check=False)]

    def geometry(self):
        g = dict(line.split("=") for line in sh("xdotool", "getwindowgeometry", "--shell", self.wid).split())
        return int(g["X"]), int(g["Y"]), int(g["WIDTH"]), int(g["HEIGHT"])

    def text_box(self):
        x, y, w, h = self.geometry()
        return x + 20, y + 8, w - 40, h - 34  # above the status line

    def status_box(self):
        x, y, w, h = self.geometry()
        return x + 3, y + h - 21, w - 6, 17  # inside the hover outline

    def click(self, dx=None, dy=None):
        x, y, w, h = self.geometry()
        def has_keys():
            return sh("xdotool", "getwindowfocus", check=False).strip() == self.wid

        # Keys typed next must reach the bar: wait until it has them, and
        # still has them a moment later. A window manager may hand the focus
        # back to a window of an earlier check that is going away just then,
        # as it does for anyone; then the bar is clicked again, as a user would.
        for _ in range(3):
            sh("xdotool", "mousemove", str(x + (w // 2 if dx is None else dx)),
               str(y + (h // 2 if dy is None else dy)), "click", "1")
            if poll(has_keys, 10):
                time.sleep(0.3)
                if has_keys():
                    return True
        return False

    def drag(self, fx, fy, dx, dy):
        x, y, _, _ = self.geometry()
        sh("xdotool", "mousemove", str(x + fx), str(y + fy), "mousedown", "1")
        for i in range(1, 11):
            sh("xdotool", "mousemove", str(x + fx + dx * i // 10), str(y + fy + dy * i // 10))
            time.sleep(0.03)
        sh("xdotool", "mouseup", "1")
        time.sleep(0.3)

    def stop(self, how=signal.SIGTERM):
        self.proc.send_signal(how)
        try:
            return self.proc.wait(10)
        except subprocess.TimeoutExpired:
            self.proc.kill()
            return None


def key(name):
    sh("xdotool", "key", name)
    time.sleep(0.4)


def says(words, seen):
    """Whether OCR read the words, forgiving a letter or two ("0.5s" read as "0.55")."""
    w, s = words.lower(), seen.lower()
    return any(difflib.SequenceMatcher(None, w, s[i:i + len(w)]).ratio() >= 0.85
               for i in range(max(1, len(s) - len(w) + 1)))


def status_says(screen, shot, bar, words, threshold="65%"):
    # Small light text: enlarged, and a lower threshold than the cues' (on
    # black, none at all reads best).
    seen = screen.read(shot, bar.status_box(), threshold=threshold, scale=400, psm=7)
    return says(words, seen), seen


def status_reads(screen, bar, words, timeout=10, threshold="65%"):
    """The status line, read until it says the words (a hint stays 3 s)."""
    seen = ""

    def says_it():
        nonlocal seen
        ok, seen = status_says(screen, screen.shot(), bar, words, threshold)
        return ok
    return poll(says_it, timeout), seen


def reads_cue(screen, bar, pattern, timeout=15):
    seen = ""

    def reads():
        nonlocal seen
        seen = screen.read(screen.shot(), bar.text_box())
        return re.search(pattern, seen, re.I) is not None
    return poll(reads, timeout), seen


def stacking():
    """The root's children, bottom to top (xwininfo lists the top first)."""
    listed = re.findall(r"^\s+(0x[0-9a-f]+)", sh("xwininfo", "-root", "-children"), re.M)
    return [int(m, 16) for m in reversed(listed)]


def top_level(wid):
    """The child of the root that holds wid: itself, or its window manager's frame."""
    w = int(wid)
    while True:
        tree = sh("xwininfo", "-tree", "-id", str(w))
        root = int(re.search(r"Root window id: (0x[0-9a-f]+)", tree).group(1), 16)
        parent = int(re.search(r"Parent window id: (0x[0-9a-f]+)", tree).group(1), 16)
        if parent == root:
            return w
        w = parent


def above(upper, lower):
    order = stacking()
    return order.index(top_level(upper)) > order.index(top_level(lower))


def stacking_checks(args):
    # The first-run guide is a dialog of ours: the bar never covers it, not
    # even when another window comes up and the bar raises itself over that.
    fresh = dict(os.environ, XDG_CONFIG_HOME=os.path.join(args.work, "guide-config"))
    mpv, mpv_wid = start_mpv(args, fullscreen=False, geometry="1200x680+0+0")  # over the bar
    bar = Bar(args.lumerix, ["--demo"], fresh)
    pid = str(bar.proc.pid)
    guide = wait_for(lambda: (w := sh("xdotool", "getactivewindow", check=False).strip()) and w != bar.wid
                     and sh("xdotool", "getwindowpid", w, check=False).strip() == pid and w, 10, "the first-run guide")
    title = sh("xdotool", "getwindowname", guide, check=False).strip()
    check(title == "Lumerix", "the guide has a title for the task switcher", repr(title))
    sh("xdotool", "windowactivate", mpv_wid)
    poll(lambda: above(bar.wid, mpv_wid) and above(guide, bar.wid), 10)
    check(above(bar.wid, mpv_wid) and above(guide, bar.wid),
          "a window raised over the bar and the guide: the bar comes back on top, the guide above it",
          f"stacking {stacking()}")
    sh("xdotool", "windowactivate", guide)
    sh("xdotool", "key", "--window", guide, "Return")
    bar.stop()
    again = Bar(args.lumerix, ["--demo"], fresh)
    time.sleep(2)
    shown = sh("xdotool", "search", "--onlyvisible", "--pid", str(again.proc.pid), check=False).split()
    check(shown == [again.wid], "a second demo does not show the guide again", f"windows {shown}")

    # Another program's override-redirect window over the bar (a menu, a lock
    # screen, another bar) is left on top: no fight for the top.
    other = Bar(args.lumerix, ["--demo"], fresh)  # its guide was seen too: only its bar maps
    flips = 0
    for _ in range(10):
        flips += not above(other.wid, again.wid)
        time.sleep(0.1)
    check(flips == 0, "an override-redirect window mapped over the bar stays on top for a second",
          f"{flips} of 10: {other.wid} vs {again.wid} in {stacking()}")
    other.stop()
    again.stop()
    mpv.terminate()
    mpv.wait(10)


def demo_checks(args, screen):
    started = time.monotonic()
    # The guide was seen (stacking_checks): the demo starts straight away.
    bar = Bar(args.lumerix, ["--demo"], dict(os.environ, XDG_CONFIG_HOME=os.path.join(args.work, "guide-config")))
    # Screenshots first, reading after: reading takes seconds the cues do not last.
    # "Lumerix is listening." shows from 1.0 s to 3.5 s after start.
    first = []
    while time.monotonic() - started < 3.3:
        first.append(screen.shot())
        time.sleep(0.25)
    keys = bar.click()
    key("t")
    band_ok, band_seen = status_reads(screen, bar, "Background: black band")
    if not keys:
        band_seen += f" (the keys stayed with {sh('xdotool', 'getwindowfocus', check=False).strip()}, not the bar)"
    # "Each line appears when / the player reaches its time." from 4.0 s to 6.5 s.
    wait_for(lambda: time.monotonic() - started > 4.3, 10, "the second cue")
    second = []
    while time.monotonic() - started < 6.2:
        second.append(screen.shot())
        time.sleep(0.3)
    texts = [screen.read(s, bar.text_box()) for s in first]
    check(any("listening" in t.lower() for t in texts), "demo: the first cue reads back", " | ".join(texts))
    check(band_ok, "a click gives the bar the keys: t switches to the band", band_seen)
    texts = [screen.read(s, bar.text_box()) for s in second]
    check(any(re.search(r"appears\s+when", t, re.I) for t in texts), "band mode: the cue reads back", " | ".join(texts))
    key("Left")
    ok, seen = status_reads(screen, bar, "Timing offset -0.5s")
    check(ok, "Left shifts the timing (status line)", seen)

    info = sh("xwininfo", "-id", bar.wid)
    check("Override Redirect State: yes" in info, "the bar is override-redirect")
    check("Depth: 32" in info, "the bar has an RGBA visual", info)
    desktop = sh("xprop", "-id", bar.wid, "_NET_WM_DESKTOP", check=False)
    check("4294967295" in desktop, "the bar is on all desktops", desktop.strip())

    x, y, w, h = bar.geometry()
    bar.drag(w // 2, h // 2, -100, -60)
    check(bar.geometry()[:2] == (x - 100, y - 60), "dragging the background moves the bar", str(bar.geometry()))
    x, y, w, h = bar.geometry()
    bar.drag(2, h // 2, w, 0)
    nx, ny, nw, nh = bar.geometry()
    check((nw, nh, nx + nw) == (320, h, x + w), "dragging the left edge stops at 320 wide", str(bar.geometry()))
    check(bar.stop() == 0, "the demo quits cleanly on SIGTERM")


def start_mpv(args, fullscreen=True, geometry="640x360+100+100"):
    sock = os.path.join(args.work, "mpv.sock")
    # Not --sub-auto: mpv would draw clip.srt itself, and the text read must be Lumerix's.
    mpv = subprocess.Popen(["mpv", "--no-config", "--script=/usr/lib/mpv-mpris/mpris.so", "--ao=null", "--vo=x11",
                            "--no-terminal", "--sub-auto=no", f"--input-ipc-server={sock}", "--keep-open=yes", "--loop-file=inf",
                            "--fs" if fullscreen else f"--geometry={geometry}", os.path.join(args.work, "clip.mp4")])
    sh("gdbus", "wait", "--session", "--timeout", "15", "org.mpris.MediaPlayer2.mpv")
    wid = wait_for(lambda: sh("xdotool", "search", "--onlyvisible", "--class", "mpv", check=False).split(), 10,
                   "mpv's window")[0]
    return mpv, wid


def fullscreen(wid):
    return "_NET_WM_STATE_FULLSCREEN" in sh("xprop", "-id", wid, "_NET_WM_STATE", check=False)


def write_subtitles(work):
    with open(os.path.join(work, "clip.srt"), "w") as f:
        for s in range(120):
            f.write(f"{s + 1}\n00:{s // 60:02d}:{s % 60:02d},000 --> 00:{(s + 1) // 60:02d}:{(s + 1) % 60:02d},000\n"
                    f"Line {s} of the show\n\n")
    with open(os.path.join(work, "zh.srt"), "wb") as f:
        f.write("1\n00:00:00,000 --> 00:10:00,000\n这是中文字幕测试，繁體字幕\n".encode("gb18030"))
    config = os.path.join(work, "config", "lumerix")
    os.makedirs(config, exist_ok=True)
    with open(os.path.join(config, "settings.json"), "w") as f:
        json.dump({"DidOnboard": True, "DebugLog": True}, f)
    env = dict(os.environ, XDG_CONFIG_HOME=os.path.join(work, "config"))
    return env, os.path.join(config, "settings.json")


def over_fullscreen(args, screen, env, wm):
    # Each run starts from no saved timing.
    side = os.path.join(args.work, "clip.srt.sync.json")
    if os.path.exists(side):
        os.remove(side)
    mpv, mpv_wid = start_mpv(args)
    wait_for(lambda: fullscreen(mpv_wid), 10, "mpv to go full screen")
    bar = Bar(args.lumerix, ["--player", "mpv", os.path.join(args.work, "clip.srt")], env)
    ok, seen = reads_cue(screen, bar, r"Line \d+ of the show")
    check(ok, f"{wm}: the bar is above full-screen mpv and its cue reads back", seen)
    bar.click()
    key("Left")
    # The hint over a dark picture reads less well; the side file says exactly.
    ok, seen = status_reads(screen, bar, "Timing")

    def saved_offset():
        try:
            with open(side) as f:
                return json.load(f).get("offset")
        except (OSError, ValueError):
            return None  # not written yet, or half a file: a failure below, with what was seen
    offset = poll(saved_offset, 10)
    check(ok and offset == -0.5, f"{wm}: a click gives the bar the keys over full screen (Left)", f"{seen}; {offset}")
    check(fullscreen(mpv_wid), f"{wm}: mpv stays full screen")
    return mpv, mpv_wid, bar


def openbox_checks(args, screen, env, settings):
    mpv, mpv_wid, bar = over_fullscreen(args, screen, env, "openbox")
    # A click elsewhere hands the keys back to the player.
    sh("xdotool", "mousemove", "640", "200", "click", "1")
    poll(lambda: sh("xdotool", "getwindowfocus").strip() == mpv_wid, 10)
    check(sh("xdotool", "getwindowfocus").strip() == mpv_wid, "openbox: a click on mpv gives it the keys back")

    x, y, w, h = bar.geometry()
    bar.drag(w // 2, h // 2, 70, -50)
    moved = bar.geometry()
    check(bar.stop() == 0, "quits cleanly on SIGTERM")
    log = bar.proc.stderr.read()
    check(re.search(r"^PXDBG onActiveSpace=1 visible=1 occlusion=\d+ key=\d level=101 frame=", log, re.M) is not None,
          "DebugLog writes its PXDBG line", log[-300:])
    with open(settings) as f:
        saved = json.load(f).get("LumerixPanel", "")
    check(bool(saved), "the frame is saved", saved)
    bar = Bar(args.lumerix, ["--player", "mpv", os.path.join(args.work, "clip.srt")], env)
    poll(lambda: bar.geometry() == moved, 10)
    check(bar.geometry() == moved, "the frame comes back after a restart", f"{bar.geometry()} vs {moved}")

    # A second launch hands its file to the running bar and leaves.
    second = subprocess.run([args.lumerix, os.path.join(args.work, "zh.srt")], env=env, capture_output=True,
                            timeout=30)
    # One bar on screen, and it is the running one's. The window list is
    # read a few times: it can be caught while the running bar remaps.
    poll(lambda: Bar.windows() == [bar.find()], 5)
    check(second.returncode == 0 and Bar.windows() == [bar.find()], "a second launch opens no second bar",
          f"status {second.returncode}, bars {Bar.windows()}, the running bar's {bar.find()} (was {bar.wid})")
    bar.wid = bar.find() or bar.wid
    lit, seen = 0, ""

    def chinese_shown():
        nonlocal lit, seen
        shot = screen.shot()
        lit, seen = screen.bright_pixels(shot, bar.text_box()), screen.read(shot, bar.text_box())
        return lit > 400 and "Line" not in seen
    poll(chinese_shown, 15)
    check(lit > 400 and "Line" not in seen, "the running bar shows the GB 18030 Chinese cue it was handed",
          f"{lit:.0f} bright pixels; read {seen!r}")
    bar.stop()
    mpv.terminate()
    mpv.wait(10)


def two_subtitles_checks(args, screen, env):
    # Settings of their own: the pair remembered here must not follow the
    # checks after this one.
    config = os.path.join(args.work, "config-two")
    os.makedirs(os.path.join(config, "lumerix"), exist_ok=True)
    with open(os.path.join(config, "lumerix", "settings.json"), "w") as f:
        json.dump({"DidOnboard": True}, f)
    env = dict(env, XDG_CONFIG_HOME=config)
    second = os.path.join(args.work, "second.srt")
    with open(second, "w") as f:
        for s in range(120):
            f.write(f"{s + 1}\n00:{s // 60:02d}:{s % 60:02d},000 --> 00:{(s + 1) // 60:02d}:{(s + 1) % 60:02d},000\n"
                    f"Second row {s}\n\n")
    first = os.path.join(args.work, "clip.srt")
    for side in (first + ".sync.json", second + ".sync.json"):
        if os.path.exists(side):
            os.remove(side)
    mpv, mpv_wid = start_mpv(args)
    wait_for(lambda: fullscreen(mpv_wid), 10, "mpv to go full screen")
    bar = Bar(args.lumerix, ["--player", "mpv", "--second", second, first], env)
    time.sleep(2.5)
    # The soft yellow is darker than white: a lower threshold keeps it.
    seen, both = "", None
    for _ in range(8):
        shot = screen.shot()
        seen = screen.read(shot, bar.text_box(), threshold="70%")
        lines = re.search(r"Line (\d+) of the show.*Second row (\d+)", seen, re.I | re.S)
        if lines:
            both = lines
            break
        time.sleep(0.3)
    check(both is not None, "two subtitles: the first's line and the second's under it read back", seen)
    if both:
        import shutil
        shutil.copy(shot, os.path.join(args.work, "two-subtitles.png"))
        check(abs(int(both.group(1)) - int(both.group(2))) <= 1, "two subtitles: both at the same moment", seen)
    # Small status text over the dark picture reads unreliably: the side
    # files say exactly which timing moved.
    bar.click()
    key("s")
    key("period")
    time.sleep(0.3)
    sides = [os.path.exists(first + ".sync.json"), os.path.exists(second + ".sync.json")]
    with open(second + ".sync.json") if sides[1] else open(os.devnull) as f:
        offset = json.load(f).get("offset") if sides[1] else None
    check(sides == [False, True] and offset == 0.1, "two subtitles: s, then . moves the second alone",
          f"{sides}; {offset}")
    check(bar.stop() == 0, "two subtitles: quits cleanly")
    mpv.terminate()
    mpv.wait(10)


def no_compositor_checks(args, screen, env, compositor):
    compositor.terminate()
    compositor.wait(10)
    time.sleep(0.5)
    bar = Bar(args.lumerix, [os.path.join(args.work, "clip.srt")], env)
    # It follows the start hint, which stays 3 s.
    ok, seen = status_reads(screen, bar, "No compositor running", timeout=20, threshold=None)
    check(ok, "without a compositor the status line says so", seen)
    # A closed terminal or a logout: as SIGTERM, the timing saved.
    side = os.path.join(args.work, "clip.srt.sync.json")
    if os.path.exists(side):
        os.remove(side)
    check(bar.stop(signal.SIGHUP) == 0 and os.path.exists(side), "quits cleanly on SIGHUP, saving the timing")


def shrink_checks(args, env):
    """A nested X server whose screen shrinks under the running bar."""
    read, write = os.pipe()
    xephyr = subprocess.Popen(["Xephyr", "-displayfd", str(write), "-screen", "1280x720", "-resizeable", "-ac"],
                              pass_fds=(write,), stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    os.close(write)
    with os.fdopen(read) as f:
        display = ":" + f.readline().strip()
    nested = dict(env, DISPLAY=display)
    outer = os.environ["DISPLAY"]
    os.environ["DISPLAY"] = display  # for xdotool and xrandr
    wm_log = os.path.join(args.work, "openbox-nested.log")

    def openbox():
        with open(wm_log, "a") as log:
            return subprocess.Popen(["openbox"], env=nested, stdout=log, stderr=log)

    def managed():
        return "_NET_SUPPORTING_WM_CHECK(WINDOW)" in sh("xprop", "-root", "_NET_SUPPORTING_WM_CHECK", check=False)
    wm = openbox()
    try:
        # An openbox that gave up on a server not ready yet gets a second go.
        poll(lambda: managed() or wm.poll() is not None, 20)
        if wm.poll() is not None and not managed():
            wm = openbox()
        if not poll(managed, 20):
            with open(wm_log) as log:
                sys.exit(f"gui: openbox does not manage Xephyr's screen {display} "
                         f"(openbox {'running' if wm.poll() is None else 'exited'}): {log.read()[-800:]}")
        bar = Bar(args.lumerix, ["--demo"], nested)
        for width, height in ((800, 600), (640, 480)):
            sh("xrandr", "-s", f"{width}x{height}", check=False)

            def inside():
                x, y, w, h = bar.geometry()
                return x >= 0 and y >= 0 and x + w <= width and y + h <= height
            poll(inside, 15)
            check(inside(), f"the screen shrinks to {width}x{height}: the bar comes back onto it, whole",
                  str(bar.geometry()))
        bar.stop()
    finally:
        wm.terminate()
        xephyr.terminate()
        xephyr.wait(10)
        os.environ["DISPLAY"] = outer


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--lumerix", required=True)
    ap.add_argument("--work", required=True)
    args = ap.parse_args()
    screen = Screen(args.work)
    env, settings = write_subtitles(args.work)

    openbox = subprocess.Popen(["openbox"], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    compositor = subprocess.Popen(["xcompmgr"], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    wait_for(lambda: "_NET_SUPPORTING_WM_CHECK(WINDOW)" in sh("xprop", "-root", "_NET_SUPPORTING_WM_CHECK",
                                                              check=False), 20, "openbox")
    time.sleep(1)  # xcompmgr shows no sign of being ready; it takes a moment to take the screen over
    try:
        stacking_checks(args)
        demo_checks(args, screen)
        openbox_checks(args, screen, env, settings)
        two_subtitles_checks(args, screen, env)
        no_compositor_checks(args, screen, env, compositor)
    finally:
        compositor.terminate()
        openbox.terminate()
        openbox.wait(10)

    def start_mutter():
        return subprocess.Popen(["mutter", "--x11", "--replace", "--sm-disable"], stdout=subprocess.DEVNULL,
                                stderr=subprocess.DEVNULL)

    def mutter_up():
        return "_NET_SUPPORTING_WM_CHECK(WINDOW)" in sh("xprop", "-root", "_NET_SUPPORTING_WM_CHECK", check=False)

    mutter = start_mutter()
    try:
        # Now and then mutter gives up at start (seen once in a few dozen
        # runs, on a quiet machine): a second start is what a user would do.
        if not poll(mutter_up, 30):
            mutter.terminate()
            mutter.wait(10)
            mutter = start_mutter()
        wait_for(mutter_up, 30, "mutter")
        mpv, _, bar = over_fullscreen(args, screen, env, "mutter")
        bar.stop()
        mpv.terminate()
        mpv.wait(10)
    finally:
        mutter.terminate()
        mutter.wait(10)
    shrink_checks(args, env)

    print(f"{len(FAILURES)} failed" if FAILURES else "all checks passed")
    sys.exit(1 if FAILURES else 0)


if __name__ == "__main__":
    main()
