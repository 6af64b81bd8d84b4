"""Shows values of TevTools in gdb. The library's auto-load script registers it; by hand: source tevtools_gdb.py."""

import os
import sys

import gdb
import gdb.printing

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import tevtools_values as values

sys.path.pop(0)


class View:
    """A gdb.Value as tevtools_values wants it."""

    def __init__(self, value):
        self.value = value
        self.name = str(value.type.strip_typedefs().unqualified())

    @property
    def address(self):
        return int(self.value.address)

    def field(self, path):
        value = self.value
        for name in path.split("."):
            value = value[name]
        return value

    def number(self, path):
        return int(self.field(path))

    def label(self, path):
        return str(self.field(path))

    def view(self, path):
        return View(self.field(path))

    def target(self, path):
        return self.field(path).type.strip_typedefs().target().strip_typedefs()

    def size(self, path):
        return self.target(path).sizeof

    def read(self, address, size):
        return gdb.selected_inferior().read_memory(address, size).tobytes() if size else b""


def showable(text):
    """What the terminal's character set lacks is written as an escape."""
    try:
        charset = gdb.host_charset()
        return text.encode(charset, "backslashreplace").decode(charset)
    except (AttributeError, LookupError):
        return text.encode("ascii", "backslashreplace").decode("ascii")


def guarded(children, is_map=False):
    """Ends where the value turns out to be damaged."""
    try:
        yield from children
    except Exception as e:
        yield "...", showable(values.trouble(e))
        if is_map:
            yield "...", "..."


class Printer:
    def __init__(self, view, description):
        self.view = view
        self.description = description

    def to_string(self):
        return showable(values.describe(self.view, self.description))


class ArrayPrinter(Printer):
    def display_hint(self):
        return "array"

    def children(self):
        return guarded(self.elements())

    def elements(self):
        pointer = self.view.target("m_data").pointer()
        for index, address in enumerate(values.array_elements(self.view)):
            yield "[%d]" % index, gdb.Value(address).cast(pointer).dereference()


def entry_type(slot):
    """The class that has the fields of a slot: itself, or its base."""
    first = slot.fields()[0]
    return entry_type(first.type.strip_typedefs()) if first.is_base_class else slot


class MapPrinter(Printer):
    def __init__(self, view, description):
        super().__init__(view, description)
        try:
            self.is_map = any(field.name == "m_value" for field in entry_type(view.target("m_slots")).fields())
        except Exception:
            self.is_map = False

    def display_hint(self):
        return "map" if self.is_map else "array"

    def children(self):
        return guarded(self.entries(), self.is_map)

    def entries(self):
        slot_type = entry_type(self.view.target("m_slots"))
        for index, address in enumerate(values.map_slots(self.view)):
            slot = gdb.Value(address).cast(slot_type.pointer()).dereference()
            yield "[%d]" % index, slot["m_key"]
            if self.is_map:
                yield "[%d] value" % index, slot["m_value"]


class StorePrinter(Printer):
    def children(self):
        pairs = values.store_values(self.view)
        return guarded((name, showable(value) if value else "") for name, value in pairs)


class ExceptionPrinter(Printer):
    def __init__(self, view, description):
        try:
            value = view.value
            view = View(value.address.cast(value.dynamic_type.pointer()).dereference())
        except Exception:
            pass  # it has no type of its own: what the program says it is remains
        super().__init__(view, description)


PRINTERS = {
    values.describe_array: ArrayPrinter,
    values.describe_map: MapPrinter,
    values.describe_store: StorePrinter,
    values.describe_exception: ExceptionPrinter,
}


def base_names(value_type, depth=0):
    yield value_type.name
    if depth < 16 and value_type.code == gdb.TYPE_CODE_STRUCT:
        for field in value_type.fields():
            if field.is_base_class:
                yield from base_names(field.type.strip_typedefs(), depth + 1)
                return


class Collection(gdb.printing.PrettyPrinter):
    def __init__(self):
        super().__init__("TevTools", [gdb.printing.SubPrettyPrinter(name) for name in values.DESCRIPTIONS])
        self.parts = {part.name: part for part in self.subprinters}

    def __call__(self, value):
        try:
            return self.find(value)
        except Exception:
            return None

    def find(self, value):
        value_type = value.type.strip_typedefs()
        if value_type.code in (gdb.TYPE_CODE_REF, gdb.TYPE_CODE_RVALUE_REF):
            value = value.referenced_value()
            value_type = value.type.strip_typedefs()
        value_type = value_type.unqualified()
        name = (value_type.name or "").split("<")[0]
        if name not in values.DESCRIPTIONS:
            if value_type.code != gdb.TYPE_CODE_STRUCT or "CXException" not in base_names(value_type):
                return None
            name = "CXException"
        if not self.parts[name].enabled:
            return None
        description = values.DESCRIPTIONS[name]
        return PRINTERS.get(description, Printer)(View(value), description)


def register(objfile):
    gdb.printing.register_pretty_printer(objfile, Collection(), replace=True)


if __name__ == "__main__":
    register(None)
