#!/usr/bin/env python3
"""What Doxygen reads in place of a file: doxygen_filter.py FILE

Headers: a comment between two rules begins a group of what follows it; the comment on top is of the
file. Markdown: what a link leads to outside of the site is named and not linked.
"""

import re
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parents[1]
SECTION = re.compile(r"/\* -{20,}\n \* ([^\n]*)\n(.*?) \* -{20,} \*/\n", re.DOTALL)
PAGES = {
    ROOT / "README.md", *(ROOT / "docs").glob("*.md"), ROOT / "python" / "README.md",
    ROOT / "samples" / "README.md", ROOT / "fuzz" / "README.md", ROOT / "NEWS.md",
    ROOT / "CONTRIBUTING.md", *(ROOT / "src").glob("*.h*"),
}
PICTURES = {*(ROOT / "docs").glob("*.svg"), *(ROOT / "docs" / "figures").glob("*.svg")}


def header(file, text):
    text = text.replace("/*\n", "/** @file\n", 1)
    # What only the compiler has to see.
    text = re.sub(r"^#define LIBIV_(API|ERRORS|NODISCARD)\b.*$", "", text, flags=re.MULTILINE)
    text = re.sub(r"^(inline namespace LIBIV_ERRORS \{|\} // namespace LIBIV_ERRORS)$", "", text,
                  flags=re.MULTILINE)
    text = re.sub(r"^(Result<.*> Matrix<.*>::clone\(\) const) \{\n.*?^\}$", "", text,
                  flags=re.MULTILINE | re.DOTALL)
    text = text.replace("  protected:", "  private:")
    text = re.sub(r"(  private:\n)( +///.*\n)*    struct .*?^    \};\n", r"\1", text,
                  flags=re.MULTILINE | re.DOTALL)
    # Doxygen takes a base that is a specialization of the same template for the class itself.
    text = text.replace(" : public Matrix<const T, CHANNELS> {", " {")
    text = paragraphs(text)
    return sections(file, text)


def paragraphs(text):
    """A comment is for all that follows it up to an empty line: that becomes a group of members."""
    blocks = re.split(r"\n\n", text)
    for n in range(1, len(blocks)):
        starts = re.match(r" */(//|\*\*)[ \n](?! \* @|@)", blocks[n])
        is_class = re.search(
            r"^ *(class|struct|namespace|enum|private:|extern|#if|#endif)|^\};", blocks[n],
            re.MULTILINE)
        if starts and not is_class:
            blocks[n - 1] += "\x01"  # on the empty line in front, so that lines keep their numbers
            blocks[n] += "\x02"
        elif re.search(r"^  public:\n +///", blocks[n], re.MULTILINE) and "\n};" not in blocks[n]:
            blocks[n] = blocks[n].replace("  public:\n", "  public: /** @{ */\n") + "\x02"
    text = "\n\n".join(blocks)
    text = text.replace("\x02\x01\n\n", "\n/** @} *//** @{ */\n").replace("\x01\n\n", "\n/** @{ */\n")
    return text.replace("\x02\n\n", "\n/** @} */\n").replace("\x02", "/** @} */")


def sections(file, text):
    stem = re.sub(r"\W", "_", file.name)
    groups = 0

    def begin(found):
        nonlocal groups
        groups += 1
        end = "/** @} */" if groups > 1 else ""
        title, said = re.fullmatch(r"([^.:]*)[.:]? ?(.*)", found[1]).groups()
        said = f" * {said[0].upper()}{said[1:]}\n" if said else ""
        name = f"{stem}_{groups}"
        return f"{end}/** @defgroup {name} {title} ({file.name})\n *\n{said}{found[2]} * @{{ */\n"

    text = SECTION.sub(begin, text)
    if groups:
        last = text.rindex("#ifdef __cplusplus" if file.suffix == ".h" else "} // namespace iv")
        text = text[:last] + "/** @} */" + text[last:]
    return text


def label(file, headline=""):
    """Doxygen's name of a page or of a place in it."""
    if file.suffix != ".md":
        return file.name
    if file == ROOT / "README.md" and not headline:
        return "index"
    page = re.sub(r"\W", "_", str(file.relative_to(ROOT).with_suffix("")).lower())
    place = re.sub(r"[^\w\- ]", "", headline.strip().lower()).replace(" ", "_").replace("-", "_")
    return f"{page}_{place}" if place else page


def markdown(file, text):
    headlines = 0

    def headline(found):
        nonlocal headlines
        headlines += 1
        name = label(file, "" if headlines == 1 else found[2])
        return f"{found[1]} {found[2]} {{#{'mainpage' if name == 'index' else name}}}"

    def link(found):
        picture, words, target = found.groups()
        if re.match(r"\w+:", target):
            return found[0]
        path, _, fragment = target.partition("#")
        leads_to = (file.parent / path).resolve() if path else file
        if picture:
            return f"![{words}]({leads_to.name})" if leads_to in PICTURES else words
        return f"[{words}](@ref {label(leads_to, fragment)})" if leads_to in PAGES else words

    parts = re.split(r"(^```.*?^```$)", text, flags=re.DOTALL | re.MULTILINE)
    for n in range(0, len(parts), 2):  # what is not code
        parts[n] = re.sub(r"^(#+) +(.*)$", headline, parts[n], flags=re.MULTILINE)
        parts[n] = re.sub(r"(!?)\[([^\]]*)\]\(([^)\s]+)\)", link, parts[n])
    return "".join(parts)


def main():
    file = Path(sys.argv[1]).resolve()
    text = file.read_text()
    sys.stdout.write((markdown if file.suffix == ".md" else header)(file, text))


main()
