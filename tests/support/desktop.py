"""A desktop of a test's own: a virtual display, a window manager, a session bus, and a person's hands."""
import contextlib
import os
import signal
import subprocess
import time

from programs import PATIENCE, await_that

SHEET = "^Process this Folder"
# From Stop to the box, and on.
PROCESS = ("Tab", "Tab", "space")
SKIP = ("Tab", "Tab", "Tab", "space")
TICK_AND_PROCESS = ("Tab", "space", "Tab", "space")
READING = 0.5  # seconds, over the time of a double click: a sheet takes no answer before


class Desktop:
    """`home` holds the settings of what runs here. All of it ends with close()."""

    def __init__(self, home, with_bus=True):
        os.makedirs(os.path.join(home, ".config"), exist_ok=True)
        tools = os.path.join(home, "tools")
        os.makedirs(tools, exist_ok=True)
        with open(os.path.join(tools, "open"), "w", encoding="utf-8") as tool:
            tool.write('#!/bin/sh\nprintf "%s\\n" "$1" >>"${0%/*}/opened"\n')
        os.chmod(os.path.join(tools, "open"), 0o755)
        self.opened = os.path.join(tools, "opened")
        self.environment = {key: value for key, value in os.environ.items()
                            if key not in ("DBUS_SESSION_BUS_ADDRESS", "DISPLAY", "WAYLAND_DISPLAY")}
        self.environment.update(HOME=home, XDG_CONFIG_HOME=os.path.join(home, ".config"),
                                XDG_STATE_HOME=os.path.join(home, ".local/state"),
                                XDG_RUNTIME_DIR=home, QT_QPA_PLATFORM="xcb",
                                PATH=tools + ":" + os.environ["PATH"])
        # Without -noreset the server starts afresh whenever its last client leaves.
        self.display, number = self._serve(
            ["Xvfb", "-displayfd", "1", "-screen", "0", "1024x768x24", "-nolisten", "tcp", "-noreset"])
        self.environment["DISPLAY"] = ":" + number
        self.bus = None
        if with_bus:
            self.bus, address = self._serve(["dbus-daemon", "--session", "--nofork", "--print-address"])
            self.environment["DBUS_SESSION_BUS_ADDRESS"] = address
        self.manager = subprocess.Popen(["openbox"], env=self.environment,
                                        stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        # What comes while it starts may be missed; once it obeys it misses nothing.
        await_that(lambda: self.hands("set_num_desktops", "2") == "" and
                   self.hands("get_num_desktops") == "2", "the window manager")

    def _serve(self, command):
        server = subprocess.Popen(command, env=self.environment, stdout=subprocess.PIPE,
                                  stderr=subprocess.DEVNULL, text=True)
        return server, server.stdout.readline().strip()

    def reload_services(self):
        """From now on the bus knows the services whose files have come."""
        subprocess.run(["gdbus", "call", "--session", "--dest", "org.freedesktop.DBus", "--object-path", "/",
                        "--method", "org.freedesktop.DBus.ReloadConfig"], env=self.environment,
                       check=True, stdout=subprocess.DEVNULL)

    def close(self):
        for server in (self.manager, self.bus, self.display):
            if server is not None:
                server.kill()
                server.wait()
                if server.stdout:
                    server.stdout.close()

    def hands(self, *arguments):
        """What the person sees of it: the tool's answer, empty if it failed."""
        done = subprocess.run(["timeout", str(PATIENCE), "xdotool", *arguments], check=False,
                              env=self.environment, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
        return done.stdout.decode().strip()

    def visible_window(self, title):
        """The number of a window with that title, empty if there is none."""
        return self.hands("search", "--onlyvisible", "--name", title).split("\n")[0]

    def await_window(self, title):
        return await_that(lambda: self.visible_window(title), title)

    def listen(self, test, rule):
        """The file to which all is written that goes over the session bus and matches the rule, until the test ends."""
        heard = test.path("heard")
        with open(heard, "wb") as file:
            monitor = subprocess.Popen(
                ["dbus-monitor", "--address", self.environment["DBUS_SESSION_BUS_ADDRESS"], rule], stdout=file)
        test.addCleanup(monitor.wait)
        test.addCleanup(monitor.kill)
        await_that(lambda: os.path.getsize(heard) > 0, "the monitor")
        return heard

    def visible_sheet(self):
        return self.visible_window(SHEET)

    def await_sheet(self):
        return self.await_window(SHEET)

    def press(self, window, *keys):
        """Presses the keys in a window once it has the keyboard, which nobody takes or gives here."""
        await_that(lambda: self.hands("getactivewindow") == window, "the keyboard")
        self.hands("key", "--clearmodifiers", *keys)

    def answer_sheet(self, sheet, *keys):
        """Reads it, and presses the keys in it, those for Process if none are given."""
        time.sleep(READING)
        self.press(sheet, *(keys or PROCESS))

    def answer(self, *keys):
        self.answer_sheet(self.await_sheet(), *keys)

    def drag(self, source, target, taken):
        """Drags with the left button from the middle of one window to that of another, and lets go once
        `taken` says that a drop would be taken."""
        self.hands("windowactivate", "--sync", source, "mousemove", "--window", source,
                   "--polar", "0", "0", "mousedown", "1")
        # To and fro: what happens before the drag has begun, its target does not see.
        await_that(lambda: self.hands("mousemove", "--window", target, "--polar", "0", "20",
                                      "mousemove", "--window", target, "--polar", "0", "0") or taken(),
                   "the target")
        self.hands("mouseup", "1")


class Window:
    """The running program; its log is in a file, since a pipe would hold it up when nobody reads."""

    def __init__(self, desktop, command, log, environment=None, **how):
        self.log_file = log
        with open(log, "ab") as file:
            self.process = subprocess.Popen(command, env=environment or desktop.environment,
                                            stdin=subprocess.DEVNULL, stdout=file, stderr=file,
                                            start_new_session=True, **how)

    def kill(self):
        """With all that it started, if any of it still runs."""
        with contextlib.suppress(ProcessLookupError):
            os.killpg(self.process.pid, signal.SIGKILL)
        self.process.wait()

    def log(self):
        with open(self.log_file, "rb") as file:
            return file.read().decode(errors="surrogateescape")

    def await_log(self, text):
        await_that(lambda: text in self.log() or self.process.poll() is not None, text)
        if text not in self.log():
            raise AssertionError(f"ended with {self.process.poll()} before {text!r}:\n{self.log()}")

    def end(self):
        """Waits for the end; the exit status."""
        try:
            return self.process.wait(PATIENCE)
        except subprocess.TimeoutExpired:
            self.kill()
            raise
