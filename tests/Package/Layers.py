#!/usr/bin/env python3
"""Holds the include graph: no cycle, no include up the layers, no private header where it is not
allowed. The pages that list files name only files that exist.

A header and its source count as one node. docs/architecture.md says which layer a node is in; a
source without a header has the layer of the first header that it includes. Nodes that it marks
stand-alone include only the base layer and each other.
"""
import pathlib
import re
import sys

root = pathlib.Path(sys.argv[1])
problems = []


def node(path):
    """Folder/Name of a file in Tolvex/, whether it is private or not."""
    return path.removeprefix("Tolvex/").replace("/Private/", "/").rsplit(".", 1)[0]


layers = {}
layer = None
alone = set()
is_alone = False
for line in (root / "docs/architecture.md").read_text().split("\n## ")[0].splitlines():
    number = re.match(r"[ |]*(\d)\b", line)
    layer = int(number[1]) if number else layer
    is_alone = "stand-alone" in line or (is_alone and not number)
    names = re.findall(r"\b(?!Tolvex/)[A-Z]\w*/(?:Private/)?\w+", line) if layer else []
    names = [name.replace("/Private/", "/") for name in names]
    layers.update((name, layer) for name in names)
    alone.update(names if is_alone else [])

files = {path.relative_to(root).as_posix(): path.read_text()
         for path in sorted(root.glob("Tolvex/*/**/*")) if path.suffix in (".h", ".cpp")}
includes = {file: re.findall(r'^#include "(Tolvex/.+)"', text, re.M) for file, text in files.items()}
headers = {node(file) for file in files if file.endswith(".h")}
problems += [f"docs/architecture.md lacks {name}" for name in sorted(headers - layers.keys())]
problems += [f"docs/architecture.md names {name}, which does not exist"
             for name in sorted(layers.keys() - {node(file) for file in files})]
problems += [f"{file} is private and exports" for file, text in files.items()
             if "/Private/" in file and "TOLVEX_EXPORT" in text]

for page in sorted(root.glob("Tolvex/*/README.md")):
    problems += [f"{page.relative_to(root)} names {name}, which does not exist"
                 for name in re.findall(r"`([\w/]+\.(?:h|cpp))`", page.read_text())
                 if not (page.parent / name).exists() and not (root / name).exists()]
rows = re.findall(r"^\| `([\w/]+)` \|", (root / "docs/log-inside.md").read_text(), re.M)
problems += [f"docs/log-inside.md names {name}, which does not exist"
             for name in rows if "Log/" + name.removeprefix("Private/") not in map(node, files)]

graph = {node(file): set() for file in files}
for file, included in includes.items():
    own = layers.get(node(file)) or layers.get(node(included[0])) if included else None
    graph[node(file)] |= {node(header) for header in included} - {node(file)}
    for header in included:
        if own and own < layers.get(node(header), 0):
            problems.append(f"{file} includes {header}, which is in a layer above")
        if node(file) in alone and layers.get(node(header)) != 1 and node(header) not in alone:
            problems.append(f"{file}, which stands alone, includes {header}")
        if "/Private/" in header and file.endswith(".h") and "/Private/" not in file:
            problems.append(f"{file}, a public header, includes {header}")
        if "/Private/" in header and header.split("/")[1] not in ("Base", file.split("/")[1]):
            problems.append(f"{file} includes {header}, which is private to another folder")

# Removes nodes that are in no cycle: those that include nothing, and those that nothing includes.
while loose := {a for a in graph if not graph[a] or not any(a in graph[b] for b in graph)}:
    graph = {a: graph[a] - loose for a in graph.keys() - loose}
if graph:
    problems.append("in a cycle, or between two cycles: " + ", ".join(sorted(graph)))

print("\n".join(problems))
sys.exit(bool(problems))
