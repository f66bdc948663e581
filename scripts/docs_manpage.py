"""Checks that the manual page of the `meridian` tool names every command
and every option the tool's own --help lists."""
import re
import subprocess
import sys


def help_text(tool, *command):
    return subprocess.run([tool, *command, "--help"], check=True, capture_output=True,
                          text=True).stdout


def main():
    tool, page = sys.argv[1], sys.argv[2]
    # roff writes a hyphen as \-
    manual = open(page, encoding="utf-8").read().replace("\\-", "-")
    top = help_text(tool)
    commands = re.findall(r"^  ([a-z][a-z-]*) {2,}", top.split("Subcommands:")[1], re.M)
    missing = []
    for command in commands:
        if not re.search(rf"\bmeridian {re.escape(command)}\b|^\.B {re.escape(command)}$",
                         manual, re.M):
            missing.append(f"command {command}")
        for option in re.findall(r"(?<![\w-])(--[a-z][a-z-]*)", help_text(tool, command)):
            if option not in manual:
                missing.append(f"{command} {option}")
    for problem in missing:
        print(f"{page}: does not name {problem}")
    if missing or not commands:
        sys.exit(1)
    print(f"manual page: {len(commands)} commands and their options named")


if __name__ == "__main__":
    main()
