#!/usr/bin/env python3
"""Prepares headers and documents for doxygen, so that they need no commands of doxygen themselves.

    reference.py write DIR         writes what doxygen reads into DIR, with a page for each audience and each example, and
                                   with the menu
    reference.py check LOG DIR     prints the warnings in LOG that count, and fails if there is one

A header's folder says which package it belongs to, and so which group. Its first line has its purpose and its audience.
A package's purpose is the first line of its umbrella header. All lines keep their numbers.
"""

import glob
import html
import os
import re
import sys

ROOT = os.path.realpath(os.path.join(os.path.dirname(__file__), ".."))

AUDIENCES = {
    "applications": "What programs use that run devices, threads, buffers and clocks.",
    "device writers": "What devices implement, and the classes that they derive from.",
    "extenders": "What is used to add to the library itself.",
}

# The umbrella headers of the packages, in the order of the packages.
UMBRELLAS = {"zvbase": "src/zvbase/zvbase.h"}
for package in ("locks", "smartPtrs", "literals", "containers", "dynamicAllocation", "threads", "threadExtensions",
                "memoryBuffers", "syncEngine", "xml", "deviceProtocol", "deviceManager", "resmgt"):
    UMBRELLAS[package] = f"src/resmgt/{package}.h"
# A package of one header, which is its own umbrella.
SINGLE = "src/explore/explore.h"
UMBRELLAS["explore"] = SINGLE

DOCUMENTS = sorted(glob.glob("*.md", root_dir=ROOT)) + sorted(glob.glob("docs/*.md", root_dir=ROOT))
# The sources that have a page.
EXAMPLES = sorted(name for pattern in ("*.cpp", "counter/*.[hc]*", "explored/*.cpp")
                  for name in glob.glob(f"examples/{pattern}", root_dir=ROOT))

# The line break of one line for doxygen, so that a header keeps its line numbers.
BREAK = r" \ilinebr "


def readLines(name):
    with open(os.path.join(ROOT, name), encoding="utf-8") as file:
        return file.read().splitlines()


def packageOf(name):
    """Returns the package of a header, which its folder decides. An umbrella header is beside the folder."""
    for package, umbrella in UMBRELLAS.items():
        if name == umbrella:
            return package
    folders = name.split("/")[1:-1]
    return folders[1] if len(folders) > 1 and folders[0] == "resmgt" else folders[0]


def readPurpose(lines):
    """Returns the first sentence of a header, its audiences, and the number of its comment's lines and of its own."""
    size = next(i for i, line in enumerate(lines) if not line.startswith("//"))
    text, own = "", 0
    for line in lines[:size]:
        text = f"{text} {line[2:].strip()}".strip()
        own += 1
        if found := re.fullmatch(r"(.*) \(([a-z, ]+)\)\.", text):
            return found[1] + ".", re.split(r", | and ", found[2]), size, own
    sys.exit(f"no audience in the first line: {lines[0]}")


def isCode(lines):
    return any(re.match(r"#include .*|.*[;{}]\s*(//.*)?$|.*\w(->|::)\w+\(", line) for line in lines)


def markExamples(lines):
    """Makes code blocks of the examples, which are indented by four more blanks."""
    i = 0
    while i < len(lines):
        comment = re.match(r"\s*///", lines[i])
        start = comment and re.fullmatch(r"\s*///", lines[i]) and i + 1 < len(lines) and \
            re.match(r"\s*///     \S", lines[i + 1])
        if not start:
            i += 1
            continue
        mark = comment[0]
        end = i + 1
        while end < len(lines) and re.match(re.escape(mark) + r"(     |$)", lines[end]):
            end += 1
        while lines[end - 1] == mark:
            end -= 1
        if isCode(lines[i + 1:end]):
            lines[i] += " @code{.cpp}"
            for line in range(i + 1, end):
                lines[line] = (mark + " " + lines[line][len(mark) + 5:]).rstrip()
            if end < len(lines) and lines[end] == mark:
                lines[end] += " @endcode"
            else:
                lines[end - 1] += " @endcode"
        i = end


