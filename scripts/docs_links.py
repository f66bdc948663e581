"""Checks every relative link of the README and of the pages in docs/: the
file it names exists, and an #anchor names a heading of a Markdown file
(GitHub's slugs: lower case, punctuation dropped, blanks to hyphens)."""
import os
import re
import sys

LINK = re.compile(r"!?\[[^\]]*\]\(([^)\s]+)\)")
FENCE = re.compile(r"^```.*?^```", re.M | re.S)


def slug(heading):
    text = re.sub(r"[^\w\- ]", "", heading.strip().lower())
    return text.replace(" ", "-")


def anchors(path):
    text = FENCE.sub("", open(path, encoding="utf-8").read())
    return {slug(h) for h in re.findall(r"^#+ (.*)$", text, re.M)}


def pages(root):
    yield os.path.join(root, "README.md")
    for folder, _, files in os.walk(os.path.join(root, "docs")):
        yield from (os.path.join(folder, f) for f in sorted(files) if f.endswith(".md"))


def problems(root):
    for page in pages(root):
        text = FENCE.sub("", open(page, encoding="utf-8").read())
        text = re.sub(r"`[^`\n]*`", "", text)
        for target in LINK.findall(text):
            if re.match(r"[a-z]+:", target):
                continue  # http:, https:, mailto:
            file_part, _, anchor = target.partition("#")
            resolved = os.path.normpath(os.path.join(os.path.dirname(page), file_part)) \
                if file_part else page
            where = os.path.relpath(page, root)
            if not os.path.exists(resolved):
                yield f"{where}: link to {target}: no such file"
            elif anchor and resolved.endswith(".md") and anchor not in anchors(resolved):
                yield f"{where}: link to {target}: no such heading"


def main():
    found = list(problems(sys.argv[1]))
    for problem in found:
        print(problem)
    if found:
        sys.exit(1)
    print("links: ok")


if __name__ == "__main__":
    main()
