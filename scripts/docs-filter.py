#!/usr/bin/python3
"""What Doxygen reads of a Markdown page or a header, on standard output.

    scripts/docs-filter.py FILE

Doxygen runs it for each input (FILTER_PATTERNS in docs/Doxyfile.in). So the pages stay plain Markdown that any
viewer shows, and the headers say once what holds for several declarations.

In a page
 - the title and the headings get names, so that `[text](rotation.md#archives)` is a link in the site, too, and a link
   that leads nowhere is an error;
 - a link to a header becomes one to its page, a link to another file of the project becomes its text;
 - a link to a `.dot` file becomes the picture that Graphviz makes of it;
 - a link at the beginning of an item of docs/README.md makes the page a part of the site's navigation, and a page in
   docs/ that has none there gets an item at the end;
 - a page of the guide ends with a link to the next one;
 - HTML comments go: they hold what the examples need to be run, see tests/guide.

In a header a `///` comment speaks for every declaration below it, up to an empty line or the next comment.
"""

import html
import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
DOCS = ROOT / "docs"
INDEX = DOCS / "README.md"


def page_name(path):
    """The name of a page's file in the site."""
    return "index" if path == INDEX else path.stem.lower()


def slug(heading):
    """The anchor of a heading, as GitHub makes it."""
    return re.sub(r"[^\w\- ]", "", heading.strip().lower()).replace(" ", "-")


def picture(source, text):
    """The SVG of a Graphviz file, to stand in the page itself: so it follows the page's colours."""
    svg = subprocess.run(["dot", "-Tsvg", str(source)], capture_output=True, text=True, check=True).stdout
    svg = re.sub(r"<title>.*?</title>\s*", "", svg[svg.index("<svg"):], flags=re.S)
    svg = re.sub(r"<!--.*?-->\s*", "", svg, flags=re.S)
    width = re.search(r'width="(\d+)pt"', svg).group(1)
    svg = re.sub(r'<svg width="\d+pt" height="\d+pt"',
                 f'<svg role="img" aria-label="{html.escape(text)}" style="width:{width}pt"', svg, count=1)
    return "\n\\htmlonly\n<div class=\"picture\">" + svg.replace("\n", " ") + "</div>\n\\endhtmlonly\n"


def link(page, match):
    """What becomes of one Markdown link."""
    is_image, text, target = match.group(1), match.group(2), match.group(3)
    if re.match(r"[a-z]+:", target) or is_image:
        return match.group(0)
    file, _, anchor = target.partition("#")
    path = (page.parent / file).resolve() if file else page
    if not path.exists():
        sys.exit(f"{page}: there is no {target}")
    label = text.replace("`", "").replace('"', "'")
    if path.suffix == ".dot":
        return picture(path, label)
    if path.suffix == ".md" and (path.is_relative_to(DOCS) or path.parent == ROOT and path.name != "README.md"):
        name = page_name(path)
        return f'\\ref {name + "-" + anchor if anchor else name} "{label}"'
    if path.suffix == ".h" and path.is_relative_to(ROOT / "Velora_UserDefaults"):
        # A header that is not installed has no page.
        return f'\\ref {path.name} "{label}"' if is_public(path) else f"`{label}`"
    return text if text.startswith("`") else f"`{label}`"


def code_span(match):
    """Code in a line. Doxygen fails at a space beside its mark and at backslashes, and in a table shows that of `\\|`."""
    text = match.group(1)
    if text == text.strip() and "\\" not in text:
        return match.group(0)
    text = re.sub(r"\\(?!\|)", r"\\\\", html.escape(text))
    return f"<code>{text.replace(' ', '&nbsp;').replace('--', chr(92) + '--')}</code>"


def is_public(header):
    install = (ROOT / "cmake" / "VeloraInstall.cmake").read_text()
    patterns = re.search(r"set\(VELORA_INTERNAL_HEADERS(.*?)\)", install, re.S).group(1).replace('"', "").split()
    name = str(header.relative_to(ROOT / "Velora_UserDefaults"))[:-2]
    return not any(re.fullmatch(pattern, name) for pattern in patterns)


