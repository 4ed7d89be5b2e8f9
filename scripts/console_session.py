#!/usr/bin/env python3
"""Plays a scripted keyboard session with avrtest on a pseudo-terminal and
shows everything the console prints, as a person at the bench would see it.

Usage: console_session.py [--control FIFO] [--pause S] STEPS -- COMMAND...

STEPS is one argument of steps separated by ';':
  wait:TEXT   wait until TEXT has been printed (since the last wait)
  raw         wait until the console reads single keys again
  key:K       press the single key K (raw first, so it is not echoed)
  line:TEXT   type TEXT and return, as the answer to a prompt
  sim:LINE    send LINE to the board emulator's control FIFO
  sleep:S     pause S seconds
The console is given up to 20 s per wait and for its exit after the last step.
"""
import os
import pty
import select
import signal
import sys
import termios
import time

STEP_TIMEOUT = 20.0


class Session:
    def __init__(self, command):
        self.pid, self.fd = pty.fork()
        if self.pid == 0:
            os.execvp(command[0], command)
        self.seen = b""
        self.mark = 0

    def pump(self, timeout):
        ready, _, _ = select.select([self.fd], [], [], timeout)
        if not ready:
            return True
        try:
            data = os.read(self.fd, 4096)
        except OSError:
            return False
        if not data:
            return False
        self.seen += data
        sys.stdout.buffer.write(data)
        sys.stdout.flush()
        return True

    def wait_for(self, text):
        deadline = time.monotonic() + STEP_TIMEOUT
        needle = text.encode()
        while time.monotonic() < deadline:
            at = self.seen.find(needle, self.mark)
            if at >= 0:
                self.mark = at + len(needle)
                return True
            if not self.pump(0.05):
                break
        return False

    def wait_raw(self):
        deadline = time.monotonic() + STEP_TIMEOUT
        while time.monotonic() < deadline:
            if not termios.tcgetattr(self.fd)[3] & termios.ICANON:
                return True
            self.pump(0.02)
        return False

    def send(self, data):
        os.write(self.fd, data.encode())

    def finish(self):
        deadline = time.monotonic() + STEP_TIMEOUT
        while time.monotonic() < deadline:
            done, status = os.waitpid(self.pid, os.WNOHANG)
            if done:
                while self.pump(0.05):
                    pass
                return os.waitstatus_to_exitcode(status)
            self.pump(0.05)
        os.kill(self.pid, signal.SIGKILL)
        os.waitpid(self.pid, 0)
        print("\n[the console did not exit; killed]")
        return 1


def main(argv):
    control = None
    pause = 0.0
    while argv and argv[0].startswith("--") and argv[0] != "--":
        if argv[0] == "--control":
            control, argv = argv[1], argv[2:]
        elif argv[0] == "--pause":
            pause, argv = float(argv[1]), argv[2:]
        else:
            sys.exit("unknown option " + argv[0])
    if len(argv) < 3 or argv[1] != "--":
        sys.exit(__doc__)
    steps, command = argv[0], argv[2:]

    session = Session(command)
    for step in filter(None, steps.split(";")):
        kind, _, arg = step.partition(":")
        ok = True
        if kind == "wait":
            ok = session.wait_for(arg)
        elif kind == "raw":
            ok = session.wait_raw()
        elif kind == "key":
            ok = session.wait_raw()
            time.sleep(pause)
            session.send(arg)
        elif kind == "line":
            time.sleep(pause)
            session.send(arg + "\n")
        elif kind == "sim":
            with open(control, "w") as fifo:
                fifo.write(arg + "\n")
        elif kind == "sleep":
            end = time.monotonic() + float(arg)
            while time.monotonic() < end:
                session.pump(0.05)
        else:
            sys.exit("unknown step " + step)
        if not ok:
            print("\n[step '%s' timed out]" % step)
            session.send("x")
            session.finish()
            return 1
    return session.finish()


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
