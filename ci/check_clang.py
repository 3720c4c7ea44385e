# SPDX-License-Identifier: MIT
"""Runs clang -fsyntax-only over a compilation database, several files at a time."""
import concurrent.futures
import json
import shlex
import subprocess
import sys

# What only GCC knows, and what belongs to code generation.
DROP_PREFIXES = ("-fsanitize", "-fno-sanitize", "-g", "-O", "-fno-omit-frame-pointer", "-Winvalid-pch",
                 "-Wno-restrict")


def clang_command(entry):
    words = shlex.split(entry["command"])
    if words[0].endswith("ccache"):
        words = words[1:]
    compiler = "clang-16" if entry["file"].endswith(".c") else "clang++-16"
    out, skip = [compiler, "-fsyntax-only"], False
    for index, word in enumerate(words[1:], 1):
        if skip:
            skip = False
        elif word in ("-o", "-MF", "-MT"):
            skip = True
        elif word == "-include" and words[index + 1].endswith("cmake_pch.hxx"):
            out.append(word)
        elif word not in ("-c", "-MD") and not word.startswith(DROP_PREFIXES):
            out.append(word)
    return out


def check(entry):
    done = subprocess.run(clang_command(entry), cwd=entry["directory"], capture_output=True, text=True)
    return entry["file"], done.returncode, done.stderr


def main():
    with open(sys.argv[1], encoding="utf-8") as file:
        entries = [e for e in json.load(file) if "/build/" not in e["file"] and not e["file"].endswith(".hxx.cxx")]
    failed = 0
    with concurrent.futures.ThreadPoolExecutor(int(sys.argv[2])) as pool:
        for file, status, text in pool.map(check, entries):
            if status != 0:
                failed += 1
                print(f"{file}:\n{text}")
    print(f"{len(entries)} files read by clang, {failed} refused")
    sys.exit(1 if failed or not entries else 0)


main()
