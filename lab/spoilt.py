# SPDX-License-Identifier: MIT
"""Configuration files as a bad day leaves them."""
import fcntl
import os
import random
import shutil
from pathlib import Path

from lab.config import FOLDER

PACKAGES = ("network", "switch", "protocol", "sysmode")
BIG = 10 << 20
LONG_LINE = 1000
DELTAS = Path("/tmp/.uci")
DICE = random.Random("spoilt")


def cut(part):
    """The first `part` of the file, wherever that ends."""
    def spoil(path, text):
        path.write_bytes(text[:int(len(text) * part)])
    return spoil


def write(content):
    def spoil(path, _text):
        path.write_bytes(content)
    return spoil


def grow(path, text):
    line = b"\toption padding '" + b"x" * LONG_LINE + b"'\n"
    path.write_bytes(text + b"\nconfig padding 'padding'\n" + line * (BIG // len(line)))


def one_endless_line(path, text):
    path.write_bytes(text + b"\nconfig padding 'padding'\n\toption long '" + b"x" * BIG)


def folder(path, _text):
    path.unlink()
    path.mkdir()


def missing(path, _text):
    path.unlink()


def circle(path, _text):
    path.unlink()
    path.symlink_to(path)


SPOILS = {
    "cut after a tenth": cut(0.1),
    "cut after a third": cut(0.33),
    "cut in the middle": cut(0.5),
    "cut shortly before the end": cut(0.95),
    "empty": write(b""),
    "garbage": write(DICE.randbytes(5000)),
    "zeroes": write(bytes(5000)),
    "open quotes": write(b"config interface 'wan\n\toption proto 'dhcp\n" * 100),
    "only words": write(b"option proto dhcp\nlist x y\nconfig\nconfig 'a' 'b' 'c'\n\n'\"'\"\\\n" * 100),
    "folders": folder,
    "missing": missing,
    "symbolic links in a circle": circle,
    "ten megabytes": grow,
    "one line of ten megabytes": one_endless_line,
}


class spoilt:
    """Packages of the configuration spoilt for the body."""

    def __init__(self, how, packages=PACKAGES):
        self.spoil = SPOILS[how]
        self.kept = {FOLDER / package: (FOLDER / package).read_bytes() for package in packages}

    def __enter__(self):
        for path, text in self.kept.items():
            self.spoil(path, text)

    def __exit__(self, *_):
        for path, text in self.kept.items():
            if path.is_dir():
                shutil.rmtree(path)
            draft = FOLDER / f".{path.name}.draft"    # in one step: the daemon may read it at any moment
            draft.write_bytes(text)
            os.replace(draft, path)


class locked:
    """Packages of the configuration kept locked for the body, as anybody may who may read them."""

    def __enter__(self):
        self.files = [open(FOLDER / package, "rb") for package in PACKAGES]
        for file in self.files:
            fcntl.flock(file, fcntl.LOCK_EX)

    def __exit__(self, *_):
        for file in self.files:
            file.close()


class spoilt_deltas:
    """Changes that wait for a commit and make no sense."""
    texts = {
        "garbage": DICE.randbytes(3000),
        "half a line": b"network.wan.pro",
        "strange changes": b"-network.nobody\n+network.wan.x=1\n|network.wan.proto=x\n~network.wan.proto.x='y\n"
                           b"^5:network.wan='interface'\n@network.wan='w an'\nswitch\n.\n=\n'''\n",
        "a megabyte": b"network.wan.padding='" + b"x" * (1 << 20),
    }

    def __init__(self, what):
        self.text = self.texts[what]

    def __enter__(self):
        DELTAS.mkdir(exist_ok=True)
        for package in PACKAGES:
            (DELTAS / package).write_bytes(self.text)

    def __exit__(self, *_):
        for package in PACKAGES:
            (DELTAS / package).unlink(missing_ok=True)
