#!/usr/bin/env python3
"""Every link leads somewhere.

    links.py SOURCE_DIR [SITE]

Of each markdown file in the source tree, every relative link and picture is a file or folder of the
tree, and what stands behind a # is a headline there. With a SITE, every href and src of its pages
is a file within it, and what stands behind a # is there.
"""

import re
import subprocess
import sys
from html.parser import HTMLParser
from pathlib import Path
from urllib.parse import unquote, urlsplit

CODE = re.compile(r"^```.*?^```$|`[^`\n]*`", re.DOTALL | re.MULTILINE)
LINK = re.compile(r"\]\(\s*<?([^)\s>]+)>?[^)]*\)")


def markdown_files(root):
    try:
        listed = subprocess.run(
            ["git", "ls-files", "-co", "--exclude-standard", "--", "*.md"],
            cwd=root, check=True, text=True, capture_output=True,
        ).stdout.split("\n")[:-1]
        return [root / name for name in listed]
    except (OSError, subprocess.CalledProcessError):  # a tree without its history
        return [file for file in root.rglob("*.md") if "build" not in file.relative_to(root).parts]


def headlines(file):
    """The names that links give to headlines: lower case, hyphens for spaces, no punctuation."""
    text = re.sub(r"^```.*?^```$", "", file.read_text(), flags=re.DOTALL | re.MULTILINE)
    for headline in re.findall(r"^#+ +(.*)$", text, re.MULTILINE):
        yield re.sub(r"[^\w\- ]", "", headline.strip().lower()).replace(" ", "-")


def dead_in_markdown(root):
    for file in markdown_files(root):
        if file == root / "bench" / "head.md":
            continue  # is looked at as a part of docs/benchmarks.md
        for link in LINK.findall(CODE.sub("", file.read_text())):
            parts = urlsplit(link)
            if parts.scheme:
                continue
            target = (file.parent / unquote(parts.path)) if parts.path else file
            if not target.exists():
                yield f"{file.relative_to(root)}: {link}: no such file"
            elif parts.fragment and parts.fragment not in headlines(target):
                yield f"{file.relative_to(root)}: {link}: no such headline"


class Page(HTMLParser):
    def __init__(self, file):
        super().__init__()
        self.links, self.anchors = [], set()
        self.feed(file.read_text(errors="replace"))

    def handle_starttag(self, tag, attributes):
        for name, value in attributes:
            if name in ("href", "src") and value:
                self.links.append(value)
            elif name == "id" or (name == "name" and tag == "a"):
                self.anchors.add(value)


def dead_in_site(site):
    pages = {file: Page(file) for file in site.rglob("*.html")}
    if not pages:
        yield f"{site}: no page"
    for file, page in pages.items():
        for link in sorted(set(page.links)):
            parts = urlsplit(link)
            if parts.scheme or parts.netloc:
                continue
            target = (file.parent / unquote(parts.path)).resolve() if parts.path else file
            if not target.is_file() or not target.is_relative_to(site):
                yield f"{file.relative_to(site)}: {link}: no such file"
            elif parts.fragment and target in pages:
                if unquote(parts.fragment) not in pages[target].anchors:
                    yield f"{file.relative_to(site)}: {link}: no such place"


def main():
    root = Path(sys.argv[1]).resolve()
    dead = list(dead_in_markdown(root))
    if len(sys.argv) > 2:
        dead += dead_in_site(Path(sys.argv[2]).resolve())
    for line in dead:
        print(f"FAILED: {line}")
    print(f"{len(dead)} dead links")
    sys.exit(1 if dead else 0)


main()
