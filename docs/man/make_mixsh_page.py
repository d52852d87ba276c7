"""Writes mixsh(1) from the shell's own table: make_mixsh_page.py MIXSH TEMPLATE VERSION OUT"""
import pathlib
import subprocess
import sys

from make_library_pages import escaped


def commands_of(mixsh):
    """The table as roff: a heading for each family, an entry for each command."""
    listed = subprocess.run([mixsh, "--list-commands"], check=True, capture_output=True, encoding="utf-8").stdout
    out = []
    for line in listed.splitlines():
        what, written, meaning = (escaped(field) for field in line.split("\t"))
        meaning = meaning[0].upper() + meaning[1:]
        if what == "family":
            out.append(f".SS {meaning}")
        elif what == "command":
            out += [".TP", f"\\fB{written}\\fR", f"{meaning}."]
        else:
            out += [".RS", ".TP", f"\\fI{written}\\fR", f"{meaning}.", ".RE"]
    return "\n".join(out)


def main(mixsh, template, version, out):
    text = pathlib.Path(template).read_text(encoding="utf-8")
    text = text.replace("@VERSION@", version).replace("@COMMANDS@", commands_of(mixsh))
    pathlib.Path(out).write_text(text, encoding="utf-8")


if __name__ == "__main__":
    main(*sys.argv[1:])
