#!/usr/bin/python3
"""Changes the modules one place at a time and counts how many changes the tests notice.

    mutate.py [--count N] [--seed S]    a sample of N changes, drawn by the seed
    mutate.py CHANGE                    one change, as the list of what went unnoticed names it

A change turns a comparison, moves a constant by one, leaves a call out, alters a text or a
character, swaps a report's level or what it does to the message, or swaps "and" and "or", plus and
minus, true and false; in the sources, not in the headers. Left alone is what nobody could see: the
length of an array, what a variable holds that is set before it is used, the release of memory and of
the platform's handles, also by destructors (the sanitizers' affair), and single changes that
unseen.txt lists with their reasons; and whole blocks that answer to memory running out, which the
torture plays instead, like the lines that uncovered.txt lists. What no compiler takes is no change.
Each is built and tested in a copy of the tree; the tree itself is never touched.
"""

import argparse
import ast
import collections
import concurrent.futures
import os
import random
import shutil
import subprocess
import sys
import tempfile
import threading

from clang import cindex
from clang.cindex import CursorKind, TypeKind

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
WORK = os.path.join(ROOT, "build", "mutation")
JOBS = 2
LEAST = 85
PERTURBED = {"MALLOC_PERTURB_": "165"}  # as in tools/test
LONGEST_TEST = 120  # seconds; a change that makes the tests hang is noticed
TURNED = {
    "<": ">", "<=": ">=", ">": "<", ">=": "<=", "==": "!=", "!=": "==",
    "&&": "||", "||": "&&", "+": "-", "-": "+",
}  # fmt: skip
SWAPPED = {
    "BEGIN_ERROR": ["ADD_ERROR", "ReportKind{LEVEL_WARN, true, false}"], "ADD_ERROR": ["ADD_WARN"],
    "ADD_WARN": ["ADD_ERROR"], "CLOSE_ERROR": ["WRITE_ERROR", "CLOSE_WARN"],
    "CLOSE_WARN": ["CLOSE_ERROR"], "WRITE_ERROR": ["CLOSE_ERROR", "WRITE_DEBUG"],
    "WRITE_DEBUG": ["WRITE_ERROR"], "true": ["false"], "false": ["true"],
}  # fmt: skip
RELEASES = {
    "__builtin_va_end", "free", "release", "release_resized", "split_release", "CloseHandle",
    "FindClose", "RegCloseKey",
}  # fmt: skip
ANSWERS_TO_NO_MEMORY = {"stop_without_memory", "fail_memory", "fail_no_room"}
DECLARATIONS = (CursorKind.VAR_DECL, CursorKind.FIELD_DECL)
# Operators and conversions, which do not show what an expression is for.
PASSED_OVER = (CursorKind.UNEXPOSED_EXPR, CursorKind.BINARY_OPERATOR, CursorKind.PAREN_EXPR)
# What holds statements; a call that stands there is one.
BODIES = (
    CursorKind.COMPOUND_STMT, CursorKind.IF_STMT, CursorKind.FOR_STMT, CursorKind.WHILE_STMT,
    CursorKind.CXX_FOR_RANGE_STMT, CursorKind.CASE_STMT, CursorKind.DEFAULT_STMT,
)  # fmt: skip

Change = collections.namedtuple("Change", "file start end text")


def name_of(change):
    return f"{change.file}:{change.start}:{change.end}:{change.text}"


def sources():
    files = subprocess.check_output(
        ["git", "ls-files", "src/brenlo/src/*.cpp", "src/shared/*.cpp"], cwd=ROOT, text=True
    ).split()
    return [file for file in files if not file.endswith("_windows.cpp")]


def listed(name):
    with open(os.path.join(ROOT, "torture", name), encoding="utf-8") as stream:
        lines = [line.rstrip("\n") for line in stream]
    return [line for line in lines if line and not line.startswith("#")]


def unseen_changes():
    lines = listed("unseen.txt")
    return {(place, change.strip()) for place, change in zip(lines[::2], lines[1::2])}


