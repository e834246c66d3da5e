#!/usr/bin/env python3
"""Holds the include graph: no cycle, no include up the layers, no private header where it is not
allowed.

A header and its source count as one node. docs/architecture.md says which layer a node is in; a
source without a header has the layer of the first header that it includes.
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
for line in (root / "docs/architecture.md").read_text().split("\n## ")[0].splitlines():
    number = re.match(r"[ |]*(\d)\b", line)
    layer = int(number[1]) if number else layer
    names = re.findall(r"\b(?!Tolvex/)[A-Z]\w*/(?:Private/)?\w+", line) if layer else []
    layers.update((name.replace("/Private/", "/"), layer) for name in names)

files = {path.relative_to(root).as_posix(): path.read_text()
         for path in sorted(root.glob("Tolvex/*/**/*")) if path.suffix in (".h", ".cpp")}
includes = {file: re.findall(r'^#include "(Tolvex/.+)"', text, re.M) for file, text in files.items()}
headers = {node(file) for file in files if file.endswith(".h")}
problems += [f"docs/architecture.md lacks {name}" for name in sorted(headers - layers.keys())]
problems += [f"docs/architecture.md names {name}, which does not exist"
             for name in sorted(layers.keys() - {node(file) for file in files})]
problems += [f"{file} is private and exports" for file, text in files.items()
             if "/Private/" in file and "TOLVEX_EXPORT" in text]

graph = {node(file): set() for file in files}
for file, included in includes.items():
    own = layers.get(node(file)) or layers.get(node(included[0])) if included else None
    graph[node(file)] |= {node(header) for header in included} - {node(file)}
    for header in included:
        if own and own < layers.get(node(header), 0):
            problems.append(f"{file} includes {header}, which is in a layer above")
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
