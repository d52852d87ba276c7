"""Writes libmix(3) and a page for each public header: make_library_pages.py HEADERS TEMPLATE VERSION OUT

The headers' comments are the manual: a page says what its header says, so the two can't drift. A comment right
above declarations is their entry, one that stands alone is a paragraph, "--- title ---" is a heading.
"""
import pathlib
import re
import sys
import textwrap
from dataclasses import dataclass, field

ITEM = re.compile(r"""
      (?P<comment>/\*.*?\*/)
    | (?P<directive>\#(?:[^\n]*\\\n)*[^\n]*)
    | (?P<blank>\n[ \t]*(?=\n))
    | (?P<space>\s+)
    | (?P<declaration>[A-Za-z_](?:[^;{"]|\{.*?\n\})*;)
    """, re.S | re.X)


@dataclass
class Entry:
    """Declarations and what is said of them; heading or prose when there are none."""
    text: list[str] = field(default_factory=list)
    declarations: list[str] = field(default_factory=list)
    heading: str = ""


def comment_lines(comment):
    """The comment's lines without its stars; what is indented deeper stays so."""
    first, *rest = comment[2:-2].strip("\n ").removeprefix("* ").split("\n")
    return [first, *(re.sub(r"^ \* ?", "", line).rstrip() for line in rest)]


def strip_guard(text):
    """What stands between the declarations' begin and end, with the defines before it."""
    text = re.sub(r"#if.*?#endif\n", "", text[text.index("#include"):], flags=re.S)
    return text.replace("MIX_BEGIN_DECLS", "", 1).split("MIX_END_DECLS")[0]


def shown(declaration):
    """A declaration as a reader writes it: without the attributes, a prototype broken at the page's width."""
    text = re.sub(r"\bMIX_API |\s+MIX_NOEXCEPT\b| ISSU_FORMAT\([^)]*\)", "", declaration).strip()
    if "{" in text or text.startswith("#"):
        return text
    # Arguments stay whole: their blanks are hidden from the wrapping.
    whole = re.sub(r"(?<!,) ", "\0", " ".join(text.split()))
    return textwrap.fill(whole, 72, subsequent_indent=" " * 8, break_on_hyphens=False).replace("\0", " ")


def entries_of(text):
    """The header's entries, in order."""
    found, current, at = [], None, 0
    while at < len(text):
        item = ITEM.match(text, at)
        if not item:
            raise SystemExit(f"not understood: {text[at:at + 80]!r}")
        at, what, piece = item.end(), item.lastgroup, item[0]
        same_line = text[:item.start()].rpartition("\n")[2].strip() != ""
        if what == "blank":
            current = None
        elif what == "comment" and same_line and current and current.declarations:
            current.declarations[-1] += "  " + piece
        elif what == "comment":
            lines = comment_lines(piece)
            heading = re.fullmatch(r"--- (.*?) ?-*", " ".join(lines).strip())
            current = Entry(heading=heading[1].rstrip("- ")) if heading else Entry(text=lines)
            found.append(current)
            if heading:
                current = None
        elif what in ("declaration", "directive") and not piece.startswith("#include"):
            if current is None:
                current = Entry()
                found.append(current)
            current.declarations.append(shown(piece))
    return found


def arguments_of(declarations):
    """Names that a paragraph may begin with to say what they are."""
    return set(re.findall(r"(\w+)(?:\[[^]]*\])?\s*[,);]", " ".join(declarations)))


def escaped(line):
    line = line.replace("\\", "\\e").replace("-", "\\-").replace("'", "\\(aq")
    line = line.replace("^", "\\(ha").replace("~", "\\(ti").replace("`", "\\(ga")
    return "\\&" + line if line.startswith(".") else line


