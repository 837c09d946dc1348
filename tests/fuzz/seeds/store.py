# SPDX-License-Identifier: MIT
"""Where seeds go, and the pieces that inputs are made of."""
import pathlib
import shutil
import struct

HERE = pathlib.Path(__file__).resolve().parent
GOLDEN = HERE.parent.parent / "golden"
CORPUS = HERE.parent / "corpus"
LARGEST_SEED = 3000


def start_afresh():
    shutil.rmtree(CORPUS, ignore_errors=True)


def save(decoder, name, content):
    if isinstance(content, str):
        content = content.encode()
    folder = CORPUS / decoder
    folder.mkdir(parents=True, exist_ok=True)
    (folder / name).write_bytes(content)


def block(content):
    if isinstance(content, str):
        content = content.encode()
    return struct.pack(">H", len(content)) + content
