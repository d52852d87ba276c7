"""The manual says what the programs and the library have: manual_test.py HEADERS MAP PAGES_OF_THE_BUILD CC"""

import functools
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

TREE = pathlib.Path(__file__).parents[2]
sys.path.insert(0, str(TREE / "tests/integration"))

from mixd import Mixd, mixsh, program  # noqa: E402  (needs the path above)

HEADERS, MAP, BUILT, COMPILER = sys.argv[1:5]
PAGES = {path.name: path for folder in (TREE / "docs/man", pathlib.Path(BUILT)) for path in folder.rglob("*.[1-8]")}


@functools.cache
def rendered(page, width=200):
    """The page as plain text; and what groff had to say about it."""
    done = subprocess.run(["man", "--warnings", "-E", "UTF-8", "-l", "-Tutf8", str(page)], capture_output=True,
                          encoding="utf-8", check=True,
                          env={**os.environ, "LC_ALL": "C.UTF-8", "MANWIDTH": str(width), "MANROFFOPT": "",
                               "MAN_KEEP_FORMATTING": "", "GROFF_NO_SGR": "1"})
    return re.sub(".\b", "", done.stdout), done.stderr


def dashed(page):
    """A page's source with its dashes as they are typed."""
    return PAGES[page].read_text(encoding="utf-8").replace("\\-", "-")


class Pages(unittest.TestCase):
    def test_all_are_there_and_render_without_a_warning(self):
        families = {f"libmix-{path.stem}.3" for path in pathlib.Path(HEADERS).glob("*.h")} - {"libmix-mix_base.3"}
        self.assertEqual(set(PAGES), families | {"libmix.3", "mixd.8", "mixsh.1", "mixscan.1", "mix-scenario.5",
                                                 "mix-board.5"})
        for name, path in PAGES.items():
            with self.subTest(page=name):
                text, complaints = rendered(path)
                self.assertEqual(complaints, "")
                self.assertIn("NAME", text)
                self.assertEqual(text.count("@"), dashed(name).count("@"))
                self.assertNotRegex(text, r"@[A-Z]+@", "a mark of the template is left")

    def test_a_page_refers_only_to_pages_that_there_are(self):
        for name in PAGES:
            for other, section in re.findall(r"^\.BR ((?:lib)?mix[\w-]*) \((\d)\)", dashed(name), re.M):
                self.assertIn(f"{other}.{section}", PAGES, name)


def declared_types():
    """name -> (header, result type, argument types) as the compiler reads the headers."""
    includes = "".join(f"#include <libmix/{path.name}>\n" for path in pathlib.Path(HEADERS).glob("*.h"))
    with tempfile.TemporaryDirectory() as folder:
        source, listing = os.path.join(folder, "all.c"), os.path.join(folder, "all.txt")
        pathlib.Path(source).write_text(includes, encoding="ascii")
        subprocess.run([COMPILER, "-I", str(pathlib.Path(HEADERS).parent), "-aux-info", listing, "-fsyntax-only", source],
                       check=True)
        text = pathlib.Path(listing).read_text(encoding="utf-8")
    found = {}
    for header, kind, name, arguments in re.findall(
            r"/\* \S*/libmix/(\w+)\.h:\d+:\w+ \*/ extern ([^(;]*?[ *])(\w+) \((.*)\);", text):
        found[name] = (header, "".join(kind.split()), [squeezed(each) for each in split_arguments(arguments)])
    return found


def split_arguments(text):
    return [] if text.strip() == "void" else [each.strip() for each in text.split(",")]


def squeezed(argument_type):
    return re.sub(r"\s+", " ", argument_type).replace(" *", "*").replace("* ", "*").strip()


def without_name(argument):
    """"const uint8_t *mac" -> ("const uint8_t*", "mac"); an array is the pointer that it is passed as."""
    if argument == "...":
        return "...", "..."
    kind, name, array = re.fullmatch(r"(.*?[ *])(\w+)(\[[^]]*\])?", argument).groups()
    return squeezed(kind + ("*" if array else "")), name


