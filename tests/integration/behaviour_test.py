"""Behaviour objects and profiles of a scenario, and the tables of names, through the shell."""

import unittest

from shell_case import ShellCase

SCENARIO = """
[[behaviour.object]]
name = "games"
class = "url"
subclass = 3
description = "no time"
items = ["*.play.example", "chess.example"]
[[behaviour.object]]
name = "games"
class = "keyword"
items = ["checkmate"]
[[behaviour.object]]
name = "private-mail"
class = "mail"
[[behaviour.profile]]
name = "staff"
description = "all desks"
[[behaviour.profile.rule]]
object = "games"
class = "url"
subclass = 3
action = "block"
log = true
hits = 18446
[[behaviour.profile.rule]]
object = "private-mail"
class = "mail"
mail_types = 262273
[[behaviour.profile]]
name = "guests"
"""

MANY = "".join(f'[[behaviour.object]]\nname = "object{i:02}"\nclass = "file"\n' for i in range(25)) + \
    "".join(f'[[behaviour.profile]]\nname = "profile{i}"\n' for i in range(4))


class Objects(ShellCase):
    scenario = SCENARIO

    def found(self, words=""):
        return [(row["name"], row["class"]) for row in self.json(f"show behaviour objects {words}")]

    def test_have_every_field(self):
        self.assertEqual(self.json("show behaviour objects"), [
            {"name": "games", "class": "url", "subclass": 3, "uses": 1, "items": ["*.play.example", "chess.example"],
             "description": "no time"},
            {"name": "games", "class": "keyword", "subclass": None, "uses": 0, "items": ["checkmate"],
             "description": None},
            {"name": "private-mail", "class": "mail", "subclass": None, "uses": 1, "items": [],
             "description": None}])

    def test_are_selected_by_name_class_and_subclass(self):
        self.assertEqual(self.found("games"), [("games", "url"), ("games", "keyword")])
        self.assertEqual(self.found("games class keyword"), [("games", "keyword")])
        self.assertEqual(self.found("class mail"), [("private-mail", "mail")])
        self.assertEqual(self.found("subclass 3"), [("games", "url")])
        self.assertEqual(self.found("game"), [])

    def test_are_shown_in_columns(self):
        lines = self.ok("show behaviour objects").stdout.splitlines()
        self.assertEqual(lines[0].split(), ["Name", "Class", "Subclass", "Uses", "Items", "Description"])
        self.assertEqual(lines[3].split(), ["private-mail", "mail", "-", "1", "-", "-"])

    def test_profiles_and_their_rules(self):
        self.assertEqual(self.json("show behaviour profiles"),
                         [{"name": "guests", "rules": 0, "description": None},
                          {"name": "staff", "rules": 2, "description": "all desks"}])
        self.assertEqual([row["name"] for row in self.json("show behaviour profiles staff")], ["staff"])
        self.assertEqual(self.json("show behaviour profiles nobody"), [])
        self.assertEqual(self.json("show behaviour rules staff"), [
            {"object": "games", "class": "url", "subclass": 3, "action": "block", "log": True, "hits": 18446,
             "mail": []},
            {"object": "private-mail", "class": "mail", "subclass": None, "action": "permit", "log": False, "hits": 0,
             "mail": ["smtp", "QQ", "139"]}])
        self.assertEqual(self.json("show behaviour rules guests"), [])
        self.refused("show behaviour rules nobody", "there is no such behaviour profile")

    def test_stay_over_a_restart_and_count_their_uses_anew(self):
        before = self.json("show behaviour objects"), self.json("show behaviour profiles")
        self.restart()
        self.assertEqual((self.json("show behaviour objects"), self.json("show behaviour profiles")), before)

    def test_failures_are_told(self):
        self.mixd.stop()
        for command in "show behaviour objects", "show behaviour profiles", "show behaviour rules staff":
            self.refused(command, "ipcmsg send failed")


class ManyObjects(ShellCase):
    scenario = MANY

    def test_are_listed_page_after_page_once_each(self):
        self.assertEqual([row["name"] for row in self.json("show behaviour objects")],
                         [f"object{i:02}" for i in range(25)])
        self.assertEqual([row["name"] for row in self.json("show behaviour profiles")],
                         [f"profile{i}" for i in range(4)])


class Names(ShellCase):
    def listed(self, what, key="number"):
        return {row[key]: row["name"] for row in self.json(f"show names {what}")}

    def test_of_attacks_and_rules(self):
        attacks, rules = self.listed("attack"), self.listed("rule")
        self.assertEqual((list(attacks), list(rules)), (list(range(1, 32)), list(range(1, 32))))
        self.assertEqual((attacks[1], attacks[8], attacks[22]), ("tear-drop", "tcp-port-scan", "arp-spoofing"))
        self.assertEqual((rules[1], rules[8], rules[22]), ("tear-drop", "port-scan", "arp-spoofing-rate"))

    def test_of_mail_services(self):
        mail = self.listed("mail")
        self.assertEqual(list(mail), list(range(19)))
        self.assertEqual((mail[0], mail[7], mail[18]), ("smtp", "QQ", "139"))

    def test_of_per_hop_behaviours(self):
        rows = self.json("show names phb")
        self.assertEqual(len(rows), 21)
        self.assertEqual(rows[0], {"value": 46, "name": "ef", "description": "match packets with EF DSCP (101110)"})
        self.assertEqual((rows[13]["value"], rows[20]["name"]), (0, "cs7"))

    def test_are_shown_in_columns_without_any_daemon(self):
        self.mixd.stop()
        lines = self.ok("show names mail").stdout.splitlines()
        self.assertEqual(lines[0].split(), ["Number", "Name"])
        self.assertEqual(lines[2].split(), ["1", "webmail"])


if __name__ == "__main__":
    unittest.main(verbosity=1)
