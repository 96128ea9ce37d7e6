#!/usr/bin/env python3
"""Makes one small fault at a time in the host build's product code, rebuilds,
runs the host tests and reports whether they caught it.

    mutate.py [N] [--seed S] [--replay RESULTS.tsv] [--list]

Run through ./dev mutate, from the repository's root, after the host build.
"""

import argparse
import json
import os
import random
import re
import signal
import subprocess
import sys
import time
from collections import defaultdict
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
HERE = Path(__file__).resolve().parent
BUILD = ROOT / "build" / "host"
OUT = ROOT / "build" / "mutate"
# Originals of files being changed: what a killed run left behind is put back
# at the next start.
PENDING = OUT / "pending"

DEFAULT_SEED = 1
DEFAULT_COUNT = 60
MIN_PER_AREA = 3

COLUMNS = ["outcome", "area", "path", "line", "occurrence", "operator", "match",
           "before", "after", "text", "mutated", "seconds", "detail"]


# ---------------------------------------------------------------- data files

class Operator:
    def __init__(self, name, pattern, replacement, flags):
        self.name = name
        self.regex = re.compile(pattern)
        self.replacement = replacement
        self.flags = set(flags)


def load_operators():
    operators = []
    for number, raw in enumerate((HERE / "operators.txt").read_text().splitlines(), 1):
        if not raw.strip() or raw.startswith("#"):
            continue
        fields = raw.split("\t")
        if len(fields) not in (3, 4):
            sys.exit(f"operators.txt:{number}: expected NAME, REGEX, REPLACEMENT[, FLAGS] separated by tabs")
        flags = fields[3].split(",") if len(fields) == 4 else []
        operators.append(Operator(fields[0], fields[1], fields[2], flags))
    return {op.name: op for op in operators}


def load_folders():
    include, exclude = [], []
    for number, raw in enumerate((HERE / "folders.txt").read_text().splitlines(), 1):
        line = raw.split("#", 1)[0].strip()
        if not line:
            continue
        kind, _, folder = line.partition(" ")
        if kind not in ("include", "exclude") or not folder.strip():
            sys.exit(f"folders.txt:{number}: expected 'include FOLDER' or 'exclude FOLDER'")
        (include if kind == "include" else exclude).append(folder.strip().strip("/"))
    return include, exclude


def under(path, folder):
    return path == folder or path.startswith(folder + "/")


def product_files():
    """Sources of the host build under the product folders, relative paths."""
    commands = BUILD / "compile_commands.json"
    if not commands.is_file():
        sys.exit(f"{commands} is missing: build the host preset first")
    include, exclude = load_folders()
    files = set()
    for entry in json.loads(commands.read_text()):
        path = Path(entry["file"])
        if not path.is_absolute():
            path = Path(entry["directory"]) / path
        try:
            rel = path.resolve().relative_to(ROOT).as_posix()
        except ValueError:
            continue  # generated or outside the tree
        if any(under(rel, f) for f in include) and not any(under(rel, f) for f in exclude):
            files.add(rel)
    return sorted(files)


def area_of(path):
    return os.path.dirname(path) or "."


# ------------------------------------------------------------------ scanning

def read_text(path):
    # Byte-exact round trip: keep line endings and any stray bytes.
    return (ROOT / path).read_bytes().decode("utf-8", "surrogateescape")


def write_text(path, text):
    (ROOT / path).write_bytes(text.encode("utf-8", "surrogateescape"))


