# SPDX-License-Identifier: MIT
"""Runs clang -fsyntax-only over a compilation database, several files at a time.

Most of the time would go into reading the same headers again, so the common ones are read once into two precompiled
prefixes: one for the tests, one for the rest. A missing #include that a prefix hides is found by the build itself.
"""
import concurrent.futures
import json
import os
import shlex
import subprocess
import sys
import tempfile

# What only GCC knows, and what belongs to code generation.
DROP_PREFIXES = ("-fsanitize", "-fno-sanitize", "-g", "-O", "-fno-omit-frame-pointer", "-fPI", "-Wno-restrict",
                 "-Winvalid-pch", "-fpch-preprocess")

STANDARD_HEADERS = """algorithm array atomic chrono cmath condition_variable cstdint cstring deque filesystem fstream
functional initializer_list iterator limits map memory mutex optional ostream random set span sstream string string_view
system_error thread tuple type_traits unordered_map unordered_set utility variant vector""".split()
LIBRARY_HEADERS = ["fmt/format.h", "nlohmann/json.hpp"]
TEST_HEADERS = ["gmock/gmock.h", "gtest/gtest.h"]


def clang_command(entry):
    words = shlex.split(entry["command"])
    if words[0].endswith("ccache"):
        words = words[1:]
    compiler = "clang-16" if entry["file"].endswith(".c") else "clang++-16"
    out, skip = [compiler, "-fsyntax-only"], False
    for index, word in enumerate(words[1:], 1):
        if skip:
            skip = False
        elif word in ("-o", "-MF", "-MT") or (word == "-include" and words[index + 1].endswith("cmake_pch.hxx")):
            skip = True
        elif word not in ("-c", "-MD") and not word.startswith(DROP_PREFIXES):
            out.append(word)
    return out


def prefix_of(entry):
    """The prefix that fits a file: "tests", "rest", or none for C and for what chooses its own feature macros."""
    with open(entry["file"], encoding="utf-8") as file:
        text = file.read()
    if entry["file"].endswith(".c") or "#define _" in text:
        return None
    return "tests" if "#include <gmock/" in text or "#include <gtest/" in text else "rest"


def make_prefix(folder, name, headers):
    source, compiled = os.path.join(folder, name + ".h"), os.path.join(folder, name + ".pch")
    with open(source, "w", encoding="utf-8") as file:
        file.writelines(f"#include <{header}>\n" for header in headers)
    # The language options have to be those of the build (cmake/VeskBuild.cmake).
    # Instantiated there, or every file would instantiate again what waits at the prefix's end.
    subprocess.run(["clang++-16", "-fpch-instantiate-templates", "-x", "c++-header", "-std=c++20", "-fvisibility=hidden",
                    "-fvisibility-inlines-hidden", "-DGTEST_HAS_PTHREAD=1", source, "-o", compiled], check=True)
    return compiled


def check(entry, prefixes):
    command, prefix = clang_command(entry), prefix_of(entry)
    if prefix:
        command[1:1] = ["-include-pch", prefixes[prefix]]
    done = subprocess.run(command, cwd=entry["directory"], capture_output=True, text=True)
    return entry["file"], done.returncode, done.stderr


def main():
    with open(sys.argv[1], encoding="utf-8") as file:
        entries = [e for e in json.load(file) if "/build/" not in e["file"]]
    failed = 0
    with tempfile.TemporaryDirectory() as folder, concurrent.futures.ThreadPoolExecutor(int(sys.argv[2])) as pool:
        lists = {"rest": STANDARD_HEADERS + LIBRARY_HEADERS, "tests": STANDARD_HEADERS + LIBRARY_HEADERS + TEST_HEADERS}
        made = pool.map(lambda name: (name, make_prefix(folder, name, lists[name])), lists)
        prefixes = dict(made)
        for file, status, text in pool.map(lambda entry: check(entry, prefixes), entries):
            if status != 0:
                failed += 1
                print(f"{file}:\n{text}")
    print(f"{len(entries)} files read by clang, {failed} refused")
    sys.exit(1 if failed or not entries else 0)


main()
