#!/usr/bin/env python3
"""Checks that the folders of src/ only include what the layer order allows.

Every #include of src/** is sorted to a folder: an internal header ("io/stream_file.h") to the
folder it names, a public header ("kiv/streams.h") to the folder that implements it (the table
below). A folder may use its own layer and the layers below it, plus the few pairs listed under
EXCEPTIONS, each with its reason. Prints the folder-to-folder dependencies found and every
violation as file:line; exits 1 on a violation, a public header missing from the table, or an
include of a folder that does not exist.
"""

import os
import re
import sys

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))

# Lowest first. A folder may include from its own folder and from every folder before it.
# "unicode" is the character codec alone, header-only and free of the library, so that the
# platform layer's UTF-8 names code characters as the text layer does.
LAYERS = ["unicode", "platform", "core", "text", "collections", "io", "resource", "config", "services"]

# Uses of a higher layer that the design wants, (user, used): reason.
EXCEPTIONS = {
    ("core", "text"): "exception texts are strings, formatted with numbers and encodings",
    ("text", "collections"): "String::Split hands its pieces back in a list container",
    ("resource", "services"): "file resources report their times as dates",
    ("config", "services"): "the preferences update event queue is a task queue",
}

# Public header (include/kiv/) -> the folder that implements it.
PUBLIC_HEADERS = {
    "export.h": "core",  # export macros, used by every header
    "object.h": "core",
    "exception.h": "core",
    "exceptions.def": "core",
    "version.h": "core",
    "buffer.h": "core",
    "locks.h": "core",
    "string.h": "text",
    "numbers.h": "text",
    "converters.h": "text",
    "encodings.h": "text",
    "containers.h": "collections",
    "queues.h": "collections",
    "hashtable.h": "collections",
    "hierhashtable.h": "collections",
    "streams.h": "io",
    "filters.h": "io",
    "textio.h": "io",
    "resource.h": "resource",
    "registry.h": "config",
    "properties.h": "config",
    "preferences.h": "config",
    "date.h": "services",
    "tasks.h": "services",
    "log.h": "services",
    "system.h": "services",
    "kiv.h": "services",  # includes every family, so it sits on top
}

INCLUDE = re.compile(r'^\s*#\s*include\s*[<"]([^>"]+)[>"]')
SOURCE_ENDINGS = (".cpp", ".h", ".def", ".inc")


def owner_of(target):
    """The folder an included path belongs to, None for a system header, or an error text."""
    if target.startswith("kiv/"):
        name = target[len("kiv/"):]
        if name not in PUBLIC_HEADERS:
            return "error", f"public header {target} is not in the table of scripts/layering.py"
        return "folder", PUBLIC_HEADERS[name]
    head = target.split("/", 1)[0]
    if "/" in target and head in LAYERS:
        return "folder", head
    if "/" in target and os.path.isdir(os.path.join(ROOT, "src", head)):
        return "error", f"folder src/{head} has no place in the layer order"
    return None, None


def allowed(user, used):
    return LAYERS.index(used) <= LAYERS.index(user) or (user, used) in EXCEPTIONS


def main():
    errors = []
    public_dir = os.path.join(ROOT, "include", "kiv")
    for name in sorted(os.listdir(public_dir)):
        if name.endswith((".h", ".def")) and name not in PUBLIC_HEADERS:
            errors.append(f"include/kiv/{name}: not in the table of scripts/layering.py")
    for name in sorted(PUBLIC_HEADERS):
        if not os.path.exists(os.path.join(public_dir, name)):
            errors.append(f"scripts/layering.py: table names include/kiv/{name}, which is gone")

    src = os.path.join(ROOT, "src")
    deps = {}  # (user, used) -> number of includes
    for top in sorted(os.listdir(src)):
        if not os.path.isdir(os.path.join(src, top)):
            continue
        if top not in LAYERS:
            errors.append(f"src/{top}: folder has no place in the layer order")
            continue
        for directory, subdirs, files in os.walk(os.path.join(src, top)):
            subdirs.sort()
            for name in sorted(files):
                if not name.endswith(SOURCE_ENDINGS):
                    continue
                path = os.path.join(directory, name)
                shown = os.path.relpath(path, ROOT)
                with open(path, encoding="utf-8") as f:
                    for number, line in enumerate(f, 1):
                        m = INCLUDE.match(line)
                        if not m:
                            continue
                        kind, value = owner_of(m.group(1))
                        where = f"{shown}:{number}"
                        if kind == "error":
                            errors.append(f"{where}: {value}")
                            continue
                        if kind is None or value == top:
                            continue
                        deps[(top, value)] = deps.get((top, value), 0) + 1
                        if not allowed(top, value):
                            errors.append(f"{where}: {top} may not use {value} ({m.group(1)})")

    print("folder dependencies found (user -> used: includes):")
    for user in LAYERS:
        used = [(u, n) for (t, u), n in deps.items() if t == user]
        used.sort(key=lambda p: LAYERS.index(p[0]))
        listed = ", ".join(
            f"{u} {n}" + (" [exception]" if (user, u) in EXCEPTIONS else "") for u, n in used)
        print(f"  {user:<12} -> {listed or '(nothing)'}")
    for (user, used), reason in sorted(EXCEPTIONS.items()):
        if (user, used) not in deps:
            print(f"note: exception {user} -> {used} is no longer used")
    if errors:
        print(f"{len(errors)} layering violation(s):")
        for e in errors:
            print(f"  {e}")
        return 1
    print("layering: ok (" + " < ".join(LAYERS) + ")")
    return 0


if __name__ == "__main__":
    sys.exit(main())
