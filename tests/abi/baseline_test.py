"""The check against the baseline finds what it is there for: baseline_test.py BUILD_FOLDER

A scratch copy of the headers and of one source is changed, compiled as the build does it, and linked with the build's
other objects.
"""
import json
import os
import pathlib
import re
import shlex
import shutil
import subprocess
import sys
import tempfile
import unittest

HERE = pathlib.Path(__file__).resolve().parent
TREE = HERE.parents[1]
BUILD = pathlib.Path(sys.argv[1])


class Baseline(unittest.TestCase):
    def library_with(self, source, changes):
        """libmix.so as it would be built with the changes: {file below the tree: (what, by what)}."""
        folder = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))
        shutil.copytree(TREE / "include", folder / "include")
        (folder / source).parent.mkdir(parents=True)
        for name in (source, "src/libmix.map"):
            shutil.copy(TREE / name, folder / name)
        for name, (old, new) in changes.items():
            text = (folder / name).read_text(encoding="utf-8")
            self.assertIn(old, text)
            (folder / name).write_text(text.replace(old, new), encoding="utf-8")
        commands = json.loads((BUILD / "compile_commands.json").read_text(encoding="utf-8"))
        command = next(each for each in commands if each["file"] == str(TREE / source)
                       and "CMakeFiles/mix_" in each["command"])
        words = shlex.split(command["command"])
        original = words[words.index("-o") + 1]
        words[words.index("-o") + 1] = str(folder / "changed.o")
        words = [word.replace(str(TREE / source), str(folder / source)).replace(f"-I{TREE}/include", f"-I{folder}/include")
                 for word in words if not word.endswith("ccache")]
        subprocess.run(words, cwd=command["directory"], check=True)
        objects = [path for path in (BUILD / "src").rglob("*.o") if not path.samefile(BUILD / original)]
        self.assertGreater(len(objects), 30)
        compiler = next(word for word in words if re.search(r"(\+\+|g\+\+-\d+)$", word))
        subprocess.run([compiler, "-shared", "-nostdlib", "-Wl,-soname,libmix.so.1",
                        f"-Wl,--version-script={folder}/src/libmix.map", "-o", folder / "libmix.so", folder / "changed.o",
                        *objects], check=True)
        return folder / "libmix.so"

    def check(self, library):
        done = subprocess.run([HERE / "check_baseline", library], capture_output=True, text=True, check=False)
        return done.returncode, done.stdout + done.stderr

    def test_says_nothing_of_the_same_interface_from_another_compilation(self):
        library = self.library_with("src/neigh/ipdefrag.cpp", {})
        self.assertEqual(self.check(library), (0, ""))

    def test_says_nothing_of_an_argument_s_other_name(self):
        library = self.library_with("src/neigh/ipdefrag.cpp", {
            "include/libmix/ipdefrag.h": ("int32_t first, int32_t second", "int32_t limit, int32_t seconds")})
        self.assertEqual(self.check(library), (0, ""))

    def test_finds_an_argument_of_another_width(self):
        library = self.library_with("src/neigh/ipdefrag.cpp", {
            "include/libmix/ipdefrag.h": ("int32_t first, int32_t second", "int64_t first, int32_t second"),
            "src/neigh/ipdefrag.cpp": ("int32_t first, int32_t second", "int64_t first, int32_t second")})
        code, said = self.check(library)
        self.assertEqual(code, 1)
        self.assertIn("'function int set_ipdefrag_para(int32_t, int32_t, print_callback)'", said)
        self.assertIn("check_baseline --update", said)

    def test_finds_a_record_that_only_goes_through_void_pointers(self):
        library = self.library_with("src/neigh/arp_change.cpp", {
            "include/libmix/arp.h": ("    uint16_t vrid;\n    uint16_t vsysid;\n", "    uint32_t vrid;\n    uint16_t vsysid;\n")})
        code, said = self.check(library)
        self.assertEqual(code, 1)
        self.assertIn("'struct arp_removal_context' changed", said)

    def test_finds_a_function_that_is_gone(self):
        library = self.library_with("src/neigh/ipdefrag.cpp", {
            "src/libmix.map": ("    ip_defrag_mgi_get_resp;\n", "")})
        code, said = self.check(library)
        self.assertEqual(code, 1)
        self.assertIn("1 Removed", said)


if __name__ == "__main__":
    os.environ["LC_ALL"] = "C.UTF-8"
    unittest.main(argv=sys.argv[:1])