def mask(lines):
    """The lines with comments blanked and literals' contents replaced by '_',
    so that operators only see code. Columns are kept."""
    masked = []
    in_comment = False
    raw_end = None  # the closing delimiter of a raw string still open
    for line in lines:
        out = []
        i = 0
        n = len(line)
        while i < n:
            if raw_end is not None:
                end = line.find(raw_end, i)
                if end < 0:
                    out.append("_" * (n - i))
                    i = n
                else:
                    out.append("_" * (end - i) + raw_end.replace(raw_end[:-1], "_" * (len(raw_end) - 1)))
                    i = end + len(raw_end)
                    raw_end = None
                continue
            if in_comment:
                end = line.find("*/", i)
                if end < 0:
                    out.append(" " * (n - i))
                    i = n
                else:
                    out.append(" " * (end + 2 - i))
                    i = end + 2
                    in_comment = False
                continue
            c = line[i]
            if line.startswith("//", i):
                out.append(" " * (n - i))
                i = n
            elif line.startswith("/*", i):
                in_comment = True
                out.append("  ")
                i += 2
            elif c == '"' and i > 0 and line[i - 1] == "R":
                open_paren = line.find("(", i)
                delimiter = line[i + 1:open_paren] if open_paren >= 0 else ""
                raw_end = ")" + delimiter + '"'
                out.append('"' + "_" * (open_paren - i))
                i = open_paren + 1
            elif c in "\"'":
                if c == "'" and i > 0 and line[i - 1].isalnum() and i + 1 < n and line[i + 1].isalnum():
                    out.append(c)  # a digit separator
                    i += 1
                    continue
                j = i + 1
                while j < n and line[j] != c:
                    j += 2 if line[j] == "\\" else 1
                j = min(j, n - 1)
                out.append(c + "_" * (j - i - 1) + (c if j > i else ""))
                i = j + 1
            else:
                out.append(c)
                i += 1
        masked.append("".join(out))
    return masked


def skipped_lines(masked):
    """Lines no operator touches: preprocessor lines, static_assert and
    multi-line constant tables."""
    skip = set()
    i = 0
    table_start = re.compile(r"(\bconstexpr\b[^(]*\{\s*$)|(\bconst(expr|init)?\b.*=\s*\{+\s*$)|(\[\s*\w*\s*\]\s*=\s*\{+\s*$)")
    while i < len(masked):
        code = masked[i].strip()
        if code.startswith("#"):
            while i < len(masked) and masked[i].rstrip().endswith("\\"):
                skip.add(i)
                i += 1
            skip.add(i)
        elif "static_assert" in code:
            while i < len(masked) and ";" not in masked[i]:
                skip.add(i)
                i += 1
            skip.add(i)
        elif table_start.search(code):
            depth = 0
            while i < len(masked):
                skip.add(i)
                depth += masked[i].count("{") - masked[i].count("}")
                if depth <= 0:
                    break
                i += 1
        i += 1
    return skip


def balanced(code):
    return all(code.count(a) == code.count(b) for a, b in ("()", "[]", "{}"))


HEADER = re.compile(r"^\s*(\}\s*)?(else\s+)?(if|for|while)\b.*\)\s*$|^\s*(\}\s*)?else\s*$")


def statement_line(masked, i, skip):
    """A whole one-line statement that starts where a statement may start."""
    code = masked[i].rstrip()
    if i in skip or not code.endswith(";") or not balanced(code):
        return False
    stripped = code.strip()
    if re.match(r"(case\b|default\b|public\b|private\b|protected\b|[\w:]+\s*:[^:])", stripped):
        return False
    j = i - 1
    while j >= 0 and (not masked[j].strip() or j in skip):
        j -= 1
    if j < 0:
        return True
    before = masked[j].rstrip()
    return before.endswith((";", "{", "}")) or (before.endswith(":") and not before.endswith("::")) \
        or bool(HEADER.match(before))


DECLARATION = re.compile(r"^\s*(?:(?:const|constexpr|static|thread_local|inline|auto|unsigned|signed)\b"
                         r"|[\w:]+(?:<[^;]*>)?[\s*&]+(?P<name>\w+)\s*(?:=|\(|\{|;|\[))")
DECLARED = re.compile(r"(\w+)\s*(?:=[^=]|\(|\{|;|\[)")
JUMP = re.compile(r"^\s*(return|throw|break|continue|goto|co_return)\b")


def swappable(first, second):
    """Two statements whose swap is neither a sure compile error (a name used
    before its declaration) nor the same program (two declarations) nor a
    plain deletion (a jump that makes the other unreachable)."""
    if JUMP.match(first) or JUMP.match(second):
        return False
    one, two = DECLARATION.match(first), DECLARATION.match(second)
    if one and two:
        return False
    for declaration, other in ((one, second), (two, first)):
        if declaration:
            name = DECLARED.search(declaration.string[declaration.start():])
            if name and re.search(rf"\b{re.escape(name.group(1))}\b", other):
                return False
    return True


