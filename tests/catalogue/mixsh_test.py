"""mixsh on the application catalogue of a mixd of its own. /dev/shm is this test's alone."""

import os
import struct
import sys
import unicodedata
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "integration"))
from shell_case import ShellCase  # noqa: E402

SEGMENT = "/dev/shm/app_ext_table"
RECORD = 686


def columns(text):
    """Columns of a terminal that a text takes."""
    return sum(2 if unicodedata.east_asian_width(letter) in "WF" else 1 for letter in text)


class Catalogue(ShellCase):
    catalogue = True

    def setUp(self):
        if os.path.exists(SEGMENT):
            os.unlink(SEGMENT)
        super().setUp()

    def test_one_application_by_its_type_and_by_either_name(self):
        by_type = self.json("show application type 70")
        self.assertEqual(len(by_type), 1)
        self.assertEqual(by_type[0]["name"], "FTP-DATA")
        self.assertEqual(by_type[0]["category"], "File Transfer")
        self.assertFalse(by_type[0]["user_defined"])
        self.assertEqual(self.json("show application name ftp-data"), by_type)
        dns = self.json("show application name dns")
        self.assertEqual(dns[0]["chinese_name"], "域名系统")
        self.assertEqual(self.json("show application chinese-name 域名系统"), dns)

    def test_application_0_is_found_although_its_type_says_nothing(self):
        self.assertEqual(self.json("show application name other")[0]["type"], 0)
        self.assertEqual(self.json("show application type 0")[0]["name"], "Other")

    def test_what_is_not_there_is_a_failure(self):
        self.refused("show application name nonsense", "there is no such application")
        self.refused("show application type 15870", "there is no such application")
        self.refused("show application name dns type 3", "stand alone", status=2)
        self.refused("delete application dns", "there is no such user-defined application")
        self.refused("set application nonsense risk 1", "there is no such user-defined application")
        self.refused("set application nonsense", "at least one attribute", status=2)

    def test_lists_by_category_and_risk(self):
        games = self.json("show application category game")
        self.assertGreater(len(games), 10)
        self.assertEqual({row["category"] for row in games}, {"Game"})
        self.assertEqual(self.json("show application category 网络游戏"), games)
        risky = self.json("show application risk 5")
        self.assertGreater(len(risky), 10)
        self.assertEqual({row["risk"] for row in risky}, {5})
        both = self.json("show application risk 3 category game")
        self.assertEqual(both, [row for row in games if row["risk"] == 3])

    def test_counts_and_categories(self):
        everything = self.json("show application")
        self.assertIn(self.json("show application type 70")[0], everything)
        self.assertGreaterEqual(len(everything), 300)
        self.assertEqual(self.json("show application counts"),
                         [{"applications": len(everything), "predefined": len(everything), "user_defined": 0}])
        categories = self.json("show application categories")
        self.assertEqual(sum(row["applications"] for row in categories), len(everything))
        self.ok("add application Mine")
        self.assertEqual(self.json("show application counts")[0]["user_defined"], 1)

    def test_chinese_columns_line_up(self):
        lines = self.ok("show application category database").stdout.splitlines()
        title = lines[0]
        at = columns(title[:title.index("Category")])
        self.assertGreater(len(lines), 10)
        self.assertTrue(any("达梦数据库" in line for line in lines))
        for line in lines[1:]:
            before = line[:line.index("Database")]
            # the first "Database" of a line may stand in its name; the column is the last place it can be
            while columns(before) < at:
                before = line[:line.index("Database", len(before) + 1)]
            self.assertEqual(columns(before), at, line)

    def test_an_application_of_ones_own_is_added_changed_and_deleted(self):
        added = self.json('add application "My App" chinese-name 我的应用 category Own chinese-category 自有 '
                          'subcategory Sub chinese-subcategory 子类 technology tech risk 4 property 0x1f '
                          'shadow-it on')
        self.assertEqual(added, [{"type": 16382}])
        expected = {"type": 16382, "name": "My App", "chinese_name": "我的应用", "user_defined": True,
                    "category": "Own", "chinese_category": "自有", "subcategory": "Sub",
                    "chinese_subcategory": "子类", "technology": "tech", "risk": 4, "shadow_it": True,
                    "property": 31}
        self.assertEqual(self.json('show application name "my app"'), [expected])
        self.assertEqual([row["name"] for row in self.json("show application user-defined")], ["My App"])
        self.ok('set application "my app" risk 2 shadow-it off technology other')
        expected.update(risk=2, shadow_it=False, technology="other")
        self.assertEqual(self.json("show application type 16382"), [expected])
        self.ok("set application 16382 category New chinese-name 新名")
        expected.update(category="New", chinese_name="新名")
        self.assertEqual(self.json("show application type 16382"), [expected])
        self.ok('delete application "My App"')
        self.assertEqual(self.json("show application user-defined"), [])

    def test_a_new_application_has_nothing_of_the_one_before_it(self):
        self.ok("add application Old category Old chinese-category 旧 technology old risk 5 property 7 shadow-it on")
        self.ok("delete application Old")
        self.ok("add application New")
        row = self.json("show application name New")[0]
        self.assertEqual((row["category"], row["technology"], row["risk"], row["property"], row["shadow_it"]),
                         ("APP_USERDEFINED_CATEGORY", None, 0, 0, False))
        self.assertEqual(row["chinese_category"], "用户自定义")

    def test_a_name_is_given_once(self):
        self.ok("add application Mine")
        self.refused("add application MINE", "the name is that of application 16382")
        self.refused("add application dns", "the name is that of application")
        self.refused("add application other", "the name is that of application 0")

    def test_the_513th_of_ones_own_has_no_room(self):
        self.ok(stdin="".join(f"add application own-{i}\n" for i in range(512)))
        self.refused("add application one-more", "there is no room")

    def test_ones_own_applications_outlive_a_restart_of_the_machine(self):
        self.ok("add application Mine chinese-name 我的 category Own")
        self.assertEqual(self.mixd.stop(), 0)
        os.unlink(SEGMENT)
        self.mixd.start()
        row = self.json("show application name Mine")[0]
        self.assertEqual((row["type"], row["chinese_name"], row["category"]), (16382, "我的", "Own"))

    def test_the_export_has_a_record_for_every_application(self):
        self.ok("add application Mine chinese-name 我的")
        path = os.path.join(self.mixd.directory, "export")
        self.ok(f"export application {path}")
        everything = self.json("show application")
        with open(path, "rb") as file:
            exported = file.read()
        self.assertEqual(len(exported), RECORD * len(everything))
        for number, row in enumerate(everything):
            record = exported[number * RECORD:(number + 1) * RECORD]
            own = row["type"] >= 15871
            expected = bytearray(RECORD)
            struct.pack_into(">HHB", expected, 2, row["type"], 0xffff if own else 0, 0 if own else 2)
            name, chinese = ("Any", "Any") if row["type"] == 0 else (row["name"], row["chinese_name"])
            expected[14:14 + len(name.encode())] = name.encode()
            expected[206:206 + len(chinese.encode())] = chinese.encode()
            self.assertEqual(record, bytes(expected), row)

    def test_an_export_that_cannot_be_written_is_a_failure(self):
        self.refused("export application /nowhere/export", "No such file or directory")
        self.refused("export application /dev/full", "No space left on device")

    def test_without_a_catalogue_the_shell_says_so_and_makes_none(self):
        self.mixd.stop()
        os.unlink(SEGMENT)
        for command in ("show application", "add application Mine", "show application counts",
                        "delete application Mine", "export application /dev/null"):
            self.refused(command, "there is no application catalogue on this machine")
        self.assertFalse(os.path.exists(SEGMENT))

    def test_it_reads_on_while_mixd_is_away(self):
        self.mixd.kill()
        self.assertEqual(self.json("show application type 70")[0]["name"], "FTP-DATA")


if __name__ == "__main__":
    unittest.main()