def shareComments(lines):
    """Gives declarations the comment that they share with one above them. A comment that begins with a verb in the
    singular ("Returns …") is for one declaration and for the overloads right below it. Any other ("Return …", "The
    steps …") is for all declarations down to the next comment, plain getter or blank line. The overloads for
    std::chrono::duration share the comment of those for seconds."""
    comment, name, known, i = [], None, set(), 0
    while i < len(lines):
        start = i
        while i < len(lines) and re.match(r"\s*///", lines[i]):
            i += 1
        isDocumented = i > start
        if isDocumented:
            comment = [re.sub(r"\s*/// ?", "", line) or BREAK * 2 for line in lines[start:i]]
        if i == len(lines) or re.match(r"\s*($|/|#|\}|\w+:$)", lines[i]):
            comment = []
            i += 1
            continue
        start = i
        indent = re.match(r"\s*", lines[start])[0]
        while re.match(r"\s*template <.*>$", lines[i]):
            i += 1
        isScope = re.match(r"\s*(class|struct|enum|namespace)\b", lines[i])
        if isScope:
            known = set()
        hasBody = False
        while i < len(lines) and lines[i].startswith(indent):
            ends = r".*[;{]( //.*)?$" if isScope else indent + r"\}" if hasBody else r".*[;}]( //.*)?$"
            if re.match(ends, lines[i]):
                break
            hasBody = hasBody or lines[i].endswith("{")
            i += 1
        i += 1
        text = re.sub(r"\[\[.*?\]\]|\b(requires|noexcept|explicit)\(", "", " ".join(lines[start:i]).split(" {")[0])
        function = re.search(r"\b([a-z]\w*)\((?!\*)", text) or \
            re.match(r"\s*(?:explicit |constexpr )*([A-Z]\w*)\((?!\1)", text) # a constructor, not of a copy
        if isDocumented:
            name = function and function[1]
            known.add(name)
            if isScope:
                comment = []
        elif function and (function[1] == name and comment or
                           function[1] in known and "std::chrono::duration<" in text):
            lines[start] = f"{indent}/** @overload */ {lines[start].lstrip()}"
        elif not comment or isScope or not (function or "->" in text) or \
                re.search(r"\b(get|is|has)[A-Z]\w*\(\)", text) or \
                re.match(r"(?!The )\**[A-Z]\w*s\b|`", comment[0]) or "@code" in " ".join(comment):
            comment = []
        else:
            lines[start] = f"{indent}/** {' '.join(comment)} */ {lines[start].lstrip()}"


def dropHelperMacros(lines):
    """Drops the macros that are undefined again."""
    for name in re.findall(r"^#undef (\w+)", "\n".join(lines), re.MULTILINE):
        i = next(i for i, line in enumerate(lines) if re.match(rf"#define {name}\b", line))
        while lines[i].endswith("\\"):
            lines[i] = ""
            i += 1
        lines[i] = ""


def addToGroup(lines, package, begin):
    """Adds what follows the line `begin` to the package's group. A namespace begins outside of the group. Forward
    declarations are dropped, because they may be those of another package."""
    lines[begin] = f"/** @addtogroup {package}{BREAK}@{{ */"
    namespace = None
    for i, line in enumerate(lines):
        if re.match(r"(class|struct) \w+;$", line) and not lines[i - 1].startswith("///"):
            lines[i] = ""
            if lines[i - 1].startswith("template <"):
                lines[i - 1] = ""
        elif not namespace and (found := re.match(r"namespace ([\w:]+) \{$", line)):
            namespace = found[1]
            lines[i] += f" /** @addtogroup {package}{BREAK}@{{ */"
        elif line == f"}} // namespace {namespace}":
            namespace = None
            lines[i] = "/** @} */ " + line
    lines.append("/** @} */")


def filterHeader(name, lines):
    package = packageOf(name)
    purpose, audiences, size, own = readPurpose(lines)
    rest = " ".join(line[2:].strip() or BREAK for line in lines[own:size])
    lines[0] = f"/** @file{BREAK}@brief {purpose}{BREAK}{BREAK}{rest} */"
    for i in range(1, size):
        lines[i] = ""
    pragma = lines.index("#pragma once")
    define = f"/** @defgroup {package} {package}{BREAK}@brief {purpose} */"
    if name == UMBRELLAS.get(package) and name != SINGLE:
        lines[pragma] = define
    else:
        addToGroup(lines, package, pragma)
        if name == SINGLE:
            lines[pragma] = f"{define} {lines[pragma]}"
    dropHelperMacros(lines)
    markExamples(lines)
    shareComments(lines)


def label(document, heading=None):
    """Returns the label of a document or of a heading. The second part is what code hosts use."""
    name = os.path.splitext(os.path.basename(document))[0].lower()
    if document in EXAMPLES:
        return f"example-{name}"
    if not heading:
        return name
    slug = re.sub(r"[^\w -]", "", heading.lower()).replace(" ", "-")
    return f"{name}-{slug}"