def expand(op, match, line, masked_line, lines, index):
    """The mutated text of the matched span, and the span's end, or None."""
    start, end = match.span()
    template = op.replacement
    inner = None
    if "paren" in op.flags:
        depth = 0
        close = None
        for k in range(end - 1, len(masked_line)):
            if masked_line[k] == "(":
                depth += 1
            elif masked_line[k] == ")":
                depth -= 1
                if depth == 0:
                    close = k
                    break
        if close is None:
            return None
        inner = line[end:close]
        end = close + 1
    original = line[start:end]

    def numeric(sign):
        literal = match.group("n")
        value = int(literal, 0) + sign
        if value < 0:
            return None
        return hex(value) if literal.lower().startswith("0x") else str(value)

    if "{n+1}" in template or "{n-1}" in template:
        plus, minus = numeric(1), numeric(-1)
        if ("{n+1}" in template and plus is None) or ("{n-1}" in template and minus is None):
            return None
        template = template.replace("{n+1}", plus or "").replace("{n-1}", minus or "")
    if "{next}" in template:
        return lines[index + 1], end
    # Groups are read from the real line: the masked one has blanked literals.
    def group(ref):
        key = int(ref.group(2)) if ref.group(2) else ref.group(1)
        s, e = match.span(key)
        return line[s:e] if s >= 0 else ""
    text = re.sub(r"\\g<(\w+)>|\\(\d+)", group, template)
    if inner is not None:
        text = text.replace("{inner}", inner)
    return text, end


class Site:
    def __init__(self, path, index, text, occurrence, op, k, before, after, mutated, other=None):
        self.path = path
        self.index = index          # 0-based line number
        self.text = text            # the line's exact text
        self.occurrence = occurrence  # among identical lines of the file
        self.op = op
        self.k = k                  # which match of the operator on the line
        self.before = before
        self.after = after
        self.mutated = mutated      # the line's text after the change
        self.other = other          # the next line's new text (swap)

    @property
    def area(self):
        return area_of(self.path)

    def describe(self):
        return f"{self.path}:{self.index + 1}  {self.op}  '{self.before.strip()}' -> '{self.after.strip()}'"


def scan(path, operators, text=None):
    text = read_text(path) if text is None else text
    lines = text.splitlines()
    masked = mask(lines)
    skip = skipped_lines(masked)
    seen = defaultdict(int)
    sites = []
    for i, (line, code) in enumerate(zip(lines, masked)):
        occurrence = seen[line]
        seen[line] += 1
        if i in skip or not code.strip():
            continue
        for op in operators.values():
            if ("stmt" in op.flags or "swap" in op.flags) and not statement_line(masked, i, skip):
                continue
            if "swap" in op.flags:
                if i + 1 >= len(lines) or not statement_line(masked, i + 1, skip):
                    continue
                indent = re.match(r"\s*", lines[i]).group()
                if re.match(r"\s*", lines[i + 1]).group() != indent or lines[i] == lines[i + 1] \
                        or not swappable(code, masked[i + 1]):
                    continue
            for k, match in enumerate(op.regex.finditer(code)):
                result = expand(op, match, line, code, lines, i)
                if result is None:
                    continue
                after, end = result
                if "swap" in op.flags:
                    sites.append(Site(path, i, line, occurrence, op.name, k, line, after, after, line))
                    continue
                mutated = line[:match.start()] + after + line[end:]
                if mutated != line:
                    sites.append(Site(path, i, line, occurrence, op.name, k, line[match.start():end], after, mutated))
    return sites


# ---------------------------------------------------------------- selection

