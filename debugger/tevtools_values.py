"""What the values of TevTools look like in a debugger, for gdb and lldb alike.

A view is one value in the debugged program, behind an interface that each debugger implements:

    view.name                 the name of its type
    view.address              where it lies
    view.number(path)         a field as an integer, by its path: "m_text.m_length"
    view.label(path)          a field as the debugger writes it, for enumerations
    view.view(path)           a field as a view
    view.size(path)           the size of what a pointer field points to
    view.read(address, size)  bytes of the program's memory

Each raises an exception where there is no such field or memory. What is looked at may be damaged, half-built or never
constructed, so nothing here is believed: sizes are bounded before anything is read, walks end, and describe() answers with
a text for whatever goes wrong.
"""

import struct

MOST_CHARACTERS = 200  # of a text
MOST_CHILDREN = 1000  # of an array, a map or a store
MOST_VALUES = 32  # of a store on one line
MOST_BYTES = 1 << 25  # of a map that are searched for its entries
MOST_DEPTH = 4  # stores within each other
BLOCK = 1 << 16  # bytes that are read at once

TAG_EMPTY, TAG_DELETED, TAG_OCCUPIED = 0, 0x40, 0x80  # and above
MOST_INT = 0x7FFFFFFF


class Damaged(Exception):
    """A value that contradicts itself."""


class Cut(Exception):
    """Bytes beyond those that are shown."""


# Text


def quoted(units, prefix, is_cut):
    """Characters, some of which may be no characters, in quotes."""
    parts = []
    for unit in units:
        if unit in (0x22, 0x5C):
            parts.append("\\" + chr(unit))
        elif unit in (0x09, 0x0A, 0x0D):
            parts.append({0x09: "\\t", 0x0A: "\\n", 0x0D: "\\r"}[unit])
        elif unit < 0x20 or 0x7F <= unit < 0xA0:
            parts.append("\\x%02x" % unit)
        elif 0xD800 <= unit < 0xE000:
            parts.append("\\u%04x" % unit if prefix else "\\x%02x" % (unit & 0xFF))
        elif unit > 0x10FFFF:
            parts.append("\\U%08x" % unit)
        else:
            parts.append(chr(unit))
    return prefix + '"' + "".join(parts) + '"' + ("..." if is_cut else "")


def narrow_units(data):
    """UTF-8; a byte that is none becomes U+DC00 and its value."""
    return [ord(c) for c in data.decode("utf-8", "surrogateescape")]