class Finder:
    """The changes of one source."""

    UNCOVERED = collections.Counter(listed("uncovered.txt"))
    UNSEEN = unseen_changes()
    MET = set()

    def __init__(self, file):
        self.file = file
        path = os.path.join(ROOT, file)
        with open(path, "rb") as stream:
            self.text = stream.read()
        self.lines = [line.strip() for line in self.text.decode().split("\n")]
        self.changes = []
        self.set_first = set()
        includes = [f"-I{ROOT}/src", f"-I{ROOT}/src/platform/include"]
        unit = cindex.Index.create().parse(path, args=["-std=c++20", *includes])
        errors = [str(it) for it in unit.diagnostics if it.severity >= cindex.Diagnostic.Error]
        if errors:
            sys.exit("\n".join(errors))
        own = [
            cursor for cursor in unit.cursor.get_children()
            if cursor.location.file and cursor.location.file.name == path
        ]  # fmt: skip
        uses = {}
        for cursor in own:
            self.find_first_uses(cursor, None, uses)
        self.set_first = {variable for variable, sets in uses.items() if sets}
        for cursor in own:
            self.visit(cursor, unit.cursor, unit.cursor)

    def add(self, start, end, text):
        line = self.lines[self.text.count(b"\n", 0, start)]
        change = Change(self.file, start, end, text)
        if change not in self.changes and not self.is_listed(line, change):
            self.changes.append(change)

    def is_listed(self, line, change):
        """Lines are listed by their text: one that some test runs elsewhere is not left alone."""
        place = f"{self.file}: {line}"
        before = self.text[change.start : change.end].decode()
        unseen = (place, f"{before} -> {change.text}".strip())
        self.MET.add(unseen)
        return unseen in self.UNSEEN or self.UNCOVERED[place] == self.lines.count(line)

    def piece(self, cursor):
        return cursor.extent.start.offset, cursor.extent.end.offset

    def find_first_uses(self, cursor, parent, uses):
        """Notes for each variable whether its first use hands it to a function that sets it."""
        if cursor.kind == CursorKind.DECL_REF_EXPR and cursor.referenced is not None:
            is_reference = parent.kind == CursorKind.CALL_EXPR
            is_address = (
                parent.kind == CursorKind.UNARY_OPERATOR and self.text_of(parent).startswith("&")
            )
            uses.setdefault(cursor.referenced.hash, is_reference or is_address)
        for child in cursor.get_children():
            self.find_first_uses(child, cursor, uses)

    def text_of(self, cursor):
        start, end = self.piece(cursor)
        return self.text[start:end].decode()

    def visit(self, cursor, parent, purpose):
        """`purpose` is the nearest ancestor that is more than an operator or a conversion."""
        if cursor.kind in (CursorKind.STATIC_ASSERT, CursorKind.DESTRUCTOR):
            return
        start, end = self.piece(cursor)
        text = self.text_of(cursor)
        if cursor.kind == CursorKind.BINARY_OPERATOR:
            left, right = cursor.get_children()
            self.turn(left.extent.end.offset, right.extent.start.offset)
        elif cursor.kind == CursorKind.INTEGER_LITERAL and text[:1].isdigit():
            if not self.is_unseen(purpose, text):
                self.move_constant(start, end, text)
        elif cursor.kind == CursorKind.CHARACTER_LITERAL:
            self.add(start, end, "'~'" if text != "'~'" else "'!'")
        elif cursor.kind == CursorKind.STRING_LITERAL and text.startswith('"'):
            # At the end: modules are named by the end of their path.
            self.add(end - 1, end - 1, "~")
        elif cursor.kind == CursorKind.UNARY_OPERATOR and text.startswith("!"):
            self.add(start, start + 1, "")
        elif text in SWAPPED:
            if not self.is_unseen(purpose, text):
                for other in SWAPPED[text]:
                    self.add(start, end, other)
        elif cursor.kind == CursorKind.COMPOUND_STMT:
            if any(map(self.tells_of_no_memory, cursor.get_children())):
                return
        elif cursor.kind == CursorKind.CALL_EXPR:
            if self.is_release(cursor, text) or self.answers_to_no_memory(cursor):
                return
            if cursor.spelling in ("operator==", "operator!="):
                self.turn_overloaded(cursor)
            if parent.kind in BODIES and self.text[end : end + 1] == b";":
                self.add(start, end, "")
        for child in cursor.get_children():
            self.visit(child, cursor, purpose if cursor.kind in PASSED_OVER else cursor)

    @staticmethod
    def is_release(call, text):
        return call.spelling in RELEASES or text.endswith((".reset()", "->reset()"))

    def answers_to_no_memory(self, call):
        stops = call.spelling == "assertion_report" and "memory" in self.text_of(call)
        return stops or call.spelling in ANSWERS_TO_NO_MEMORY

    def tells_of_no_memory(self, statement):
        if statement.kind != CursorKind.CALL_EXPR:
            return False
        reports = statement.spelling == "report" and "memory" in self.text_of(statement)
        return reports or self.answers_to_no_memory(statement)

    def is_unseen(self, parent, text):
        """Whether a constant's parent is a declaration in which nobody sees it."""
        if parent.kind not in DECLARATIONS:
            return False
        is_length = parent.type.kind == TypeKind.CONSTANTARRAY
        return is_length or (text in ("0", "false") and parent.hash in self.set_first)

    def turn(self, start, end):
        """Turns the operator between two operands."""
        between = self.text[start:end].decode()
        operator = between.strip()
        if operator in TURNED:
            at = start + between.index(operator)
            self.add(at, at + len(operator), TURNED[operator])

    def turn_overloaded(self, call):
        operands = list(call.get_children())
        if len(operands) == 3:
            self.turn(operands[0].extent.end.offset, operands[2].extent.start.offset)

    def move_constant(self, start, end, text):
        # A failure's -1 becomes a success; -2 would be a failure too.
        if self.text[start - 1 : start] == b"-" and text == "1":
            self.add(start - 1, end, "0")
            return
        digits = text.rstrip("uUlLzZ") if text[:2].lower() != "0b" else text
        number = ast.literal_eval(digits.replace("'", "_"))
        self.add(start, end, str(number + 1) + text[len(digits) :])


