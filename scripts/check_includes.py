#!/usr/bin/env python3
"""Fails when a source file includes a header from a folder later in the
layer order than its own:

    platform -> core (with libsrc) -> math -> mesh -> volume -> render
             -> document -> tools -> apps (with python)

A folder may include its own headers and those of any earlier folder.
Usage: scripts/check_includes.py [ROOT]   (exit 1 and one line per wrong-way
include, exit 0 when there is none)."""
import os
import re
import sys

LAYERS = ["platform", "core", "math", "mesh", "volume", "render", "document", "tools", "apps"]
# Folders that stand on a layer of their own name's neighbour.
ALIASES = {"libsrc": "core", "python": "apps"}
# Wrong-way includes that stay, each with its reason.
ALLOWED = {
    # The colour preference holds a TezVector4<float>; math/Vector.h is a
    # header-only value type that depends on nothing above platform/.
    ("core/Preferences.h", "math/Vector.h"),
}
INCLUDE = re.compile(r'^\s*#\s*include\s*"([^"]+)"', re.M)
SOURCES = (".h", ".hpp", ".cpp", ".cc", ".inl", ".cu", ".cuh")


def layer(path):
    top = path.split("/", 1)[0]
    top = ALIASES.get(top, top)
    return LAYERS.index(top) if top in LAYERS else None


def main():
    root = os.path.abspath(sys.argv[1] if len(sys.argv) > 1 else os.path.join(os.path.dirname(__file__), ".."))
    wrong = []
    for top in LAYERS + list(ALIASES):
        base = os.path.join(root, top)
        for folder, _, files in os.walk(base):
            for name in sorted(files):
                if not name.endswith(SOURCES):
                    continue
                path = os.path.relpath(os.path.join(folder, name), root)
                own = layer(path)
                with open(os.path.join(root, path), encoding="utf-8", errors="replace") as f:
                    text = f.read()
                for number, line in enumerate(text.splitlines(), 1):
                    m = INCLUDE.match(line)
                    if not m:
                        continue
                    target = layer(m.group(1))
                    if (path, m.group(1)) in ALLOWED:
                        continue
                    if target is not None and own is not None and target > own:
                        wrong.append(f"{path}:{number}: includes {m.group(1)} ({LAYERS[target]} comes after {LAYERS[own]})")
    for line in wrong:
        print(line)
    if wrong:
        print(f"{len(wrong)} wrong-way include(s)")
        return 1
    print("include direction: ok")
    return 0


if __name__ == "__main__":
    sys.exit(main())
