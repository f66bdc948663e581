#!/usr/bin/python3
"""Checks a DLL's export table against a module-definition (.def) file.

    check_dll_exports.py DLL DEF [--map VERSION_SCRIPT] [--left-out FILE] [--objdump OBJDUMP]

The DLL must export exactly the names of the .def file. A line
"alias = target" declares a second name of one entry point: both names must
resolve to the same address, and names not tied that way must not share one.
With --map, the global names of the ELF version script must be the same set.
With --left-out, the names listed in FILE (one per line) belong to tasks the
build left out: the DLL must not export them (nor aliases of them).
Exit code 0 when everything matches, 1 with a list of differences otherwise.
"""
import argparse
import re
import subprocess
import sys


def read_def(path):
    """Names of the EXPORTS section, and the alias -> target pairs."""
    names, aliases = [], {}
    in_exports = False
    with open(path, encoding="utf-8") as lines:
        for raw in lines:
            line = raw.split(";", 1)[0].strip()
            if not line:
                continue
            keyword = line.split()[0].upper()
            if keyword in ("LIBRARY", "NAME", "DESCRIPTION", "VERSION", "HEAPSIZE",
                           "STACKSIZE", "SECTIONS"):
                in_exports = False
                continue
            if keyword == "EXPORTS":
                in_exports = True
                line = line[len("EXPORTS"):].strip()
                if not line:
                    continue
            if not in_exports:
                continue
            match = re.match(r"([A-Za-z_][\w@?$]*)\s*(?:=\s*([A-Za-z_][\w@?$]*))?", line)
            if not match:
                raise ValueError(f"{path}: cannot read export line: {raw.rstrip()}")
            names.append(match.group(1))
            if match.group(2):
                aliases[match.group(1)] = match.group(2)
    return names, aliases


def read_export_table(objdump_text):
    """Exported name -> address (RVA) from `objdump -p` output."""
    addresses, names = {}, {}
    section = None
    for line in objdump_text.splitlines():
        if line.startswith("Export Address Table --"):
            section = "addresses"
            continue
        if line.startswith("[Ordinal/Name Pointer] Table"):
            section = "names"
            continue
        if section and not line.strip():
            section = None
            continue
        if section == "addresses":
            match = re.match(r"\s*\[\s*(\d+)\]\s*\+base\[\s*\d+\]\s*([0-9a-fA-F]+)", line)
            if match:
                addresses[int(match.group(1))] = int(match.group(2), 16)
        elif section == "names":
            match = re.match(r"\s*\[\s*(\d+)\]\s*(\S+)", line)
            if match:
                names[match.group(2)] = int(match.group(1))
    return {name: addresses.get(ordinal) for name, ordinal in names.items()}


def read_version_script(path):
    """Names of the global section of a linker version script."""
    with open(path, encoding="utf-8") as script:
        text = re.sub(r"/\*.*?\*/", "", script.read(), flags=re.S)
    match = re.search(r"global\s*:(.*?)(?:local\s*:|})", text, flags=re.S)
    return {name.strip() for name in match.group(1).split(";") if name.strip()} if match else set()


def compare(def_names, aliases, exported):
    """The differences between the .def file and the export table."""
    problems = []
    for name in sorted(set(def_names) - set(exported)):
        problems.append(f"missing export: {name}")
    for name in sorted(set(exported) - set(def_names)):
        problems.append(f"export not in the .def file: {name}")
    for alias, target in sorted(aliases.items()):
        if alias in exported and target in exported and exported[alias] != exported[target]:
            problems.append(f"{alias} and {target} should be one entry point, but lie at "
                            f"{exported[alias]:#x} and {exported[target]:#x}")
    # Every name's entry point: its alias target, else itself.
    entry = {name: aliases.get(name, name) for name in def_names}
    by_address = {}
    for name, address in exported.items():
        by_address.setdefault(address, set()).add(entry.get(name, name))
    for address, entries in sorted(by_address.items()):
        if len(entries) > 1:
            problems.append(f"distinct exports share address {address:#x}: "
                            + ", ".join(sorted(entries)))
    return problems


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("dll")
    parser.add_argument("definitions")
    parser.add_argument("--map", help="ELF version script that must list the same names")
    parser.add_argument("--left-out", help="file of exports the build leaves out")
    parser.add_argument("--objdump", default="x86_64-w64-mingw32-objdump")
    args = parser.parse_args()
    text = subprocess.run([args.objdump, "-p", args.dll], check=True, capture_output=True,
                          text=True).stdout
    exported = read_export_table(text)
    all_names, aliases = read_def(args.definitions)
    names = all_names
    if args.left_out:
        with open(args.left_out, encoding="utf-8") as listing:
            left_out = {line.strip() for line in listing
                        if line.strip() and not line.startswith("#")}
        names = [n for n in names if n not in left_out and aliases.get(n) not in left_out]
        aliases = {a: t for a, t in aliases.items() if a in names}
    problems = compare(names, aliases, exported)
    if args.map:
        elf_names = read_version_script(args.map)
        problems += [f"in {args.definitions}, not in {args.map}: {name}"
                     for name in sorted(set(all_names) - elf_names)]
        problems += [f"in {args.map}, not in {args.definitions}: {name}"
                     for name in sorted(elf_names - set(all_names))]
    for problem in problems:
        print(f"{args.dll}: {problem}")
    if not problems:
        shared = f", {len(aliases)} alias(es) sharing their target's address" if aliases else ""
        print(f"{args.dll}: {len(exported)} exports match {args.definitions}{shared}")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
