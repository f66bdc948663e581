"""Prints a bash script that runs the README's quick start as a reader would:
every fenced sh and python block from the "Quick start" heading on, in
order, in one shell. Python blocks run through /usr/bin/python3 in that
shell, so they see its directory and environment."""
import re
import shlex
import sys


def quick_start_blocks(text):
    """The (language, body) of each fenced sh/python block under "## Quick start"."""
    start = text.find("\n## Quick start")
    if start < 0:
        sys.exit("README has no '## Quick start' section")
    section = text[start:]
    following = re.search(r"\n## (?!Quick start)", section[1:])
    if following:
        section = section[:following.start() + 1]
    return re.findall(r"^```(sh|python)\n(.*?)^```$", section, re.M | re.S)


def main():
    blocks = quick_start_blocks(open(sys.argv[1], encoding="utf-8").read())
    if not blocks:
        sys.exit("README's quick start has no sh or python block")
    print("set -euo pipefail")
    for number, (language, body) in enumerate(blocks, 1):
        first = body.splitlines()[0] if body.strip() else ""
        print("echo " + shlex.quote(f"[block {number}, {language}] {first}"))
        if language == "sh":
            print(body, end="")
        else:
            print("/usr/bin/python3 - <<'MERIDIAN_QUICK_START_PYTHON'")
            print(body, end="")
            print("MERIDIAN_QUICK_START_PYTHON")


if __name__ == "__main__":
    main()
