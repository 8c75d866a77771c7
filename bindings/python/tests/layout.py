#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""layout.py CC INCLUDE: every record, number and word of kelo/_abi.py is what the C compiler of this machine makes of
the headers, down to the last offset."""
import ctypes, enum, inspect, pathlib, subprocess, sys, tempfile

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent))
from kelo import _abi

CC, INCLUDE = sys.argv[1:3]
members = [(name, thing) for name, thing in vars(_abi).items() if not name.startswith("_")]
records = [(name, thing) for name, thing in members if inspect.isclass(thing) and issubclass(thing, ctypes.Structure)
           and thing.__module__ == _abi.__name__]
enums = [name for name, thing in members if inspect.isclass(thing) and issubclass(thing, _abi.OpenEnum)
         and thing is not _abi.OpenEnum]
numbers = [(name, thing) for name, thing in members if type(thing) is int and name.isupper()]

wanted, lines = [], []


def expect(what, c_expression, value):
    wanted.append((what, value))
    lines.append(f'    printf("%lld\\n", (long long)({c_expression}));')


for name, record in records:
    expect(f"sizeof {name}", f"sizeof(struct {name})", ctypes.sizeof(record))
    expect(f"alignof {name}", f"__alignof__(struct {name})", ctypes.alignment(record))
    for field, _ in record._fields_:
        place = getattr(record, field)
        expect(f"{name}.{field} at", f"offsetof(struct {name}, {field})", place.offset)
        expect(f"{name}.{field} size", f"sizeof(((struct {name}*)0)->{field})", place.size)
for name in enums:
    expect(f"sizeof {name}", f"sizeof(enum {name})", ctypes.sizeof(ctypes.c_int))
for name, value in numbers:
    expect(name, name, value)
for name, kind in _abi.VARIABLES.items():
    expect(f"sizeof {name}", f"sizeof {name}", ctypes.sizeof(kind))

with tempfile.TemporaryDirectory() as folder:
    source, program = pathlib.Path(folder, "layout.c"), pathlib.Path(folder, "layout")
    body = "\n".join(lines)
    headers = "".join(f"#include <{header}>\n" for header in ("kelo/kelo.h", "stddef.h", "stdio.h"))
    source.write_text(f"{headers}int main(void)\n{{\n{body}\n}}\n")
    subprocess.run([CC, "-std=gnu99", "-w", f"-I{INCLUDE}", str(source), "-o", str(program)], check=True)
    got = [int(line) for line in subprocess.run([str(program)], check=True, capture_output=True).stdout.split()]

wrong = [f"{what}: {value} in Python, {there} in C" for (what, value), there in zip(wanted, got) if value != there]
if len(records) < 15 or len(enums) < 8 or len(numbers) < 60 or len(got) != len(wanted):
    wrong.append(f"only {len(records)} records, {len(enums)} enumerations, {len(numbers)} numbers")
print(*wrong or [f"{len(wanted)} sizes, offsets and numbers are those of C"], sep="\n")
sys.exit(bool(wrong))
