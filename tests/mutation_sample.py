#!/usr/bin/env python3
# SPDX-License-Identifier: GPL-3.0-or-later
"""Sampled mutation test: plants one small fault at a time in a copy of the tree, rebuilds,
runs the unit and end-to-end tests, and counts the faults the tests do not catch.

Usage: tests/mutation_sample.py [--seed N] [--count N] [--work DIR] [--limit SECONDS]
                                [--list] [--only ID,ID...]

The copy is made from the committed tree (git archive HEAD) in WORK/tree and built once in
WORK/tree/build; each mutant then costs one recompile, the relinks and a test run that stops at
the first failure. A mutant that does not compile is drawn again and not counted. A test run
that passes the time limit counts as caught (a hang is a failure a user would notice).
Results go to stdout and WORK/results.tsv, one line per mutant.
"""
import argparse
import os
import random
import re
import shutil
import subprocess
import sys
import time

# The core and the window's logic that does not need a display.
FOLDERS = ["engine", "intake", "settings", "sources", "writers", "cli", "app", "worker", "preview"]
QT_INCLUDE = re.compile(r'#include\s*[<"]Q')
TEST_LABELS = "unit|e2e"


def masked(line):
    """The line with string and character literals and any // comment blanked out, so that
    operators are only found in code."""
    out = []
    i, quote = 0, None
    while i < len(line):
        c = line[i]
        if quote:
            if c == "\\":
                out.append("  ")
                i += 2
                continue
            if c == quote:
                quote = None
                out.append(c)
            else:
                out.append(" ")
        elif c in "\"'":
            quote = c
            out.append(c)
        elif line.startswith("//", i):
            out.append(" " * (len(line) - i))
            break
        else:
            out.append(c)
        i += 1
    return "".join(out)


SWAPS = [(" < ", " <= "), (" <= ", " < "), (" > ", " >= "), (" >= ", " > "),
         (" == ", " != "), (" != ", " == "), (" && ", " || "), (" || ", " && "),
         (" + 1", " - 1"), (" - 1", " + 1"),
         ("return true;", "return false;"), ("return false;", "return true;")]
NUMBER = re.compile(r"(?<![\w.])(\d+)(?![\w.'])")
CALL_STATEMENT = re.compile(r"^\s*[A-Za-z_][\w:]*(?:(?:\.|->)[A-Za-z_]\w*)*\(.*\);\s*$")
CONDITION = re.compile(r"\b(if|while) \(")
SKIP_LINE = re.compile(r"^\s*(#|static_assert|template|using |namespace|//|\*|/\*|case )")


def matching_paren(text, start):
    depth = 0
    for i in range(start, len(text)):
        if text[i] == "(":
            depth += 1
        elif text[i] == ")":
            depth -= 1
            if depth == 0:
                return i
    return -1


def sites_of(path, lines):
    """Every place one operator can change the line: (path, line index, kind, new line)."""
    in_block = False
    for n, line in enumerate(lines):
        if in_block:
            if "*/" in line:
                in_block = False
            continue
        if line.lstrip().startswith("/*"):
            in_block = "*/" not in line
            continue
        if SKIP_LINE.match(line):
            continue
        code = masked(line)
        for old, new in SWAPS:
            start = 0
            while (i := code.find(old, start)) >= 0:
                start = i + 1
                # "x - 1" inside "x - 10" is a different constant
                if old[-1].isdigit() and i + len(old) < len(code) and code[i + len(old)].isdigit():
                    continue
                yield n, f"'{old.strip()}' -> '{new.strip()}'", line[:i] + new + line[i + len(old):]
        for m in CONDITION.finditer(code):
            open_at = m.end() - 1
            close_at = matching_paren(code, open_at)
            if close_at > 0:
                inner = line[open_at + 1:close_at]
                yield n, f"{m.group(1)} negated", line[:open_at + 1] + "!(" + inner + ")" + line[close_at:]
        for m in NUMBER.finditer(code):
            if "[" in code[:m.start()] and "]" in code[m.end():]:
                continue  # array sizes make declarations fail to compile, not tests
            value = int(m.group(1))
            yield n, f"{value} -> {value + 1}", line[:m.start()] + str(value + 1) + line[m.end():]
        if CALL_STATEMENT.match(code) and not code.lstrip().startswith("return"):
            yield n, "call removed", re.match(r"^\s*", line).group(0) + ";\n"


def all_sites(tree):
    sites = []
    for folder in FOLDERS:
        for root, _, files in os.walk(os.path.join(tree, folder)):
            for name in sorted(files):
                if not name.endswith(".cpp"):
                    continue
                path = os.path.join(root, name)
                with open(path, encoding="utf-8") as f:
                    lines = f.readlines()
                if any(QT_INCLUDE.match(l) for l in lines):
                    continue
                rel = os.path.relpath(path, tree)
                sites += [(rel, n, kind, new) for n, kind, new in sites_of(path, lines)]
    sites.sort(key=lambda s: (s[0], s[1], s[2]))
    return sites


def run(cmd, cwd, limit=None):
    try:
        done = subprocess.run(cmd, cwd=cwd, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                              timeout=limit, text=True, errors="replace")
        return done.returncode, done.stdout
    except subprocess.TimeoutExpired as e:
        return None, (e.stdout or b"").decode(errors="replace") if isinstance(e.stdout, bytes) else (e.stdout or "")


