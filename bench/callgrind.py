"""Reads what valgrind's callgrind writes: costs by function, and calls with the cost of what they call."""

import re

# Files of the C and C++ runtime: what is called there is the caller's doing.
RUNTIME = ("libc.so", "libstdc++", "libm.so", "libgcc_s", "ld-linux", "vgpreload")


def own_and_all(path, objects):
    """Instructions of functions in `objects`, with what they call in the runtime; and of the whole."""
    names = {}
    own = total = 0
    object_, called = "", ""
    after_call = False

    def named(text):
        number, name = re.match(r"(\(\d+\)) ?(.*)", text).groups()
        if name:
            names[number] = name
        return names[number]

    def is_own(name):
        return any(part in name for part in objects)

    with open(path, errors="replace") as lines:
        for line in lines:
            if line.startswith("ob="):
                object_ = named(line[3:].strip())
            elif line.startswith("fn="):
                called = object_
            elif line.startswith("cob="):
                called = named(line[4:].strip())
            elif line.startswith("calls="):
                after_call = True
            elif line[:1] in "0123456789+-*":
                cost = int(line.split()[1])
                if not after_call:
                    total += cost
                    own += cost if is_own(object_) else 0
                elif is_own(object_) and any(part in called for part in RUNTIME):
                    own += cost
                if after_call:
                    after_call, called = False, object_
    return own, total