def wide_units(data, size):
    units = list(struct.unpack("<%d%s" % (len(data) // size, "I" if size == 4 else "H"), data))
    if size == 4:
        return units
    joined = []
    for unit in units:
        if joined and 0xDC00 <= unit < 0xE000 and 0xD800 <= joined[-1] < 0xDC00:
            unit = 0x10000 + ((joined.pop() - 0xD800) << 10) + (unit - 0xDC00)
        joined.append(unit)
    return joined


def text_in(view, path=""):
    """The text of a CXTString, which stands at the path in the view."""
    fields = (path + "." if path else "") + "m_text."
    length = view.number(fields + "m_length")
    capacity = view.number(fields + "m_capacity")
    address = view.number(fields + "m_data")
    size = view.size(fields + "m_data")
    if length < 0 or (length != 0 and length >= capacity):
        raise Damaged("length %d in a buffer for %d" % (length, capacity))
    shown = min(length, MOST_CHARACTERS)
    data = view.read(address, shown * size)
    units = narrow_units(data) if size == 1 else wide_units(data, size)
    return quoted(units, "" if size == 1 else "L", shown < length)


def describe_string(view):
    return text_in(view)


# Arrays


def array_size(view):
    """Of a CXArray, checked."""
    size, capacity, slots = (view.number(name + ".m_value") for name in ("m_size", "m_capacity", "m_slots"))
    if not 0 <= size <= capacity <= slots <= MOST_INT or (size != 0 and view.number("m_data") == 0):
        raise Damaged("%d elements, capacity %d, %d slots" % (size, capacity, slots))
    return size


def describe_array(view):
    return "CXArray of length %d, capacity %d" % (array_size(view), view.number("m_capacity.m_value"))


def array_elements(view):
    """The addresses of the elements, as far as their memory can be read."""
    address, size = view.number("m_data"), view.size("m_data")
    count = min(array_size(view), MOST_CHILDREN)
    at_once = max(BLOCK // size, 1)
    for first in range(0, count, at_once):
        number = min(at_once, count - first)
        while number != 0 and not can_read(view, address + first * size, min(number * size, BLOCK)):
            number //= 2
        yield from range(address + first * size, address + (first + number) * size, size)
        if number != min(at_once, count - first):
            return


def can_read(view, address, size):
    try:
        view.read(address, size)
        return True
    except Exception:
        return False


def describe_element_array(view):
    size, capacity, element = view.number("m_size"), view.number("m_capacity"), view.number("m_elementSize")
    if not 0 <= size <= capacity:
        raise Damaged("%d elements, capacity %d" % (size, capacity))
    return "CElementArray of length %d, capacity %d, %d bytes an element" % (size, capacity, element)


def describe_bits(view):
    count, present = view.number("m_bitCount"), view.number("m_presentBits")
    if not 0 <= present <= count:
        raise Damaged("%d of %d bits" % (present, count))
    shown = min(present, MOST_CHARACTERS)
    words = view.read(view.number("m_words"), (shown + 31) // 32 * 4)
    bits = "".join(str(words[i // 8] >> i % 8 & 1) for i in range(shown))
    return "CBitArray of length %d: %s%s" % (count, bits, "..." if shown < count else "")


def describe_offsets(view):
    size, split = view.number("m_size"), view.number("m_split")
    if not 0 <= split <= size:
        raise Damaged("%d entries, %d of them narrow" % (size, split))
    shown = min(size, MOST_VALUES)
    narrow = min(shown, split)
    entries = struct.unpack("<%dI" % narrow, view.read(view.number("m_narrow"), narrow * 4))
    entries += struct.unpack("<%dQ" % (shown - narrow), view.read(view.number("m_wide"), (shown - narrow) * 8))
    listed = ", ".join(map(str, entries)) + (", ..." if shown < size else "")
    return "COffsetArray of length %d: {%s}" % (size, listed)


# Maps


def map_count(view):
    count, used, table = view.number("m_count"), view.number("m_used"), view.number("m_tableSize")
    has_slots = view.number("m_slots") != 0
    if not 0 <= count <= used <= table or (count != 0 and not has_slots):
        raise Damaged("%d entries, %d used of %d slots" % (count, used, table))
    return count


def describe_map(view):
    return "%s of %d entries" % (view.name.split("<")[0], map_count(view))


def map_slots(view):
    """The addresses of the slots that hold an entry."""
    left = min(map_count(view), MOST_CHILDREN)
    address, size, tags = view.number("m_slots"), view.size("m_slots"), view.number("m_tags")
    table = min(view.number("m_tableSize"), MOST_BYTES // size)
    for first in range(0, table, BLOCK):
        if left == 0:
            return
        for index, tag in enumerate(view.read(tags + first, min(BLOCK, table - first)), first):
            if tag < TAG_OCCUPIED and tag not in (TAG_EMPTY, TAG_DELETED):
                raise Damaged("a slot with the tag %d" % tag)
            if tag >= TAG_OCCUPIED:
                yield address + index * size
                left -= 1
                if left == 0:
                    return


# The store

SCALARS = {
    0x20494E54: "<i",  # " INT"
    0x55494E54: "<I",  # "UINT"
    0x4C4F4E47: "<i",  # "LONG"
    0x554C4F4E: "<I",  # "ULON"
    0x4C4C4F4E: "<q",  # "LLON"
    0x554C4C4F: "<Q",  # "ULLO"
    0x43484152: "<b",  # "CHAR"
    0x55434852: "<B",  # "UCHR"
    0x464C4F41: "<f",  # "FLOA"
    0x444F5542: "<d",  # "DOUB"
}
KIND_GAP = 0  # where a value was
KIND_BOOL, KIND_POINTER, KIND_WIDE, KIND_NARROW = 0x424F4F4C, 0x50545236, 0x554E4943, 0x414E5349
KIND_LIST, KIND_MOMENT, KIND_FIELDS, KIND_ARRAY, KIND_STORE = 0x55535452, 0x54494D58, 0x54494D45, 0x41525241, 0x43444132
CHUNK_HEADER = 12


def spelled(kind):
    return "".join(chr(byte) if 0x20 <= byte < 0x7F else "?" for byte in struct.pack(">I", kind))


def bytes_text(data):
    shown = data[:16]
    return " ".join("%02x" % byte for byte in shown) + (" ..." if len(data) > len(shown) else "")


def stored_text(data, size):
    """Up to its NUL."""
    units = narrow_units(data) if size == 1 else wide_units(data[: len(data) // 2 * 2], 2)
    if 0 in units:
        units = units[: units.index(0)]
    return quoted(units[:MOST_CHARACTERS], "" if size == 1 else "L", len(units) > MOST_CHARACTERS)


def string_list(data, size):
    """A count, and then for each string the number of its 16-bit units and these."""
    (count,) = struct.unpack_from("<I", data)
    at = 4
    shown = []
    while len(shown) < min(count, 8) and at + 4 <= len(data):
        (units,) = struct.unpack_from("<I", data, at)
        if units > (size - at - 4) // 2:
            raise Damaged("a string past the end")
        shown.append(stored_text(data[at + 4 : at + 4 + 2 * units], 2))
        at += 4 + 2 * units
    return "%d strings: {%s%s}" % (count, ", ".join(shown), ", ..." if len(shown) < count else "")


def stored_value(kind, data, size, depth):
    """A value of the store; `data` may be only the front of its `size` bytes."""
    if kind in SCALARS:
        if size != struct.calcsize(SCALARS[kind]):
            raise Damaged("%d bytes" % size)
        return "%.9g" % struct.unpack(SCALARS[kind], data) if SCALARS[kind] == "<f" else str(struct.unpack(SCALARS[kind], data)[0])
    if kind == KIND_BOOL:
        return "true" if struct.unpack("<i", data)[0] else "false"
    if kind == KIND_POINTER:
        return "0x%x" % struct.unpack("<Q", data)
    if kind == KIND_WIDE:
        return stored_text(data, 2)
    if kind == KIND_NARROW:
        return stored_text(data, 1)
    if kind == KIND_LIST:
        return string_list(data, size)
    if kind == KIND_MOMENT:
        return moment(struct.unpack("<q", data)[0])
    if kind == KIND_FIELDS:
        second, minute, hour, day, month, year = struct.unpack_from("<6i", data)
        return "%d-%02d-%02d %02d:%02d:%02d UTC" % (year + 1900, month + 1, day, hour, minute, second)
    if kind == KIND_ARRAY:
        return "%d elements, %d bytes" % (struct.unpack_from("<I", data)[0], size - 4)
    if kind == KIND_STORE:
        return nested_store(data, size, depth)
    return "%d bytes: %s" % (size, bytes_text(data))


def nested_store(data, size, depth):
    if depth >= MOST_DEPTH:
        return "{...}"

    def read(offset, count):
        if offset + count > len(data):
            raise Cut()
        return data[offset : offset + count]

    return "{" + listed(chunks(read, size, MOST_VALUES, depth + 1)) + "}"


def chunks(read, used, most, depth=0):
    """The values of a store as pairs of a name and a text. The last pair may say why there are no more."""
    offset = 0
    number = 0
    while offset < used:
        if number == most:
            yield "...", ""
            return
        number += 1
        try:
            if used - offset < CHUNK_HEADER:
                raise Damaged("%d bytes left at %d" % (used - offset, offset))
            identifier, size, kind = struct.unpack("<3I", read(offset, CHUNK_HEADER))
            if size > used - offset - CHUNK_HEADER:
                raise Damaged("%d bytes of 0x%08X at %d, where %d are left" % (size, identifier, offset, used - offset))
        except Exception as e:
            yield "...", trouble(e)
            return
        start = offset + CHUNK_HEADER
        offset = start + size
        if kind == KIND_GAP:
            continue
        try:
            value = stored_value(kind, read(start, min(size, BLOCK)), size, depth)
        except Exception as e:
            value = trouble(e)
        yield '0x%08X "%s"' % (identifier, spelled(kind)), value


def listed(pairs):
    return ", ".join(name + " = " + value if value else name for name, value in pairs)


def store_size(view):
    used, end, allocated = view.number("m_used"), view.number("m_end"), view.number("m_allocated")
    if not 0 <= used <= end <= allocated or (used != 0 and view.number("m_buffer") == 0):
        raise Damaged("%d bytes used of %d" % (used, allocated))
    return used


def store_end(view):
    store_size(view)
    return view.number("m_end")


def store_values(view, most=MOST_CHILDREN):
    buffer = view.number("m_buffer")
    return chunks(lambda offset, count: view.read(buffer + offset, count), store_end(view), most)


def describe_store(view):
    return "CCustomData of %d bytes" % store_size(view)


def describe_whole_store(view):
    """With its values, for a debugger that shows them on the same line."""
    return describe_store(view) + ": {" + listed(store_values(view, MOST_VALUES)) + "}"


# Times


def moment(seconds):
    """In UTC, by the Gregorian calendar in both directions: any 64 bits have a date."""
    days, second = divmod(seconds, 86400)
    era, day = divmod(days + 719468, 146097)
    year = (day - day // 1460 + day // 36524 - day // 146096) // 365
    day -= 365 * year + year // 4 - year // 100
    month = (5 * day + 2) // 153
    day -= (153 * month + 2) // 5 - 1
    month += 3 if month < 10 else -9
    year += era * 400 + (1 if month <= 2 else 0)
    return "%d-%02d-%02d %02d:%02d:%02d UTC" % (year, month, day, second // 3600, second // 60 % 60, second % 60)


def describe_time(view):
    return moment(view.number("m_time"))


def describe_duration(view):
    seconds = view.number("m_seconds")
    sign = "-" if seconds < 0 else ""
    days, second = divmod(abs(seconds), 86400)
    return "%s%d d %02d:%02d:%02d" % (sign, days, second // 3600, second // 60 % 60, second % 60)


# Exceptions


def describe_exception(view):
    parts = []
    for path in ("m_cause", "m_errorCode"):
        try:
            parts.append(view.label(path))
        except Exception:
            pass  # the class has no such field
    for path in ("m_fileName", "m_message"):
        try:
            field = view.view(path)
        except Exception:
            continue
        try:
            text = text_in(field)
        except Exception as e:
            text = trouble(e)
        if text != 'L""':
            parts.append(text)
    return view.name + (": " + ", ".join(parts) if parts else "")


# Which description goes with which class. The names are those before the template's arguments.

DESCRIPTIONS = {
    "CXTString": describe_string,
    "CPathString": describe_string,
    "CXArray": describe_array,
    "CElementArray": describe_element_array,
    "CBitArray": describe_bits,
    "COffsetArray": describe_offsets,
    "CHashMap": describe_map,
    "CHashTable": describe_map,
    "CIntMap": describe_map,
    "CCustomData": describe_store,
    "CXTime": describe_time,
    "CXDuration": describe_duration,
    "CXException": describe_exception,
}
EXCEPTIONS = (
    "CXException",
    "CXArchiveException",
    "CXFileException",
    "CXInternetException",
    "CXInvalidArgException",
    "CXMemoryException",
    "CXUserException",
)


def trouble(error):
    if isinstance(error, Cut):
        return "..."
    if isinstance(error, struct.error):
        return "<damaged>"
    return "<damaged: %s>" % error if isinstance(error, Damaged) else "<unreadable>"


def describe(view, description):
    """The text for a value; never an exception."""
    try:
        return description(view)
    except Exception as e:
        return trouble(e)
