"""Shows values of TevTools in lldb: command script import tevtools_lldb.py"""

import os
import sys

import lldb

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import tevtools_values as values

sys.path.pop(0)

CATEGORY = "TevTools"


class Unreadable(Exception):
    pass


def members(value_type):
    value_type = value_type.GetCanonicalType()
    return value_type.GetNumberOfFields() + value_type.GetNumberOfDirectBaseClasses()


class View:
    """An SBValue as tevtools_values wants it."""

    def __init__(self, value):
        value = value.GetNonSyntheticValue()
        value_type, address = value.GetType(), value.GetLoadAddress()
        if value_type.IsReferenceType():
            value_type, address = value_type.GetDereferencedType(), value.GetValueAsUnsigned()
            value = value.Dereference().GetNonSyntheticValue() if members(value_type) else value
        self.name = value_type.GetCanonicalType().GetUnqualifiedType().GetName()
        # Programs may know no more of a class than its name; the library describes it.
        for known in value.GetTarget().FindTypes(self.name) if not members(value_type) else ():
            if members(known):
                value = value.CreateValueFromAddress(value.GetName(), address, known).GetNonSyntheticValue()
                break
        self.value = value

    @property
    def address(self):
        return self.value.GetLoadAddress()

    def field(self, path):
        value = self.value
        for name in path.split("."):
            value = value.GetChildMemberWithName(name)
        if not value.IsValid():
            raise Unreadable(path)
        return value

    def number(self, path):
        field = self.field(path)
        error = lldb.SBError()
        is_signed = field.GetType().GetTypeFlags() & (lldb.eTypeIsSigned | lldb.eTypeIsEnumeration)
        number = field.GetValueAsSigned(error, 0) if is_signed else field.GetValueAsUnsigned(error, 0)
        if error.Fail():
            raise Unreadable(path)
        return number

    def label(self, path):
        text = self.field(path).GetValue()
        if text is None:
            raise Unreadable(path)
        return text

    def view(self, path):
        return View(self.field(path))

    def target(self, path):
        return self.field(path).GetType().GetPointeeType()

    def size(self, path):
        size = self.target(path).GetByteSize()
        if size == 0:
            raise Unreadable(path)
        return size

    def read(self, address, size):
        if size == 0:
            return b""
        error = lldb.SBError()
        process = self.value.GetProcess()
        if process.IsValid():
            data = process.ReadMemory(address, size, error)
        else:
            target = self.value.GetTarget()
            data = target.ReadMemory(lldb.SBAddress(address, target), size, error)
        if error.Fail() or data is None or len(data) != size:
            raise Unreadable("%x" % address)
        return data


def summary(value, _):
    return values.describe(value, describe)


def describe(value):
    view = View(value)
    description = values.DESCRIPTIONS.get(view.name.split("<")[0], values.describe_exception)
    return (values.describe_whole_store if description is values.describe_store else description)(view)


class Children:
    """The elements of an array, the entries of a map."""

    def __init__(self, value, _):
        self.source = value
        self.children = []

    def update(self):
        self.children = []
        try:
            self.view = View(self.source)
            for child in self.find():
                self.children.append(child)
        except Exception:
            pass  # the summary says that the value is damaged
        return False

    def has_children(self):
        return True

    def num_children(self):
        return len(self.children)

    def get_child_index(self, name):
        names = [child.GetName() for child in self.children]
        return names.index(name) if name in names else -1

    def get_child_at_index(self, index):
        return self.children[index] if 0 <= index < len(self.children) else None

    def make(self, name, address, value_type):
        return self.view.value.CreateValueFromAddress(name, address, value_type)


class ArrayChildren(Children):
    def find(self):
        element = self.view.target("m_data")
        for index, address in enumerate(values.array_elements(self.view)):
            yield self.make("[%d]" % index, address, element)


def entry_type(slot):
    """The class that has the fields of a slot: itself, or its base."""
    return entry_type(slot.GetDirectBaseClassAtIndex(0).GetType()) if slot.GetNumberOfDirectBaseClasses() else slot


class MapChildren(Children):
    def find(self):
        slot_type = entry_type(self.view.target("m_slots"))
        for index, address in enumerate(values.map_slots(self.view)):
            slot = self.make("slot", address, slot_type)
            key, value = slot.GetChildMemberWithName("m_key"), slot.GetChildMemberWithName("m_value")
            if value.IsValid():
                text = key.GetSummary() or key.GetValue() or str(index)
                yield self.make("[%s]" % text, value.GetLoadAddress(), value.GetType())
            else:
                yield self.make("[%d]" % index, key.GetLoadAddress(), key.GetType())


def pattern(names):
    """With references, which lldb does not look behind where a program knows no more of the class than its name."""
    return "^(const )?(%s)( &{1,2})?$" % "|".join(names)


def __lldb_init_module(debugger, _):
    def run(command):
        debugger.HandleCommand("%s -w %s" % (command, CATEGORY))

    arrays = ("CXArray<.+>",)
    maps = ("CHashMap<.+>", "CHashTable<.+>", "CIntMap")
    simple = [name for name in values.DESCRIPTIONS if name not in ("CXTString", "CXArray", "CHashMap", "CHashTable", "CIntMap")]
    summarize = 'type summary add -p -x "%s" -F tevtools_lldb.summary'
    run(summarize % pattern(["CXTString<.+>", *simple, *values.EXCEPTIONS]))
    run(summarize % pattern(arrays + maps) + " -e")
    run('type synthetic add -p -x "%s" -l tevtools_lldb.ArrayChildren' % pattern(arrays))
    run('type synthetic add -p -x "%s" -l tevtools_lldb.MapChildren' % pattern(maps))
    debugger.HandleCommand("type category enable " + CATEGORY)