def paragraphs(lines, names=frozenset()):
    """Prose as roff: blank lines part paragraphs, " - " begins an item, deep lines stay lines."""
    out, fresh, listing, verbatim = [], True, False, False
    for line in lines:
        deep = re.match(r"  +\"", line) and re.search(r"\"  +\S", line)
        if bool(deep) != verbatim:
            verbatim = bool(deep)
            out.append(".nf" if verbatim else ".fi")
        if deep:
            out.append(escaped(line))
            continue
        text = line.strip()
        if not text:
            fresh, listing = True, False
            continue
        if text.startswith("- "):
            out.append(".IP \\(bu 2")
            text, listing = text[2:], True
        elif fresh and out:
            out.append(".PP")
        elif not listing and text.startswith("Returns "):
            out.append(".br")
        elif not listing and (named := re.match(r"([\w, ]+?)(?: \([^)]*\))?: ", text)):
            if not fresh and all(name.strip() in names for name in named[1].split(",")):
                out.append(".br")
        out.append(escaped(text))
        fresh = False
    return out + ([".fi"] if verbatim else [])


def entry_page(entry):
    if entry.heading:
        return [f".SS {escaped(entry.heading[0].upper() + entry.heading[1:])}"]
    if not entry.declarations:
        return [".PP", *paragraphs(entry.text)]
    out = [".PP", ".nf", ".ft B"]
    for declaration in entry.declarations:
        out += [escaped(line) for line in declaration.split("\n")]
    out += [".ft R", ".fi"]
    if entry.text:
        out += [".RS 4", *paragraphs(entry.text, arguments_of(entry.declarations)), ".RE"]
    return out


def exported(entries):
    """Names of the functions and objects that a page is found by."""
    names = []
    for entry in entries:
        for declaration in entry.declarations:
            declaration = re.sub(r"/\*.*?\*/", "", declaration, flags=re.S)
            if not re.match(r"#|typedef\b|struct \w+ \{|enum\b", declaration):
                name = re.match(r"[^(]*?(\w+)\s*\(", declaration) or re.search(r"(\w+)(?:\[[^]]*\])*;", declaration)
                names.append(name[1])
    return names


class Header:
    def __init__(self, path):
        text = path.read_text(encoding="utf-8")
        lead = comment_lines(re.match(r"/\*.*?\*/", text, re.S)[0])
        whole = "\n".join(lead).strip()
        opening = re.match(r"libmix: (.*?)([.?:])(?:\s|$)", whole, re.S)
        self.name = path.stem
        self.title = " ".join(opening[1].split()) + ("?" if opening[2] == "?" else "")
        self.about = whole[opening.end():].split("\n")
        self.entries = entries_of(strip_guard(text))

    @property
    def page(self):
        return f"libmix-{self.name}"

    def roff(self, version):
        names = ", ".join([self.page, *exported(self.entries)])
        out = [f'.TH {self.page.upper()} 3 "" "libmix {version}" "Library Functions Manual"',
               ".nh", ".ad l", ".SH NAME", f"{escaped(names)} \\- {escaped(self.title)}",
               ".SH SYNOPSIS", ".nf", f".B #include <libmix/{self.name}.h>", ".fi"]
        out += [".SH DESCRIPTION", *paragraphs(self.about)] if "".join(self.about).strip() else []
        out += [".SH FUNCTIONS"]
        for entry in self.entries:
            out += entry_page(entry)
        return "\n".join([*out, ".SH SEE ALSO", ".BR libmix (3)", ""])


def main(headers, template, version, out):
    out = pathlib.Path(out)
    out.mkdir(parents=True, exist_ok=True)
    for old in out.glob("*.3"):
        old.unlink()
    families, base = [], None
    for path in sorted(pathlib.Path(headers).glob("*.h")):
        header = Header(path)
        if header.name == "mix_base":
            base = header
            continue
        families.append(header)
        (out / f"{header.page}.3").write_text(header.roff(version), encoding="utf-8")
    pages = []
    for family in families:
        pages += [".TP", f".BR {escaped(family.page)} (3)", escaped(family.title)]
    types = [line for entry in base.entries if entry.declarations and entry.declarations[0].startswith("typedef")
             for line in entry_page(entry)]
    text = pathlib.Path(template).read_text(encoding="utf-8")
    for mark, lines in (("@VERSION@", [version]), ("@PAGES@", pages), ("@CONVENTIONS@", paragraphs(base.about)),
                        ("@TYPES@", types)):
        text = text.replace(mark, "\n".join(lines))
    (out / "libmix.3").write_text(text, encoding="utf-8")


if __name__ == "__main__":
    main(*sys.argv[1:])
