# SPDX-License-Identifier: MIT
"""Names of the functions on a stack of the daemon, told by addr2line."""
import subprocess


class Stacks:
    """Of processes whose modules lie as in these lines of /proc/PID/maps."""

    def __init__(self, maps):
        self.modules = []
        for line in maps.splitlines():
            fields = line.split(maxsplit=5)
            if len(fields) == 6 and fields[5].startswith("/"):
                begin, end = (int(text, 16) for text in fields[0].split("-"))
                self.modules.append((begin, end, int(fields[2], 16), fields[5]))

    def names(self, addresses):
        return [self.name(address - 1) for address in addresses]    # of the call, not of what follows it

    def name(self, address):
        for begin, end, offset, path in self.modules:
            if begin <= address < end:
                told = subprocess.run(["addr2line", "-Cfe", path, hex(address - begin + offset)], capture_output=True,
                                      text=True, check=False).stdout.partition("\n")[0]
                return told.partition("(")[0] if told and told != "??" else path.rpartition("/")[2]
        return "?"
