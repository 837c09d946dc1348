# SPDX-License-Identifier: MIT
"""Folders of the lab as a failing disk would have them: full, or read-only, while it lasts."""
import os
import shutil
import subprocess
import threading
import time
from contextlib import contextmanager, suppress
from pathlib import Path

from lab.mounts import mount

SMALL = "64k"
FILLER = "filler"
CHUNK = 512
LOOK_PAUSE_REAL_S = 0.0005


def unmount(folder):
    # What the daemon still holds open there goes on in a mount without a place.
    subprocess.run(["umount", "--lazy", str(folder)], check=True)


@contextmanager
def read_only(folder):
    mount("--bind", str(folder), str(folder))
    mount("-o", "remount,bind,ro", str(folder))
    try:
        yield
    finally:
        unmount(folder)


@contextmanager
def full(folder, keep=True):
    """A small disk in the folder's place, with the same files if they are to be kept, and no room for another byte."""
    kept = Path(f"/run/lab/kept-{Path(folder).name}")
    kept.mkdir()
    mount("--bind", str(folder), str(kept))
    mount("-t", "tmpfs", "-o", f"size={SMALL}", "tmpfs", str(folder))
    try:
        for path in kept.iterdir() if keep else ():
            shutil.copy(path, folder)
        fill(Path(folder))
        yield
    finally:
        unmount(folder)
        unmount(kept)
        kept.rmdir()


def fill(folder):
    with open(folder / FILLER, "wb", buffering=0) as stream:
        with suppress(OSError):
            while True:
                stream.write(b"x" * CHUNK)


class Reader(threading.Thread):
    """Reads a file as fast as it can, and keeps every content that it ever saw."""

    def __init__(self, path):
        super().__init__(daemon=True)
        self.path = path
        self.seen = set()
        self.over = False

    def run(self):
        while not self.over:
            try:
                with open(self.path, "rb", buffering=0) as stream:
                    self.seen.add(os.read(stream.fileno(), CHUNK).decode("latin-1"))
            except OSError:
                self.seen.add(None)
            time.sleep(LOOK_PAUSE_REAL_S)
