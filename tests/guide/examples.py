#!/usr/bin/python3
"""Makes one source file of the C++ examples in a Markdown page, for the tests to run.

    tests/guide/examples.py PAGE.md OUTPUT.cpp

Each block that begins with ```cpp becomes a function in the namespace velora which is given `log`, a logger with a
console destination; one that has a `main` of its own is taken as the whole program. A plain block that follows is what
it prints. What only the tests need stands in HTML comments, which no viewer shows:

    <!-- page           declarations for all examples of the page, at the beginning
    <!-- before         code before the next example
    <!-- after          code after the last one, such as expect(readFile("app.log") == "…");
    <!-- as file hello.cpp -->               what the last example takes for its file's name; else app.cpp
    <!-- shows lines that contain "x" -->    the output of the last example has only these lines
    <!-- runs in /var/log/app/ /x/ -->  what the page's examples call the folder that the tests run them in

Lines of an example count from its first one, as the reader counts them.
"""

import pathlib
import re
import sys


class Example:
    def __init__(self, line, code, before):
        self.line, self.code, self.before = line, code, before
        self.file, self.shown, self.after, self.output = "app.cpp", "", None, None


def in_own_folder(code, folders):
    """The code with paths below the folders that it runs in. No other path of the machine may be written to."""
    for folder in folders:
        code = code.replace(f'"{folder}', '"')
    if path := re.search(r'"/(?:etc|home|opt|run|srv|tmp|usr|var)/[^"]*"', code):
        sys.exit(f"an example would write to {path[0]}: say that it runs there, or use a name without a folder")
    return code


def parse(text):
    """The page's declarations, each as its line and code, and its examples."""
    declarations, examples, before, folders = [], [], None, []
    token = re.compile(r"^```(?P<language>[^\n]*)\n(?P<code>.*?)^```$|<!-- (?P<comment>.*?)-->", re.S | re.M)
    for match in token.finditer(text):
        line = text.count("\n", 0, match.start()) + 2
        if match["language"] == "cpp":
            examples.append(Example(line, match["code"], before))
            before = None
        elif match["language"] == "":
            if not examples or examples[-1].output is not None:
                sys.exit(f"line {line}: an output without an example before it")
            examples[-1].output = match["code"]
        elif match["language"] is None:
            word, _, rest = match["comment"].partition("\n")
            if before:
                sys.exit(f"line {line}: an example was to come after the comment at line {before[0]}")
            if word == "page":
                declarations.append((line, rest))
            elif word == "before":
                before = (line, rest)
            elif word == "after":
                if examples[-1].after:
                    sys.exit(f"line {line}: a second comment of what comes after")
                examples[-1].after = (line, rest)
            elif name := re.fullmatch(r"as file (\S+) ", word):
                examples[-1].file = name[1]
            elif named := re.fullmatch(r"runs in ((?:/\S+/ )+)", word):
                folders.extend(named[1].split())
            elif shown := re.fullmatch(r'shows lines that contain "(.*)" ', word):
                examples[-1].shown = shown[1]
            else:
                sys.exit(f"line {line}: a comment that is none of this script's: {word}")
    for example in examples:
        example.code = in_own_folder(example.code, folders)
    return declarations, examples


def without_includes(code, includes):
    """The code without its includes, which are added to the list. Its lines keep their numbers."""
    lines = code.split("\n")
    includes.update(line for line in lines if line.startswith("#include"))
    return "\n".join("" if line.startswith("#include") else line for line in lines)


def program(page, example, hidden, code):
    """A whole program, in a namespace of its own; anywhere but at the top, main would need a return."""
    name = f"example_{example.line}"
    code = code.replace("int main() {", "void main() {")
    body = f"{hidden(example.before)}\n::{name}::main();\n{hidden(example.after)}"
    return f"namespace {name} {{\n{code}\n}}\n" + function(page, example, "run", body)


def function(page, example, name, body):
    output = "std::nullopt" if example.output is None else f'R"~({example.output})~"'
    return f"""namespace velora {{
namespace {{
namespace example_{example.line} {{
void {name}([[maybe_unused]] const std::shared_ptr<XCGLogger>& log) {{
{{
{body}
}}
}}
const test::Example announced("{page}", {example.line}, "{example.file}", {output}, R"~({example.shown})~", {name});
}}
}}
}}
"""


def source(page, text):
    declarations, examples = parse(text)
    if not examples:
        sys.exit("there is no example in it")
    includes = {"#include <guide/Example.h>"}

    def hidden(part):
        return f'#line {part[0]} "{page}"\n{without_includes(part[1], includes)}' if part else ""

    body = ["namespace velora {\nnamespace {\n"] + [hidden(part) for part in declarations] + ["}\n}\n"]
    for example in examples:
        code = f'#line 1 "{example.file}"\n{without_includes(example.code, includes)}'
        if "int main() {" in code:
            body.append(program(page, example, hidden, code))
        else:
            body.append(function(page, example, "main",
                                 f"{hidden(example.before)}\n{code}\n{hidden(example.after)}"))
    return "\n".join(sorted(includes)) + "\n" + "".join(body)


def main():
    page, output = pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2])
    try:
        output.write_text(source(page.name, page.read_text()))
    except SystemExit as problem:
        sys.exit(f"{page}: {problem}")


if __name__ == "__main__":
    main()
