#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Writes the seeds of the fuzz targets, tests/fuzz/corpus/<decoder>/<name>: frames and texts as honest peers send them,
and the recordings of tests/golden. Run it after a change of an input format."""
from seeds import bus, engine, frames, store, texts

if __name__ == "__main__":
    store.start_afresh()
    frames.make()
    texts.make()
    bus.make()
    engine.make()