def filtered_page(page):
    name = page_name(page)
    text = re.sub(r"<!--.*?-->\n?", lambda comment: "\n" * comment.group(0).count("\n"), page.read_text(), flags=re.S)
    is_title, is_code, anchors, lines = True, False, [], []
    for line in text.split("\n"):
        if line.startswith("```"):
            is_code = not is_code
            # What Doxygen does not know it would colour as C++.
            line = line if line in ("```", "```cpp") else "```{.unparsed}"
            line = "```{.unparsed}" if is_code and line == "```" else line
        elif not is_code:
            heading = re.match(r"(#+) (.*)", line)
            if heading and is_title:
                line, is_title = line if page == INDEX else f"# {heading.group(2)} {{#{name}}}", False
            elif heading and page != INDEX:
                anchor = f"{name}-{slug(heading.group(2))}"
                anchors.append(anchor)
                count = anchors.count(anchor)
                line = f"{line} {{#{anchor}{'-' + str(count - 1) if count > 1 else ''}}}"
            line = re.sub(r"(!?)\[([^]]*)\]\(([^)\s]+)\)", lambda match: link(page, match), line)
            line = re.sub(r"`([^`]+)`", code_span, line)
            if page == INDEX:
                line = re.sub(r"^([*\d]+\.?) \\ref ", r"\1 \\subpage ", line)
        lines.append(line)
    return "\n".join(lines) + (further_pages(text) if page == INDEX else next_page(page))


def further_pages(index):
    """Items for the pages in docs/ that the index does not name, so that each can be reached."""
    missing = [page for page in sorted(DOCS.glob("*.md")) if page != INDEX and f"({page.name})" not in index]
    return "\n" + "".join(f'* \\subpage {page_name(page)} "{page.read_text().splitlines()[0].lstrip("# ")}"\n'
                          for page in missing)


def next_page(page):
    """A link to the page that follows in the guide."""
    links = re.findall(r"^\d+\. \[(.*)\]\((.*)\)", INDEX.read_text(), re.M)
    order = [(DOCS / target).resolve() for _, target in links]
    following = order.index(page) + 1 if page in order else len(order)
    return f'\n\nNext: \\ref {page_name(order[following])} "{links[following][0]}"\n' if following < len(order) else "\n"


def filtered_header(header):
    """Repeats comments for the declarations that they speak for. Every line keeps its number."""
    comment, lines, depth, is_complete = [], [], 0, True
    # Doxygen does not find the scope of a specialisation in a foreign namespace.
    # It lists a friend that is a template as a member without a page.
    text = re.sub(r"template <>\nstruct fmt::formatter<.*?\n};\n|(?<=\n)    template <[^{};]*?\n    friend [^{};]*;\n",
                  lambda match: "\n" * match.group(0).count("\n"), header.read_text(), flags=re.S)
    for line in text.split("\n"):
        code = line.strip()
        if code.startswith("///"):
            comment = comment if lines and lines[-1].strip().startswith("///") else []
            comment.append(code[3:].strip())
            is_complete, depth, is_first = True, 0, True
        elif not code or code.startswith(("//", "#", "}")) or re.match(r"(public|protected|private):", code):
            if is_complete or not code:
                comment = []
        elif comment:
            if is_complete and not is_first and not re.search(r"~|= delete;|= default;", code):
                text = " ".join(comment[:comment.index("")] if "" in comment else comment)
                line = line[:len(line) - len(line.lstrip())] + f"/** {text} */ {code}"
            is_first = False
        code = re.sub(r'"(\\.|[^"\\])*"|//.*', "", code).rstrip()
        depth += len(re.findall(r"[({]", code)) - len(re.findall(r"[)}]", code))
        is_complete = depth <= 0 and code.endswith((";", "}"))
        if depth > 0 and re.match(r".*\b(class|struct|enum|namespace|concept)\b.*\{$", code):
            comment = []
        lines.append(line)
    # A file that has a comment of its own has a page of its own.
    return "\n".join(lines) + "/** \\file */\n"


def main():
    path = pathlib.Path(sys.argv[1]).resolve()
    print(filtered_page(path) if path.suffix == ".md" else filtered_header(path), end="")


if __name__ == "__main__":
    main()
