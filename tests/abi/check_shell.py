"""Compares what mixsh calls with what libmix promises: check_shell.py MIXSH MAP EXCEPTIONS

Every function that libmix exports can be reached from the shell: mixsh imports it. What it does not import stands in
the list of exceptions under its reason, and nothing stands there that it does import.
"""
import pathlib
import re
import subprocess
import sys

shell, map_file, exception_file = sys.argv[1:]
problems = []

imported = {line.split()[-1].split("@")[0]
            for line in subprocess.run(["nm", "-D", "--undefined-only", shell], check=True, capture_output=True,
                                       text=True).stdout.splitlines()}

promised, header = {}, None
for line in pathlib.Path(map_file).read_text().splitlines():
    if named := re.search(r"/\* libmix/(\w+)\.h \*/", line):
        header = named[1]
    elif symbol := re.fullmatch(r"\s+(\w+);", line):
        promised[symbol[1]] = header
    elif line.startswith("local:"):
        break

# "[reason]", then names; "libmix/tqac.h" means all of a header's.
excepted, reason = {}, None
for number, line in enumerate(pathlib.Path(exception_file).read_text().splitlines(), 1):
    line = line.split("#")[0].strip()
    if heading := re.fullmatch(r"\[(.+)\]", line):
        reason = heading[1]
        continue
    for name in line.split():
        if reason is None:
            problems.append(f"line {number}: {name} stands under no reason")
        of_header = re.fullmatch(r"libmix/(\w+)\.h", name)
        names = [each for each, where in promised.items() if of_header and where == of_header[1]] or [name]
        for each in names:
            if each not in promised:
                problems.append(f"line {number}: {each} is not exported")
            elif each in excepted:
                problems.append(f"line {number}: {each} stands there already")
            elif each in imported and not of_header:
                problems.append(f"line {number}: {each} is no exception: the shell calls it")
            excepted[each] = reason

missing = sorted(set(promised) - imported - set(excepted))
for name in missing:
    problems.append(f"{name} (libmix/{promised[name]}.h) can't be reached from the shell")

for problem in problems:
    print(problem)
print(f"{len(promised)} symbols promised, {len(set(promised) & imported)} called by the shell, "
      f"{len(set(excepted) - imported)} are exceptions")
sys.exit(bool(problems) or not imported & set(promised))
