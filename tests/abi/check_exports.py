"""Compares libmix.so with the promises: check_exports.py LIBRARY MAP HEADERS

The version map is the project's own list. The library exports exactly its symbols, each public header declares
exactly those that the map lists under it, and the library needs the C library and the platform library only.
"""
import pathlib
import re
import subprocess
import sys

library, map_file, header_folder = sys.argv[1:]
problems = []


def output_of(*words):
    return subprocess.run(words, check=True, capture_output=True, text=True).stdout


def promised():
    """header name -> symbols, from the map."""
    found, header = {}, None
    for line in pathlib.Path(map_file).read_text().splitlines():
        if named := re.search(r"/\* libmix/(\w+)\.h \*/", line):
            header = named[1]
            found[header] = []
        elif symbol := re.fullmatch(r"\s+(\w+);", line):
            found[header].append(symbol[1])
        elif line.startswith("local:"):
            break
    return found


def declared(header):
    """What a public header declares with MIX_API."""
    text = (pathlib.Path(header_folder) / f"{header}.h").read_text()
    text = re.sub(r"/\*.*?\*/", "", text, flags=re.S)
    names = []
    for declaration in re.findall(r"MIX_API\b([^;]*);", text):
        # "type (*name)(" is a function pointer object, "name(" a function, "name[" or a last word an object
        name = (re.match(r"[^(]*\(\s*\*\s*(\w+)", declaration)
                or re.match(r"[^(]*?(\w+)\s*\(", declaration)
                or re.search(r"(\w+)\s*(?:\[[^]]*\]\s*)*$", declaration))
        names.append(name[1])
    return names


exported, kinds = set(), {}
for line in output_of("nm", "-D", "--defined-only", library).splitlines():
    _, kind, name = line.split()
    if kind != "A":
        exported.add(name.split("@")[0])
        kinds[name.split("@")[0]] = kind
promises = promised()
listed = [name for names in promises.values() for name in names]
for name in sorted(set(n for n in listed if listed.count(n) > 1)):
    problems.append(f"{name} stands twice in the map")
for name in sorted(exported - set(listed)):
    problems.append(f"{name} is exported but not in the map")
for name in sorted(set(listed) - exported):
    problems.append(f"{name} is in the map but not exported")

headers = {path.stem for path in pathlib.Path(header_folder).glob("*.h")} - {"mix_base"}
for header in sorted(headers - set(promises)):
    problems.append(f"libmix/{header}.h is not in the map")
for header, names in promises.items():
    if not names and header not in headers:
        continue
    found = declared(header)
    for name in sorted(set(found) - set(names)):
        problems.append(f"{name} is declared in libmix/{header}.h but not listed under it")
    for name in sorted(set(names) - set(found)):
        problems.append(f"{name} is listed under libmix/{header}.h but not declared there")

dynamic = output_of("readelf", "-dW", library)
needed = re.findall(r"\(NEEDED\).*\[(.*)\]", dynamic)
for name in needed:
    if not re.fullmatch(r"libc\.so\.6|libmixplatform\.so\.1|ld-linux-aarch64\.so\.1", name):
        problems.append(f"{name} is needed at run time")
if "[libmix.so.1]" not in dynamic:
    problems.append("the SONAME is not libmix.so.1")
# One entry of the start-up and one of the finishing table are the C compiler's own.
for table in ("INIT_ARRAYSZ", "FINI_ARRAYSZ"):
    size = re.search(rf"\({table}\)\s+(\d+)", dynamic)
    if size and int(size[1]) > 8:
        problems.append(f"{table} is {size[1]}: something runs when libmix is loaded or unloaded")
for line in output_of("nm", "-D", "--undefined-only", library).splitlines():
    name = line.split()[-1].split("@")[0]
    if re.match(r"_Z|__cxa_(?!finalize)|__gxx", name):
        problems.append(f"{name} needs the C++ run-time library")
for line in output_of("readelf", "-lW", library).splitlines():
    if "GNU_STACK" in line and "E" in line.split()[-2]:
        problems.append("the stack is executable")

# All that the library keeps between calls. What is added here is state of the process: either it is safe to share or
# the headers name the functions that are not for concurrent use.
KEPT = {
    "vrname": "the name that get_vrname_by_vrid returns: named in arp.h",
    "err_str": "the upgrade's error text: named in issu.h",
    "tqac_compile_cb": "a hook, registered at the start: named in tqac.h",
    "tqac_free_cb": "a hook, registered at the start: named in tqac.h",
    "lan_addrs": "set by init_lan_addr: named in ip_util.h",
    "tq_app_ext_table": "set once, under `attaching`",
    "app_table_rwlock": "set once, under `attaching`",
    "cur_app_num": "set once, under `attaching`",
    "cur_predef_app_num": "set once, under `attaching`",
    "attaching": "a mutex",
    "in_use": "atomic: the vector unit, the same for all",
    "chosen": "atomic: the way to count bits, the same for all",
}
COMPILERS_OWN = {"completed.0", "__dso_handle", "__TMC_END__", ".data", ".bss", "$d"}
kept = set(re.findall(r"\s\.(?:data|bss)\t[0-9a-f]+\s+(?:\.hidden )?(.+)$", output_of("objdump", "-tC", library), re.M))
kept = {name.split("::")[-1] for name in kept} - COMPILERS_OWN
for name in sorted(kept ^ set(KEPT)) if kept else []:
    problems.append(f"{name} is {'kept between calls, which nobody has thought about' if name in kept else 'not kept any more'}")

for problem in problems:
    print(problem)
print(f"{len(exported)} symbols exported, {len(listed)} promised; needs {' '.join(needed)}")
sys.exit(bool(problems) or not exported)
