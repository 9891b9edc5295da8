"""Reads what valgrind's callgrind writes: costs by function, and calls with the cost of what they call."""

import re

# Files of the C and C++ runtime: what is called there is the caller's doing.
RUNTIME = ("libc.so", "libstdc++", "libm.so", "libgcc_s", "ld-linux")
# The runtime's call of a program's main is no call of the program's.
ROOT = "__libc_start"


class Names(dict):
    """Names stand in full once, "(7) name", and by number from then on, "(7)"."""

    def of(self, text):
        number, name = re.match(r"(\(\d+\)) ?(.*)", text).groups()
        if name:
            self[number] = name
        return self[number]


def own_and_all(path, objects):
    """Instructions of functions in `objects`, with what they call in the runtime; and of the whole."""
    files, functions = Names(), Names()
    own = total = 0
    file_ = callee_file = callee = ""
    of_call = False
    with open(path, errors="replace") as lines:
        for line in lines:
            key, _, rest = line.rstrip("\n").partition("=")
            if key == "ob":
                file_ = files.of(rest)
            elif key == "fn":
                functions.of(rest)
                callee_file = file_
            elif key == "cob":
                callee_file = files.of(rest)
            elif key == "cfn":
                callee = functions.of(rest)
            elif key == "calls":
                of_call = True
            elif line[:1] in "0123456789+-*":
                cost = int(line.split()[1])
                is_own = any(part in file_ for part in objects)
                if not of_call:
                    total += cost
                    own += cost if is_own else 0
                    continue
                if is_own and any(part in callee_file for part in RUNTIME) and not callee.startswith(ROOT):
                    own += cost
                of_call, callee_file = False, file_
    return own, total
