#!/usr/bin/env python3
"""Runs Windows serial tests against a COM port of Wine backed by a pty.

    com_port_peer.py WINE_RUN PROGRAM [ARGS...]

Makes a pseudo-terminal pair, links COM5 of the Wine prefix to its slave
side, and runs PROGRAM with VORN_COM_PORT=COM5 while this process plays the
printer on the master side: every byte it receives is sent back.
"""
import os
import select
import subprocess
import sys
import threading
import tty

wine_run, program = sys.argv[1], sys.argv[2:]
prefix = os.environ.get("VORN_WINEPREFIX") or os.path.join(
    os.environ.get("XDG_CACHE_HOME") or os.path.expanduser("~/.cache"), "vorn", "wine64")
# The prefix is made by the first Wine program; a trivial run makes sure it exists.
subprocess.run([wine_run, "cmd", "/c", "echo", "ready"], stdout=subprocess.DEVNULL, check=True)

master, slave = os.openpty()
tty.setraw(master)
link = os.path.join(prefix, "dosdevices", "com5")
if os.path.lexists(link):
    os.remove(link)
os.symlink(os.ttyname(slave), link)

stop = False


def echo():
    while not stop:
        ready, _, _ = select.select([master], [], [], 0.1)
        if ready:
            try:
                data = os.read(master, 4096)
            except OSError:
                return
            os.write(master, data)


peer = threading.Thread(target=echo, daemon=True)
peer.start()
try:
    result = subprocess.run([wine_run, *program], env=dict(os.environ, VORN_COM_PORT="COM5"))
finally:
    stop = True
    peer.join()
    os.remove(link)
sys.exit(result.returncode)