def build(tree, jobs):
    return run(["cmake", "--build", "build", "-j", str(jobs)], tree)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--seed", type=int, default=2026)
    parser.add_argument("--count", type=int, default=60)
    parser.add_argument("--work", default="/var/tmp/quirefold-mutants")
    parser.add_argument("--limit", type=int, default=300, help="seconds per test run")
    parser.add_argument("--jobs", type=int, default=os.cpu_count() or 2)
    parser.add_argument("--list", action="store_true", help="print the sample and stop")
    parser.add_argument("--only", default="", help="mutant numbers to run, e.g. 3,17")
    parser.add_argument("--keep-tree", action="store_true", help="reuse WORK/tree as it is")
    args = parser.parse_args()

    source = subprocess.run(["git", "rev-parse", "--show-toplevel"], cwd=os.path.dirname(__file__),
                            stdout=subprocess.PIPE, text=True, check=True).stdout.strip()
    tree = os.path.join(args.work, "tree")
    if not args.keep_tree or not os.path.isdir(tree):
        # The build folder stays: with the compiler cache a fresh copy rebuilds in minutes.
        os.makedirs(tree, exist_ok=True)
        for name in os.listdir(tree):
            if name != "build":
                path = os.path.join(tree, name)
                shutil.rmtree(path) if os.path.isdir(path) and not os.path.islink(path) else os.remove(path)
        archive = subprocess.Popen(["git", "archive", "HEAD"], cwd=source, stdout=subprocess.PIPE)
        # --touch: every file newer than the build's outputs, so nothing stale is kept
        subprocess.run(["tar", "-x", "--touch", "-C", tree], stdin=archive.stdout, check=True)
        archive.wait()

    sites = all_sites(tree)
    order = list(range(len(sites)))
    random.Random(args.seed).shuffle(order)
    print(f"{len(sites)} places to plant a fault; seed {args.seed}", flush=True)
    if args.list:
        for number, index in enumerate(order[:args.count], 1):  # those that compile come first
            path, n, kind, new = sites[index]
            print(f"{number}\t{path}:{n + 1}\t{kind}\t{new.strip()}")
        return 0

    launcher = ["-DCMAKE_CXX_COMPILER_LAUNCHER=ccache", "-DCMAKE_C_COMPILER_LAUNCHER=ccache"] \
        if shutil.which("ccache") else []
    # No debug information: the relinks after every mutant are most of the rebuild.
    status, out = run(["cmake", "-S", ".", "-B", "build", "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Release",
                       "-DCMAKE_CXX_FLAGS_RELEASE=-O2 -DNDEBUG", "-DCMAKE_C_FLAGS_RELEASE=-O2 -DNDEBUG",
                       *launcher], tree)
    if status != 0:
        sys.exit("configuring the copy failed:\n" + out[-3000:])
    status, out = build(tree, args.jobs)
    if status != 0:
        sys.exit("building the unchanged copy failed:\n" + out[-3000:])
    test_cmd = ["ctest", "-L", TEST_LABELS, "-j", str(args.jobs), "--timeout", "120", "--stop-on-failure"]
    status, out = run(test_cmd, os.path.join(tree, "build"), args.limit)
    if status != 0:
        sys.exit("the unchanged copy fails its tests:\n" + out[-3000:])

    only = {int(x) for x in args.only.split(",") if x}
    results = open(os.path.join(args.work, "results.tsv"), "a")
    caught = survived = stillborn = 0
    # Mutants are numbered in the order the seed draws them, those that do not compile included,
    # so that --only names the same mutant in every run.
    for number, index in enumerate(order, 1):
        if caught + survived >= args.count or (only and number > max(only)):
            break
        if only and number not in only:
            continue
        path, n, kind, new = sites[index]
        full = os.path.join(tree, path)
        with open(full, encoding="utf-8") as f:
            original = f.readlines()
        mutant = original[:n] + [new] + original[n + 1:]
        with open(full, "w", encoding="utf-8") as f:
            f.writelines(mutant)
        started = time.time()
        try:
            status, out = build(tree, args.jobs)
            if status != 0:
                stillborn += 1
                continue
            status, out = run(test_cmd, os.path.join(tree, "build"), args.limit)
            # the tests that failed, not those listed as skipped or not run
            failed = re.findall(r"^\s*\d+ - (\S+) \((?!Skipped|Not Run|Disabled)", out, re.M)
            if status == 0:
                verdict, by = "SURVIVED", ""
                survived += 1
            else:
                verdict = "caught"
                by = "time limit" if status is None else (failed[0] if failed else "failure")
                caught += 1
            line = f"{number}\t{verdict}\t{path}:{n + 1}\t{kind}\t{new.strip()}\t{by}\t{time.time() - started:.0f}s"
            print(line, flush=True)
            results.write(line + "\n")
            results.flush()
        finally:
            with open(full, "w", encoding="utf-8") as f:
                f.writelines(original)
    build(tree, args.jobs)
    total = caught + survived
    summary = f"seed {args.seed}: {caught} of {total} caught ({100 * caught / max(total, 1):.1f} %), " \
              f"{survived} survived, {stillborn} did not compile"
    print(summary)
    results.write("# " + summary + "\n")
    return 0


if __name__ == "__main__":
    sys.exit(main())
