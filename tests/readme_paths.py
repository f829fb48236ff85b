#!/usr/bin/env python3
"""The paths the README and docs/ name in their code exist.

Every path in a code block or code span that starts in one of the
repository's folders must exist in the checkout (scripts must be executable),
and every program the README names in a build folder (build/<dir>/tools/...,
build/<dir>/tests/..., build/<dir>/bench/...) must be one this build makes.
Placeholders (<build>, FILE, *) are left alone.

    readme_paths.py <source folder> <build folder>
"""
import os
import re
import sys

SOURCE_FOLDERS = ("scripts", "tests", "docs", "src", "tools", "res", "fuzz", "cmake", "bench", ".ci")
BUILT_FOLDERS = ("tools", "tests", "bench")
TOKEN = re.compile(r"(?<![\w/.-])(?:\./)?(?:build|" + "|".join(re.escape(f) for f in SOURCE_FOLDERS) + r")/[\w./+-]*")


def code_of(text):
    """The text of every fenced block and code span."""
    parts = re.findall(r"^```[^\n]*\n(.*?)^```", text, flags=re.S | re.M)
    outside = re.sub(r"^```[^\n]*\n.*?^```", "", text, flags=re.S | re.M)
    parts += re.findall(r"`([^`\n]+)`", outside)
    return parts


def problems(source, build, document):
    with open(os.path.join(source, document), encoding="utf-8") as f:
        text = f.read()
    found = []
    for code in code_of(text):
        for m in TOKEN.finditer(code):
            path = m.group(0).rstrip(".,:;)")
            end = m.end()
            if end < len(code) and code[end] in "<*{$":  # a placeholder follows
                continue
            if path.startswith("./"):
                path = path[2:]
            if path.startswith("build/"):
                parts = path.split("/")
                # build/<dir>/<folder>/... or, for a build made in "build" itself, build/<folder>/...
                rest = parts[2:] if len(parts) > 2 and parts[2] in BUILT_FOLDERS else parts[1:]
                if not rest or rest[0] not in BUILT_FOLDERS or len(rest) < 2 or not rest[-1]:
                    continue
                if rest[0] == "tools" and rest[1].startswith("kestrine-win"):
                    continue  # the Windows build's
                if not os.path.exists(os.path.join(build, *rest)):
                    found.append(f"{document}: {path}: this build makes no {'/'.join(rest)}")
                continue
            full = os.path.join(source, path)
            if not os.path.exists(full):
                found.append(f"{document}: {path}: no such file or folder")
            elif path.startswith("scripts/") and os.path.isfile(full) and not os.access(full, os.X_OK):
                found.append(f"{document}: {path}: not executable")
    return found


def main():
    if len(sys.argv) != 3:
        print(__doc__.strip(), file=sys.stderr)
        return 2
    source, build = sys.argv[1], sys.argv[2]
    documents = ["README.md"] + sorted("docs/" + d for d in os.listdir(os.path.join(source, "docs")) if d.endswith(".md"))
    found = [p for d in documents for p in problems(source, build, d)]
    for p in found:
        print(p)
    print(f"readme_paths: {len(documents)} documents, {len(found)} paths missing")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