def drawSequences(lines):
    """Makes message sequence charts of the sequence diagrams, which code hosts draw from another language."""
    begin = "```mermaid"
    while begin in lines:
        first = lines.index(begin)
        last = lines.index("```", first)
        names, messages = [], []
        for line in lines[first + 1:last]:
            line = line.strip().replace('"', r'\"')
            if found := re.fullmatch(r"participant (\w+) as (.*)", line):
                names.append(f'{found[1]} [label="{found[2]}"]')
            elif found := re.fullmatch(r"(\w+)(-->>|->>)(\w+): (.*)", line):
                arrow = "=>" if found[2] == "->>" else ">>"
                messages.append(f'{found[1]} {arrow} {found[3]} [label="{found[4]}"];')
            elif found := re.fullmatch(r"Note over (\w+): (.*)", line):
                messages.append(f'{found[1]} note {found[1]} [label="{found[2]}"];')
            elif line != "sequenceDiagram" and not re.fullmatch(r"(box|end)\b.*", line):
                sys.exit(f"a diagram has a line that is not known here: {line}")
        chart = ["@msc", f'hscale="{len(names) * 0.28:.2f}";', ", ".join(names) + ";", *messages, "@endmsc"]
        lines[first:last + 1] = chart


def filterDocument(name, lines):
    drawSequences(lines)
    isCode = False
    for i, line in enumerate(lines):
        if line.startswith("```"):
            lines[i] = line.split(" ")[0] # the source of a quote may follow
            isCode = not isCode
        if isCode:
            continue
        if heading := re.fullmatch(r"##+ (.*)", line):
            lines[i] += f" {{#{label(name, heading[1])}}}"
        elif line.startswith("# ") and name != "README.md":
            lines[i] += f" {{#{label(name)}}}"
        # Doxygen would take a quotation mark for the end of the code.
        lines[i] = re.sub(r"(?<!`)`([^`]*'[^`]*)`(?!`)", r"``\1``", lines[i])
        lines[i] = re.sub(r"\[((?:[^\[\]`]|`[^`]*`)+)\]\(([\w./-]+)(?:#([\w-]+))?\)",
                          lambda link: convertLink(os.path.dirname(name), *link.groups()), lines[i])


def convertLink(folder, text, target, heading):
    """Returns a link of a document for doxygen. What is not part of the site remains as text."""
    target = os.path.normpath(os.path.join(folder, target))
    if target.endswith((".svg", ".png")):
        return f"[{text}]({os.path.basename(target)})"
    if target.endswith(".h") and target.startswith("src/"):
        return f"[{text}](@ref {target[4:]})"
    if target.endswith(".md"):
        return f"[{text}](#{label(target, heading)})"
    if target in EXAMPLES:
        return f"[{text}](#{label(target)})"
    return text


def findHeaders():
    headers = []
    for folder, _, names in os.walk(os.path.join(ROOT, "src")):
        name = os.path.relpath(folder, ROOT)
        if not re.match(r"src/(zvbase|resmgt|explore)", name):
            continue
        headers += [f"{name}/{header}" for header in names if re.fullmatch(r"\w+\.h", header)]
    return sorted(headers)


def writeLines(name, lines):
    os.makedirs(os.path.dirname(name), exist_ok=True)
    with open(name, "w", encoding="utf-8") as file:
        file.write("\n".join(lines) + "\n")


def writeInput(folder):
    for name in findHeaders():
        lines = readLines(name)
        filterHeader(name, lines)
        writeLines(os.path.join(folder, name), lines)
    for document in DOCUMENTS:
        lines = readLines(document)
        filterDocument(document, lines)
        writeLines(os.path.join(folder, document), lines)
    writePages(folder)
    writeExamples(folder)
    writeMenu(folder)


def readLinks(document, heading):
    """Returns the first link of each row of the table under a heading, as text and target."""
    lines = readLines(document)
    begin = lines.index(f"## {heading}") + 1
    end = next((i for i in range(begin, len(lines)) if lines[i].startswith("## ")), len(lines))
    return [link.groups() for line in lines[begin:end] if (link := re.match(r"\| \[(.*?)\]\((.*?)\)", line))]