class Copy:
    """A copy of the tree in which changes are built and tested."""

    def __init__(self, number):
        self.path = os.path.join(WORK, str(number))
        self.build = os.path.join(self.path, "build", "mutation")
        self.changed = None
        files = subprocess.check_output(["git", "ls-files"], cwd=ROOT, text=True).splitlines()
        self.drop_all_but(files)
        for file in files:
            source, copy = os.path.join(ROOT, file), os.path.join(self.path, file)
            if not os.path.exists(source) or self.is_same(source, copy):
                continue
            os.makedirs(os.path.dirname(copy), exist_ok=True)
            shutil.copy(source, copy)
        self.run(["cmake", "--preset", "mutation"])

    def drop_all_but(self, files):
        """What the tree no longer has must not be built and tested here."""
        kept = {os.path.join(self.path, file) for file in files}
        for folder, folders, names in os.walk(self.path):
            if folder == self.path and "build" in folders:
                folders.remove("build")
            for name in names:
                if os.path.join(folder, name) not in kept:
                    os.remove(os.path.join(folder, name))

    @staticmethod
    def is_same(source, copy):
        if not os.path.exists(copy):
            return False
        with open(source, "rb") as one, open(copy, "rb") as other:
            return one.read() == other.read()

    def run(self, command):
        subprocess.run(command, cwd=self.path, check=True, stdout=subprocess.DEVNULL)

    def restore(self):
        if self.changed:
            shutil.copy(os.path.join(ROOT, self.changed), os.path.join(self.path, self.changed))
        self.changed = None

    def apply(self, change):
        if self.changed != change.file:
            self.restore()
        with open(os.path.join(ROOT, change.file), "rb") as stream:
            text = stream.read()
        text = text[: change.start] + change.text.encode() + text[change.end :]
        with open(os.path.join(self.path, change.file), "wb") as stream:
            stream.write(text)
        self.changed = change.file
        built = subprocess.run(
            ["cmake", "--build", "--preset", "mutation", "-j", "1"],
            cwd=self.path, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, check=False,
        )  # fmt: skip
        return built.returncode == 0

    def check_unchanged(self):
        """What the tests say of changes counts only while they pass without any."""
        self.run(["cmake", "--build", "--preset", "mutation", "-j", "1"])
        if not self.tests_pass():
            raise RuntimeError("the tests fail without any change")

    def tests_pass(self):
        """Whether the tests pass, those of the live host, which take longest, last."""
        return all(self.passes(choice) for choice in ("-LinuxHosts.*", "LinuxHosts.*"))

    def passes(self, choice):
        with tempfile.TemporaryDirectory(ignore_cleanup_errors=True) as folder:
            # A program of its own ends tests that hang even when this one is stopped.
            tests = subprocess.run(
                ["timeout", "-s", "KILL", str(LONGEST_TEST), f"{self.build}/tests/kadrix_tests",
                 f"--gtest_filter={choice}", "--gtest_fail_fast"],
                cwd=self.path, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                stderr=subprocess.DEVNULL, start_new_session=True, check=False,
                env={**os.environ, "TMPDIR": folder, "TEST_TMPDIR": folder, **PERTURBED},
            )  # fmt: skip
            return tests.returncode == 0


