# SPDX-License-Identifier: MIT
"""Prints the service's own interfaces from introspection data, one line for each method, in a fixed order."""
import sys
import xml.etree.ElementTree as tree

lines = []
for interface in tree.parse(sys.stdin).getroot().findall("interface"):
    if interface.get("name").startswith("org.freedesktop."):
        continue
    lines.append(interface.get("name"))
    for member in interface:
        if member.tag == "annotation":
            continue
        arguments = [f'{a.get("direction")} {a.get("type")} {a.get("name")}' for a in member.findall("arg")]
        lines.append(f'{interface.get("name")} {member.tag} {member.get("name")}({", ".join(arguments)})')
print("\n".join(sorted(lines)))
