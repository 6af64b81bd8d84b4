"""Run by gdb where it stands in main: holds the fields that the natvis file names against the types of main's variables."""

import os
import re
import xml.etree.ElementTree as tree

import gdb

CHAIN = re.compile(r"\bm_\w+(?:\[[^\]]*\])?(?:\.m_\w+)*")


def field_type(owner, name):
    """The type of a field, of the class itself, of a base or of an unnamed union."""
    owner = owner.strip_typedefs()
    for field in owner.fields():
        if field.name == name:
            return field.type
        if field.is_base_class or not field.name:
            found = field_type(field.type, name)
            if found is not None:
                return found
    return None


def missing(owner, chain):
    for part in chain.split("."):
        found = field_type(owner, part.split("[")[0])
        if found is None:
            return part
        owner = found.target() if "[" in part else found
    return None


def main():
    types = {}
    for symbol in gdb.selected_frame().block():
        if symbol.is_variable:
            value_type = symbol.type.strip_typedefs()
            if value_type.code == gdb.TYPE_CODE_REF:
                value_type = value_type.target().strip_typedefs()
            if value_type.name:
                types.setdefault(value_type.name.split("<")[0], value_type.unqualified())
    space = "{http://schemas.microsoft.com/vstudio/debugger/natvis/2010}"
    checked = 0
    for entry in tree.parse(os.environ["TEVTOOLS_NATVIS"]).getroot().iter(space + "Type"):
        name = entry.get("Name").split("<")[0]
        owner = types.get(name) or gdb.lookup_type(name)
        texts = [text for node in entry.iter() for text in (node.text, *node.attrib.values()) if text]
        for chain in {chain for text in texts for chain in CHAIN.findall(text)}:
            checked += 1
            fault = missing(owner, chain)
            if fault:
                print("natvis: %s has no %s" % (name, fault))
    print("natvis: %d fields" % checked)


main()