class Tally:
    def __init__(self):
        self.lock = threading.Lock()
        self.noticed = 0
        self.refused = 0
        self.unnoticed = []

    def try_changes(self, number, changes):
        copy = Copy(number)
        copy.check_unchanged()
        for change in changes:
            if not copy.apply(change):
                with self.lock:
                    self.refused += 1
                continue
            passed = copy.tests_pass()
            with self.lock:
                if passed:
                    self.unnoticed.append(change)
                    show(change)
                else:
                    self.noticed += 1
        copy.restore()
        copy.check_unchanged()


def show(change):
    with open(os.path.join(ROOT, change.file), encoding="utf-8") as stream:
        text = stream.read()
    line = text.count("\n", 0, change.start) + 1
    before = text[change.start : change.end]
    print(f"unnoticed: {change.file}:{line}: {before!r} became {change.text!r}")
    print(f"  {text.splitlines()[line - 1].strip()}")
    print(f"  again: tools/torture mutation '{name_of(change)}'", flush=True)


def sample(count, seed):
    finders = [Finder(file) for file in sources()]
    changes = [change for finder in finders for change in finder.changes]
    for place, change in sorted(Finder.UNSEEN - Finder.MET):
        sys.exit(f"unseen.txt lists what is no change: {place}\n  {change}")
    drawn = random.Random(seed).sample(changes, min(count, len(changes)))
    print(f"mutation: {len(changes)} changes possible, {len(drawn)} drawn", flush=True)
    return sorted(drawn)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("change", nargs="?")
    parser.add_argument("--count", type=int, default=100)
    parser.add_argument("--seed", type=int, default=1)
    options = parser.parse_args()
    if options.change:
        file, start, end, text = options.change.split(":", 3)
        changes = [Change(file, int(start), int(end), text)]
    else:
        changes = sample(options.count, options.seed)
    tally = Tally()
    jobs = max(1, min(JOBS, len(changes)))
    # Changes of one file stay together: each costs one compilation then.
    share = -(-len(changes) // jobs)
    with concurrent.futures.ThreadPoolExecutor(jobs) as pool:
        shares = [changes[i * share : (i + 1) * share] for i in range(jobs)]
        list(pool.map(tally.try_changes, range(jobs), shares))
    tried = tally.noticed + len(tally.unnoticed)
    percent = 100 * tally.noticed // tried if tried > 0 else 0
    print(
        f"mutation: {tally.noticed} of {tried} changes noticed, {percent} %; "
        f"{tally.refused} more were not C++"
    )
    # Most changes can be built; when they can't, it is not they that are at fault.
    sys.exit(0 if percent >= LEAST and tally.refused <= len(changes) // 5 else 1)


main()