def writeMenu(folder):
    """Writes the menu of the site, which is also its tree: what the tables of the README list, and the reference."""
    guides = [(text, label(target)) for text, target in readLinks("README.md", "Guides")]
    ladder = [(text, label(target + ".cpp")) for text, target in
              ((text, os.path.splitext(target)[0]) for text, target in readLinks("README.md", "A ladder of examples"))]
    folders = [(os.path.relpath(name, "examples"), label(name)) for name in EXAMPLES if name.count("/") == 2]
    audiences = [(f"For {name}", f"for-{name.replace(' ', '-')}") for name in AUDIENCES]
    shown = {target for _, target in guides} | {"readme", "machines", "benchmarks"}
    others = [(readLines(name)[0][2:], label(name)) for name in DOCUMENTS if label(name) not in shown]

    def tabs(entries):
        return [f'<tab type="user" url="@ref {target}" title="{html.escape(text, quote=False)}"/>' for text, target in entries]

    def group(title, lines):
        return [f'<tab type="usergroup" title="{title}">', *lines, "</tab>"]

    writeLines(os.path.join(folder, "layout.xml"), [
        '<doxygenlayout version="1.0">', "<navindex>", '<tab type="mainpage" title="Overview"/>',
        *group("Guides", tabs(guides)),
        *group("Reference", [*tabs(audiences), '<tab type="modules" title="By package"/>',
                             '<tab type="classlist" title="Classes"/>', '<tab type="classindex" title="Index of classes"/>',
                             '<tab type="classmembers" title="Index of members"/>',
                             '<tab type="filelist" title="Headers"/>']),
        *group("Examples", tabs(ladder + folders)),
        *tabs([("Charts of the machines", "machines"), ("Benchmarks", "benchmarks")]),
        *group("Background", tabs(others)),
        '<tab type="pages" visible="no" title=""/>', "</navindex>", "</doxygenlayout>"])


def writeExamples(folder):
    """Writes a page for each example: the purpose from its first comment, and its code."""
    for example in EXAMPLES:
        lines = readLines(example)
        title = os.path.relpath(example, "examples")
        writeLines(os.path.join(folder, example + ".md"),
                   [f"# {title} {{#{label(example)}}}", "", "```cpp", *lines, "```"])


def writePages(folder):
    headers = {name: readPurpose(readLines(name))[:2] for name in findHeaders()}
    for audience, text in AUDIENCES.items():
        page = f"for-{audience.replace(' ', '-')}.md"
        lines = [f"# For {audience}", "", text]
        for package, umbrella in UMBRELLAS.items():
            own = [name for name in headers
                   if packageOf(name) == package and (name == SINGLE or name != umbrella) and audience in headers[name][1]]
            if not own:
                continue
            lines += ["", f"## {package}", "", headers[umbrella][0], "",
                      "| header | what it holds |", "|---|---|"]
            lines += [f"| @ref {name[4:]} | {headers[name][0]} |" for name in own]
        filterDocument(page, lines)
        writeLines(os.path.join(folder, page), lines)


# Members that need no sentence (docs/style.md): what doxygen calls them, with their class as {0}.
PLAIN = (
    r"(get|is|has)([A-Z]\w*)?\(\)",                                             # getters
    r".*= ?(default|delete)$",
    r"({0}|operator=)\({0}(<[^>]*>)? ?(const ?)?&&?\w*\)",                     # copies and moves
    r"operator(?!<<|>>| delete)",                                              # as for built-in types
    r"[A-Z]\w*\((std::nullptr_t|(\w+ (const ?[&*])?(name|description|value|file|line)(, )?)+)\)", # plain constructors
    r"(iterator_category|value_type|difference_type|pointer|reference|element_type|(const_)?iterator)$", # of the standard
)
# The platform form of a class has its operations.
PLATFORM_FORM = r"(Windows|WinNT)$"


def isPlain(warning):
    member = re.fullmatch(r".* warning: Member (.*) \((?:function|friend|typedef)\) of (?:class|struct) "
                          r"(?:[\w:]*::)?(\w+)(?:<.*>)? is not documented\.", warning)
    if not member:
        return False
    return re.search(PLATFORM_FORM, member[2]) or any(re.match(plain.format(member[2]), member[1]) for plain in PLAIN)


def check(log, folder):
    with open(log, encoding="utf-8") as file:
        text = file.read().replace(os.path.realpath(folder) + "/", "")
    counting = [line for line in dict.fromkeys(text.splitlines()) if line and not isPlain(line)]
    print("".join(f"{line}\n" for line in counting), end="")
    sys.exit(1 if counting else 0)


def main():
    if sys.argv[1:2] == ["write"] and len(sys.argv) == 3:
        writeInput(sys.argv[2])
    elif sys.argv[1:2] == ["check"] and len(sys.argv) == 4:
        check(sys.argv[2], sys.argv[3])
    else:
        sys.exit(__doc__)


main()