def choose(sites, count, seed):
    """COUNT sites spread over the areas in proportion to their sites, each
    area (when COUNT allows) at least MIN_PER_AREA; the same for one seed."""
    by_area = defaultdict(list)
    for site in sites:
        by_area[site.area].append(site)
    areas = sorted(by_area)
    count = min(count, len(sites))
    if count < len(areas):
        random.Random(f"{seed}:areas").shuffle(areas)
        quota = {a: 1 for a in areas[:count]}
    else:
        floor = min(MIN_PER_AREA, count // len(areas))
        quota = {a: min(floor, len(by_area[a])) for a in areas}
        rest = count - sum(quota.values())
        while rest > 0:
            room = {a: len(by_area[a]) - quota[a] for a in areas if len(by_area[a]) > quota[a]}
            total = sum(len(by_area[a]) for a in room)
            shares = {a: rest * len(by_area[a]) / total for a in room}
            given = {a: min(room[a], int(shares[a])) for a in room}
            left = rest - sum(given.values())
            for a in sorted(room, key=lambda a: (-(shares[a] - int(shares[a])), a)):
                if left <= 0:
                    break
                if given[a] < room[a]:
                    given[a] += 1
                    left -= 1
            for a, g in given.items():
                quota[a] += g
            if sum(given.values()) == 0:
                break
            rest = count - sum(quota.values())
    chosen = []
    for area, wanted in quota.items():
        # Operators take turns, so that common ones (literals, statements) do
        # not crowd out the rest; within one, one fault per line first.
        rng = random.Random(f"{seed}:{area}")
        by_op = defaultdict(list)
        for site in by_area[area]:
            by_op[site.op].append(site)
        ops = sorted(by_op)
        rng.shuffle(ops)
        for op in ops:
            rng.shuffle(by_op[op])
        lines_taken = set()
        picked = []
        while len(picked) < wanted:
            for op in ops:
                pool = by_op[op]
                if not pool or len(picked) >= wanted:
                    continue
                fresh = [s for s in pool if (s.path, s.index) not in lines_taken]
                site = fresh[0] if fresh else pool[0]
                pool.remove(site)
                picked.append(site)
                lines_taken.add((site.path, site.index))
        chosen.extend(picked)
    return sorted(chosen, key=lambda s: (s.path, s.index, s.op, s.k))


# ------------------------------------------------------------------ running

def on_signal(signum, frame):
    raise KeyboardInterrupt


def run(command, log, timeout=None):
    """Runs COMMAND in a process group of its own, output to LOG; returns its
    exit status, or None when it ran out of time (the group is then ended)."""
    with open(log, "wb") as out:
        process = subprocess.Popen(command, cwd=ROOT, stdout=out, stderr=subprocess.STDOUT, start_new_session=True)
        try:
            return process.wait(timeout=timeout)
        except subprocess.TimeoutExpired:
            stop(process)
            return None
        except BaseException:
            stop(process)
            raise


def stop(process):
    for sig, wait in ((signal.SIGTERM, 5), (signal.SIGKILL, 30)):
        try:
            os.killpg(process.pid, sig)
        except ProcessLookupError:
            return
        try:
            process.wait(timeout=wait)
            return
        except subprocess.TimeoutExpired:
            continue


def build(log):
    return run(["cmake", "--build", "--preset", "host"], log)


def test_groups():
    """The host tests' numbers in three groups, fastest first: unit tests, the
    command-line tests, and the rest; and the fixture set-ups apart: they run
    once at the start, since no fault in the product changes what they make."""
    listing = subprocess.run(["ctest", "--preset", "host", "-N", "--show-only=json-v1"], cwd=ROOT,
                             capture_output=True, text=True, check=True)
    groups = {"unit": [], "cli": [], "other": []}
    setups = []
    for number, test in enumerate(json.loads(listing.stdout)["tests"], 1):
        properties = {p["name"]: p["value"] for p in test.get("properties", [])}
        if "FIXTURES_SETUP" in properties:
            setups.append(number)
            continue
        program = os.path.basename(test.get("command", [""])[0])
        key = "unit" if program == "kestrel_unit_tests" else "cli" if program == "kestrel_cli_tests" else "other"
        groups[key].append(number)
    return setups, [(name, numbers) for name, numbers in groups.items() if numbers]


def ctest(numbers, name, log_dir, *options, timeout=None):
    selection = log_dir / f"tests-{name}.txt"
    selection.write_text("0,0,0," + ",".join(map(str, numbers)) + "\n")
    log = log_dir / f"tests-{name}.log"
    return run(["ctest", "--preset", "host", "-I", str(selection), "--parallel", "2", *options], log,
               timeout=timeout), log


def plan(groups, took):
    """The groups again with each one's slow tests (two seconds or more)
    moved after every fast test: a test still running when another fails
    holds the run until it ends. Also each group's time limit and the limit
    per test: a fault may slow the tests down, and one that hangs is caught."""
    fast, slow = [], []
    for name, numbers in groups:
        quick = [n for n in numbers if took.get(n, 0) < 2]
        long = [n for n in numbers if took.get(n, 0) >= 2]
        if quick:
            fast.append((name, quick))
        if long:
            slow.append((name + "-slow", long))
    ordered = fast + slow
    limits = {name: 3 * sum(took.get(n, 0) for n in numbers) + 60 for name, numbers in ordered}
    per_test = int(5 * max(took.values(), default=0) + 60)
    return ordered, limits, per_test


# With --every-test, each fault runs every test and the detail names all
# that failed: which tests are the only ones to catch a fault.
EVERY_TEST = False


def run_tests(groups, limits, per_test, log_dir):
    """'caught' with the first failing test (or all of them), or 'missed'."""
    failing = []
    for name, numbers in groups:
        stop = [] if EVERY_TEST else ["--stop-on-failure"]
        status, log = ctest(numbers, name, log_dir, "-FS", ".*", *stop, "--timeout", str(per_test),
                            timeout=limits.get(name))
        if status is None:
            failing.append(f"{name}: timed out")
        elif status != 0:
            failed = re.findall(r"^\s*\d+ - (\S+) \(", log.read_text(errors="replace"), re.M)
            failing += failed if EVERY_TEST and failed else [f"{name}: {failed[0] if failed else 'failed'}"]
        if failing and not EVERY_TEST:
            break
    return ("caught", " ".join(failing)) if failing else ("missed", "")


class Restorer:
    """Changes product files and puts them back byte for byte."""

    def __init__(self):
        PENDING.mkdir(parents=True, exist_ok=True)
        self.recover()

    @staticmethod
    def recover():
        for saved in PENDING.glob("*.orig"):
            path = saved.name[:-len(".orig")].replace("%", "/")
            (ROOT / path).write_bytes(saved.read_bytes())
            saved.unlink()
            print(f"put back {path}, left changed by an earlier run", file=sys.stderr)

    def change(self, path, text):
        saved = PENDING / (path.replace("/", "%") + ".orig")
        saved.write_bytes((ROOT / path).read_bytes())
        self.saved = (path, saved)
        write_text(path, text)

    def restore(self):
        if getattr(self, "saved", None):
            path, saved = self.saved
            (ROOT / path).write_bytes(saved.read_bytes())
            saved.unlink()
            self.saved = None


def mutated_text(site):
    text = read_text(site.path)
    lines = text.splitlines(keepends=True)
    line = lines[site.index]
    ending = line[len(line.rstrip("\r\n")):]
    lines[site.index] = site.mutated + ending
    if site.other is not None:
        next_line = lines[site.index + 1]
        lines[site.index + 1] = site.other + next_line[len(next_line.rstrip("\r\n")):]
    return "".join(lines)


def escape(value):
    return str(value).replace("\\", "\\\\").replace("\t", "\\t").replace("\n", "\\n")


def unescape(value):
    return re.sub(r"\\(.)", lambda m: {"t": "\t", "n": "\n"}.get(m.group(1), m.group(1)), value)


def row(outcome, site, seconds, detail):
    return [outcome, site.area, site.path, site.index + 1, site.occurrence, site.op, site.k, site.before,
            site.after, site.text, site.mutated, f"{seconds:.0f}", detail]


def execute(sites, results_path, gone_rows=()):
    """Tries each site; returns the rows written."""
    OUT.mkdir(parents=True, exist_ok=True)
    log_dir = OUT / "logs"
    log_dir.mkdir(exist_ok=True)
    restorer = Restorer()
    rows = []
    started = time.monotonic()
    with open(results_path, "w") as results:
        results.write("\t".join(COLUMNS) + "\n")
        for r in gone_rows:
            results.write("\t".join(escape(v) for v in r) + "\n")
            rows.append(r)
        results.flush()
        try:
            print("== building and running the unchanged suite once (it must pass)", file=sys.stderr)
            t0 = time.monotonic()
            if build(log_dir / "build-clean.log") != 0:
                sys.exit(f"the host build fails without any fault: see {log_dir / 'build-clean.log'}")
            t1 = time.monotonic()
            setups, groups = test_groups()
            if setups and ctest(setups, "setup", log_dir)[0] != 0:
                sys.exit(f"the host tests' set-up fails: see {log_dir / 'tests-setup.log'}")
            took = {}
            for name, numbers in groups:
                status, log = ctest(numbers, name, log_dir, "-FS", ".*")
                if status != 0:
                    sys.exit(f"the {name} tests fail without any fault: see {log}")
                for number, seconds in re.findall(r"Test\s+#(\d+): .*?Passed\s+([\d.]+) sec", log.read_text()):
                    took[int(number)] = float(seconds)
            groups, limits, per_test = plan(groups, took)
            print(f"== clean build {t1 - t0:.0f}s; tests: "
                  + ", ".join(f"{n} {len(g)} ({sum(took.get(i, 0) for i in g):.0f}s)" for n, g in groups),
                  file=sys.stderr)
            for number, site in enumerate(sites, 1):
                t0 = time.monotonic()
                try:
                    restorer.change(site.path, mutated_text(site))
                    if build(log_dir / "build.log") != 0:
                        errors = [l for l in (log_dir / "build.log").read_text(errors="replace").splitlines()
                                  if "error:" in l]
                        outcome, detail = "no-compile", (errors[0].replace(f"{ROOT}/", "")[:200] if errors else "")
                    else:
                        outcome, detail = run_tests(groups, limits, per_test, log_dir)
                finally:
                    restorer.restore()
                seconds = time.monotonic() - t0
                r = row(outcome, site, seconds, detail)
                rows.append(r)
                results.write("\t".join(escape(v) for v in r) + "\n")
                results.flush()
                print(f"{outcome:<10} {site.describe()}   [{number}/{len(sites)}, {seconds:.0f}s]", flush=True)
        finally:
            restorer.restore()
            print("== rebuilding the unchanged code", file=sys.stderr)
            try:
                build(log_dir / "build-final.log")
            except KeyboardInterrupt:
                print("rebuild interrupted: run cmake --build --preset host", file=sys.stderr)
    total = time.monotonic() - started
    return rows, total


def score(rows, total):
    counts = defaultdict(int)
    for r in rows:
        counts[r[0]] += 1
    tried = sum(counts[k] for k in ("caught", "missed", "no-compile"))
    judged = counts["caught"] + counts["missed"]
    parts = [f"caught {counts['caught']}", f"missed {counts['missed']}", f"no-compile {counts['no-compile']}"]
    if counts["gone"]:
        parts.append(f"gone {counts['gone']}")
    print("score: " + ", ".join(parts) + (f"; {100 * counts['caught'] / judged:.1f}% caught" if judged else ""))
    if tried:
        own = sum(float(r[11]) for r in rows if r[0] != "gone")
        print(f"time: {total / 60:.1f} min in all, {own / tried:.0f}s per fault")
    if EVERY_TEST:
        # Per test: the faults it catches, and those no other test catches.
        caught, alone = defaultdict(int), defaultdict(int)
        for r in rows:
            names = r[12].split() if r[0] == "caught" else []
            for name in names:
                caught[name] += 1
                alone[name] += len(names) == 1
        print("tests that catch a fault (caught, caught alone):")
        for name in sorted(caught, key=lambda n: (-alone[n], -caught[n], n)):
            print(f"  {alone[name]:3d} {caught[name]:3d}  {name}")


# ------------------------------------------------------------------- replay

def read_results(path):
    lines = Path(path).read_text().splitlines()
    header = lines[0].split("\t")
    if header[:len(COLUMNS)] != COLUMNS:
        sys.exit(f"{path}: not a results file of ./dev mutate")
    return [dict(zip(header, (unescape(v) for v in line.split("\t")))) for line in lines[1:] if line]


def locate(entry, files, operators, cache):
    """The site an earlier row names, in today's code, or a reason it is gone."""
    def lines_of(path):
        if path not in cache:
            cache[path] = read_text(path).splitlines()
        return cache[path]

    text, occurrence = entry["text"], int(entry["occurrence"])
    path = entry["path"]
    place = None
    for exact in (True, False):
        same = (lambda a: a == text) if exact else (lambda a: a.strip() == text.strip())
        if path in files:
            hits = [i for i, l in enumerate(lines_of(path)) if same(l)]
            if len(hits) > occurrence:
                place = (path, hits[occurrence])
                break
        # Moved: whichever product file now holds the line, the same file name first.
        holders = {}
        for f in files:
            if f == path:
                continue
            hits = [i for i, l in enumerate(lines_of(f)) if same(l)]
            if hits:
                holders[f] = hits
        named = [f for f in holders if os.path.basename(f) == os.path.basename(path)]
        pick = named if named else list(holders)
        if len(pick) == 1:
            hits = holders[pick[0]]
            place = (pick[0], hits[occurrence] if len(hits) > occurrence else hits[0])
            break
        if len(pick) > 1:
            return None, "the line is in several other files"
    if place is None:
        return None, "the line is gone"
    found_path, index = place
    for site in scan(found_path, operators):
        if site.index == index and site.op == entry["operator"] and site.k == int(entry["match"]):
            return site, ""
    return None, "the fault no longer applies to the line"


def replay(path, operators):
    entries = read_results(path)
    files = product_files()
    cache = {}
    sites, gone_rows, pairs = [], [], []
    for entry in entries:
        site, why = locate(entry, files, operators, cache)
        if site is None:
            gone_rows.append(["gone", area_of(entry["path"]), entry["path"], entry["line"], entry["occurrence"],
                              entry["operator"], entry["match"], entry["before"], entry["after"], entry["text"],
                              entry["mutated"], "0", why])
            print(f"gone       {entry['path']}:{entry['line']}  {entry['operator']}  "
                  f"'{entry['before'].strip()}' -> '{entry['after'].strip()}'   ({why})")
        else:
            sites.append(site)
            pairs.append((entry, site))
    order = sorted(range(len(sites)), key=lambda i: (sites[i].path, sites[i].index, sites[i].op, sites[i].k))
    sites = [sites[i] for i in order]
    pairs = [pairs[i] for i in order]
    out = OUT / ("replay-every-test.tsv" if EVERY_TEST else "replay.tsv")
    rows, total = execute(sites, out, gone_rows)
    now = {(r[2], int(r[3]), r[5], int(r[6])): r for r in rows if r[0] != "gone"}
    regressions, improvements = [], []
    for entry, site in pairs:
        r = now.get((site.path, site.index + 1, site.op, site.k))
        if r is None:
            continue
        label = site.describe()
        if (entry["path"], int(entry["line"])) != (site.path, site.index + 1):
            label += f"   (was {entry['path']}:{entry['line']})"
        if entry["outcome"] == "caught" and r[0] == "missed":
            regressions.append(label)
        elif entry["outcome"] == "missed" and r[0] == "caught":
            improvements.append(label)
    print(f"\nagainst {path}:")
    print(f"caught before, missed now ({len(regressions)}):")
    for label in regressions:
        print("  " + label)
    print(f"missed before, caught now ({len(improvements)}):")
    for label in improvements:
        print("  " + label)
    print(f"gone ({len(gone_rows)}):")
    for r in gone_rows:
        print(f"  {r[2]}:{r[3]}  {r[5]}  '{r[7].strip()}' -> '{r[8].strip()}'  ({r[12]})")
    score(rows, total)
    print(f"results: {out}")


# --------------------------------------------------------------------- main

def main():
    parser = argparse.ArgumentParser(prog="./dev mutate", description=__doc__.split("\n\n")[0])
    parser.add_argument("count", nargs="?", type=int, default=DEFAULT_COUNT,
                        help=f"how many faults (default {DEFAULT_COUNT})")
    parser.add_argument("--seed", default=str(DEFAULT_SEED), help=f"chooses the sites (default {DEFAULT_SEED})")
    parser.add_argument("--replay", metavar="RESULTS.tsv", help="run exactly the sites of an earlier results file")
    parser.add_argument("--list", action="store_true", help="print the chosen faults and stop")
    parser.add_argument("--every-test", action="store_true",
                        help="run every test for each fault and name all that fail (slower)")
    args = parser.parse_args()
    global EVERY_TEST
    EVERY_TEST = args.every_test
    # Also when started in the background, where SIGINT comes in ignored.
    signal.signal(signal.SIGINT, signal.default_int_handler)
    signal.signal(signal.SIGTERM, on_signal)
    signal.signal(signal.SIGHUP, on_signal)
    PENDING.mkdir(parents=True, exist_ok=True)
    Restorer.recover()
    operators = load_operators()
    if args.replay:
        replay(args.replay, operators)
        return
    files = product_files()
    sites = [site for path in files for site in scan(path, operators)]
    chosen = choose(sites, args.count, args.seed)
    areas = defaultdict(lambda: [0, 0])
    for s in sites:
        areas[s.area][0] += 1
    for s in chosen:
        areas[s.area][1] += 1
    print(f"== {len(chosen)} of {len(sites)} sites in {len(files)} files, seed {args.seed}: "
          + ", ".join(f"{a} {n}/{t}" for a, (t, n) in sorted(areas.items())), file=sys.stderr)
    if args.list:
        for site in chosen:
            print(site.describe())
        return
    out = OUT / f"results-seed{args.seed}-n{len(chosen)}.tsv"
    rows, total = execute(chosen, out)
    score(rows, total)
    print(f"results: {out}")


if __name__ == "__main__":
    try:
        main()
    except KeyboardInterrupt:
        sys.exit("interrupted; every changed file was put back")
