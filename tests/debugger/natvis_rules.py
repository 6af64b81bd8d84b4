"""What the schema of natvis files demands, as far as our file uses it: elements, their order, attributes, expressions."""

import re
import xml.etree.ElementTree as tree

SPACE = "{http://schemas.microsoft.com/vstudio/debugger/natvis/2010}"
STEPS = "(?:(?:Item|Exec|Break|Loop|If(?: Elseif)*(?: Else)?) )*"
# The children of an element, each name followed by a blank.
CHILDREN = {
    "AutoVisualizer": "(?:Type )+",
    "Type": "(?:DisplayString )*(?:StringView )*(?:Expand )?",
    "Expand": "(?:(?:Item|ArrayItems|IndexListItems|CustomListItems) )+",
    "ArrayItems": "Size ValuePointer ",
    "IndexListItems": "Size ValueNode ",
    "CustomListItems": "(?:Variable )*(?:Size )?(?:Skip )?" + STEPS,
    "Loop": STEPS, "If": STEPS, "Elseif": STEPS, "Else": STEPS,
}
# Of these the first ones are required.
ATTRIBUTES = {
    "Type": (["Name"], ["Inheritable", "Priority"]), "Item": ([], ["Name", "Condition"]), "Variable": (["Name", "InitialValue"], []),
    "Loop": ([], ["Condition"]), "If": (["Condition"], []), "Elseif": (["Condition"], []), "Exec": ([], ["Condition"]),
    "CustomListItems": ([], ["MaxItemsPerView", "Condition", "Optional"]), "DisplayString": ([], ["Condition", "Optional"]),
}
HOLD_EXPRESSIONS = {"Size", "ValuePointer", "ValueNode", "StringView", "Item", "Exec"}
FORMATS = re.compile(r"(?:\[.+\])?(?:s8|su|s32|sb|sub|x|d|u|na|!|)$")


def is_balanced(text):
    pairs, stack = {")": "(", "]": "[", "}": "{"}, []
    for character in text:
        if character in "([{":
            stack.append(character)
        elif character in pairs and (not stack or stack.pop() != pairs[character]):
            return False
    return not stack


def is_expression(text):
    """An expression and, behind a comma that is in no brackets, how it is shown."""
    depth, commas = 0, []
    for at, character in enumerate(text):
        depth += (character in "([") - (character in ")]")
        if character == "," and depth == 0:
            commas.append(at)
    shown = text[commas[0] + 1 :] if commas else ""
    return bool(text.strip()) and is_balanced(text) and len(commas) <= 1 and bool(FORMATS.match(shown.strip()))


def embedded(text):
    """The expressions in braces of a display string; None where the braces do not match."""
    text = text.replace("{{", "").replace("}}", "")
    return re.findall(r"\{([^{}]*)\}", text) if is_balanced(text) else None


def faults_of(node):
    name = node.tag[len(SPACE) :] if node.tag.startswith(SPACE) else "foreign " + node.tag
    children = "".join(child.tag.replace(SPACE, "") + " " for child in node)
    if not re.fullmatch(CHILDREN.get(name, ""), children):
        yield "%s holds %s" % (name, children)
    if name == "Expand" and any(child.tag == SPACE + "Item" and not child.get("Name") for child in node):
        yield "an item that is no part of a list has no name"
    required, optional = ATTRIBUTES.get(name, ([], []))
    if not set(required) <= set(node.attrib) <= set(required + optional):
        yield "%s has the attributes %s" % (name, sorted(node.attrib))
    text = (node.text or "").strip()
    expressions = [text] if name in HOLD_EXPRESSIONS else []
    expressions += [value for key, value in node.attrib.items() if key in ("Condition", "InitialValue")]
    shown = [text] if name == "DisplayString" else [node.get("Name", "")] if name == "Item" else []
    for parts in map(embedded, shown):
        expressions += parts if parts is not None else [""]
    yield from ("%s holds no expression: %s" % (name, text) for text in expressions if not is_expression(text))
    if text and name not in HOLD_EXPRESSIONS | {"DisplayString"}:
        yield "%s holds a text: %s" % (name, text)
    for child in node:
        yield from faults_of(child)


def faults(source):
    try:
        return list(faults_of(tree.fromstring(source)))
    except tree.ParseError as error:
        return [str(error)]


def unseen(source):
    """Which of some damages of a sound file would not be found."""
    damages = [
        ("</Type>", "", 1), ("<Size>", "<Sizes>", 1), (' Name="[length]"', "", 1), (' Name="at"', "", 1), ("Elseif", "ElseIf", -1),
        ("<ValuePointer>m_data</ValuePointer>", "", 1), ("{m_cause}", "{m_cause", 1), ("m_slots[at]", "m_slots[at", 1),
        (",su<", ",wide<", 1), ("<StringView>", "<StringView>{", 1), ("natvis/2010", "natvis/2011", 1), ("Condition", "Conditon", 1),
    ]
    for old, new, count in damages:
        damaged = source.replace(old, new, count)
        if damaged == source or not faults(damaged):
            yield old