class LibraryPages(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.types = declared_types()
        cls.text = {name: rendered(path)[0] for name, path in PAGES.items() if name.endswith(".3")}

    def promised(self):
        listed = re.findall(r"^    (\w+);", pathlib.Path(MAP).read_text(encoding="utf-8"), re.M)
        self.assertGreater(len(listed), 300)
        return listed

    def test_every_exported_function_has_its_arguments_and_its_result(self):
        functions = [name for name in self.promised() if name in self.types]
        self.assertGreater(len(functions), 300)
        for name in functions:
            header, result, arguments = self.types[name]
            with self.subTest(function=name):
                page = " ".join(self.text[f"libmix-{header}.3"].split())
                shown = re.search(rf"([\w ]+?[ *]+){name}\(([^;()]*)\);", page[page.index("FUNCTIONS"):])
                self.assertTrue(shown, f"{name} is not in libmix-{header}(3)")
                self.assertTrue("".join(shown[1].split()).endswith(result), f"{shown[0]}: the result is {result}")
                written = [without_name(each) for each in split_arguments(shown[2])]
                self.assertEqual([kind for kind, _ in written], arguments)
                self.assertEqual(len({each for _, each in written}), len(written), "every argument has its name")

    def test_something_is_said_of_every_exported_symbol(self):
        for name in self.promised():
            page = next(text for text in self.text.values() if re.search(rf"\b{name}\b", text.split("SYNOPSIS")[0]))
            with self.subTest(symbol=name):
                entries = page[page.index("\nFUNCTIONS"):].split("\n\n")
                entry = next(each for each in entries if re.search(rf"^ {{7}}\S.*\b{name}(\(|;|\[)", each, re.M))
                said = re.search(r"^ {11}[^ ]", entry, re.M) or "/*" in entry
                self.assertTrue(said, entry)

    def test_nothing_is_there_that_the_library_does_not_have(self):
        promised = set(self.promised())
        for name, text in self.text.items():
            if name != "libmix.3":
                names = " ".join(text.split("SYNOPSIS")[0].split()).split(" NAME ")[1].split(" - ")[0].split(", ")
                self.assertEqual(set(names[1:]) - promised, set(), name)


class Options(unittest.TestCase):
    """What --help lists is in the page, and the other way round."""

    def test_are_those_of_the_programs(self):
        for name, page in (("mixd", "mixd.8"), ("mixsh", "mixsh.1"), ("mixscan", "mixscan.1")):
            with self.subTest(program=name):
                said = subprocess.run([program(name), "--help"], capture_output=True, text=True, check=True).stdout
                long_option = r"--[a-z]+(?:-[a-z]+)*"
                options = dashed(page).split(".SH OPTIONS")[1].split("\n.SH ")[0]
                self.assertEqual(set(re.findall(long_option, "\n".join(re.findall(r"^\.B.*", options, re.M)))),
                                 set(re.findall(long_option, said)))


class ShellPage(unittest.TestCase):
    def test_has_every_command_as_the_shell_itself_tells_it(self):
        with Mixd() as mixd:
            listed = mixsh(mixd, "help", options=["--json"]).stdout
        usages = re.findall(r'"usage": "((?:[^"\\]|\\.)*)"', listed)
        self.assertGreater(len(usages), 80)
        page = " ".join(rendered(PAGES["mixsh.1"], 2000)[0].split())
        for usage in usages:
            self.assertIn(f" {usage} ", page)


def keys_of(page):
    """table name -> its keys, as the page has them."""
    found, table = {}, ""
    for line in dashed(page).split("\n"):
        if heading := re.fullmatch(r"\.SS \[+([\w.]+)\]+", line):
            table = heading[1]
            found[table] = set()
        elif key := re.match(r"\\fB(\w+)\\fR(?: \(|$)", line):
            found.setdefault(table, set()).add(key[1])
    return found


class ScenarioPage(unittest.TestCase):
    # Where an entry has other keys by the value of one of them.
    VARIANTS = {"arp.entry": ["", "slot = 200\n"]}

    def test_has_the_tables_and_keys_that_mixd_takes_and_no_others(self):
        documented = keys_of("mix-scenario.5")
        rows = set(re.findall(r"^\.SS \[\[([\w.]+)\]\]", dashed("mix-scenario.5"), re.M))
        scenario = "no_such_key = 1\n"
        for table in documented:
            brackets = "[[{}]]" if table in rows else "[{}]"
            for more in self.VARIANTS.get(table, [""]):
                scenario += brackets.format(table) + "\nno_such_key = 1\n" + more
        mixd = Mixd(scenario=scenario, start=False)
        self.addCleanup(mixd.remove)
        with self.assertRaises(RuntimeError):
            mixd.start()
        complaints = re.findall(r'unknown key "no_such_key" (?:in \[([\w.]+)\]|at the top); known: (.*)', mixd.log())
        known = {}
        for table, keys in complaints:
            known.setdefault(table, set()).update(() if keys == "none" else keys.split(", "))
        top = known.pop("")
        self.assertEqual({table.split(".")[0] for table in documented}, top)
        for table, keys in known.items():
            inside = {other.rpartition(".")[2] for other in documented if other.rpartition(".")[0] == table}
            with self.subTest(table=table):
                self.assertEqual(documented[table] | inside, keys)
        self.assertEqual(set(known), set(documented))

    def test_has_an_example_that_mixd_takes(self):
        example = dashed("mix-scenario.5").split(".SH EXAMPLE\n.nf\n")[1].split(".fi")[0]
        with Mixd(scenario=example) as mixd:
            self.assertIn("1000", mixsh(mixd, "show arp count").stdout)


class BoardPage(unittest.TestCase):
    def profile(self, text):
        """What a program says of a profile, and its slot by libmix."""
        with tempfile.TemporaryDirectory() as folder:
            path = os.path.join(folder, "board.toml")
            pathlib.Path(path).write_text(text, encoding="utf-8")
            script = "import ctypes, sys; print(ctypes.CDLL(sys.argv[1]).tq_get_slot())"
            library = pathlib.Path(program("mixsh")).parents[1] / "lib/libmixplatform.so"
            return subprocess.run([sys.executable, "-c", script, str(library)], capture_output=True, text=True, check=True,
                                  env={**os.environ, "MIX_BOARD": path})

    def test_has_the_keys_that_a_profile_may_have(self):
        functions = re.findall(r"^MIX_BOARD_\w+\((\w+)\)",
                               (TREE / "platform/board_functions.def").read_text(encoding="utf-8"), re.M)
        self.assertEqual(keys_of("mix-board.5")[""], {"name", "image_path", *functions})

    def test_has_keys_that_are_taken(self):
        values = {"number": "7", "text": '"x"', "table": "{ otherwise = 1 }", "list of numbers": "[1]",
                  "true or false": "true"}
        keys = re.findall(r"^\\fB(\w+)\\fR \((.*?)\)", dashed("mix-board.5"), re.M)
        done = self.profile("".join(f"{key} = {values[kind]}\n" for key, kind in keys))
        self.assertEqual((done.stderr, done.stdout), ("", "7\n"))

    def test_has_an_example_that_is_taken(self):
        done = self.profile(dashed("mix-board.5").split(".SH EXAMPLE\n.nf\n")[1].split(".fi")[0])
        self.assertEqual((done.stderr, done.stdout), ("", "2\n"))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
