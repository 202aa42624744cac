"""What the end-to-end checks against real players share."""
import argparse, atexit, json, os, subprocess, threading, time


def pct(values, p):
    values = sorted(values)
    return values[min(len(values) - 1, int(round(p * (len(values) - 1))))]


def arguments(player=False):
    ap = argparse.ArgumentParser()
    ap.add_argument("--lumerix", required=True)
    ap.add_argument("--work", required=True)
    if player:
        ap.add_argument("--player", choices=("vlc", "chromium", "firefox", "celluloid", "totem"), required=True)
    return ap.parse_args()


def counting_subtitle(work, seconds):
    """A subtitle with one cue a second, numbered by its start second."""
    path = os.path.join(work, "clip.srt")
    with open(path, "w") as f:
        for s in range(seconds):
            f.write(f"{s + 1}\n00:{s // 60:02d}:{s % 60:02d},000 --> 00:{(s + 1) // 60:02d}:{(s + 1) % 60:02d},000\n{s}\n\n")
    return path


def quit_failures(player, still_running, code, statuses, quit_at):
    """Lumerix outlives the player it followed, goes idle, and stops cleanly when told."""
    failures = []
    if not still_running:
        failures.append(f"Lumerix exited by itself after {player} quit")
    if code != 0:
        failures.append(f"Lumerix exit status {code} after SIGTERM")
    if not any(t > quit_at and s.startswith("\u25cc ") for t, s in statuses):
        failures.append(f"no idle status after {player} quit: " + repr([s for t, s in statuses if t > quit_at][-3:]))
    return failures


def verdict(failures):
    if failures:
        print("e2e FAILED:\n  " + "\n  ".join(failures))
        return 1
    print("e2e passed")
    return 0


class Follower:
    """The headless Lumerix following a player, its lines read as they come:
    shown (time, cue number or None), positions (time, the player position
    used for that text), statuses (time, text), fullscreen (time, bool);
    times in seconds since it started (t0, monotonic)."""

    def __init__(self, lumerix, player, srt, work):
        env = dict(os.environ, XDG_CONFIG_HOME=os.path.join(work, "config"))
        self.proc = subprocess.Popen([lumerix, "--headless", "--player", player, srt], stdout=subprocess.PIPE,
                                     env=env)
        self.t0 = time.monotonic()
        self.shown, self.positions, self.statuses, self.fullscreen = [], [], [], []
        self.reader = threading.Thread(target=self._read, daemon=True)
        self.reader.start()
        atexit.register(self._stop)  # a check that fails half-way leaves no Lumerix behind

    def _stop(self):
        if self.proc.poll() is None:
            self.proc.kill()
            self.proc.wait()

    def _read(self):
        for raw in self.proc.stdout:
            now = time.monotonic() - self.t0
            msg = json.loads(raw)
            if "text" in msg:
                text = msg["text"]
                self.shown.append((now, int(text) if text.isdigit() and not msg["brand"] else None))
                self.positions.append((now, msg.get("pos")))
            elif "status" in msg:
                self.statuses.append((now, msg["status"]))
            elif "fullscreen" in msg:
                self.fullscreen.append((now, msg["fullscreen"]))
