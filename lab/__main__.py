# SPDX-License-Identifier: MIT
import sys

from lab.front import main

sys.exit(main(sys.argv[1:]))
