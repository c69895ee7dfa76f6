"""Finds the single changes that can be made to C++ sources, by the syntax tree that libclang gives of them."""

import dataclasses
import json
import pathlib
import re
import shlex

from clang import cindex
from clang.cindex import CursorKind, TypeKind


@dataclasses.dataclass(frozen=True, order=True)
class Mutant:
    """One change: the bytes from `offset` to `end` of a file, `old`, become `new`."""

    file: str
    offset: int
    end: int
    old: str
    new: str
    line: int
    function: str  # in which it stands; the name of the variable outside of functions
    text: str  # the line, with {{ }} around what changes: it may stand there twice

    @property
    def change(self):
        return f"{one_line(self.old)} -> {one_line(self.new)}"


def one_line(text):
    return " ".join(text.split())


# What each operator is exchanged for. Those of text, which are the library's, compile with few others.
COMPARISONS = {
    "==": ["!="],
    "!=": ["=="],
    "<": ["<=", ">="],
    "<=": ["<", ">"],
    ">": [">=", "<="],
    ">=": [">", "<"],
}
ARITHMETIC = {
    "+": ["-"],
    "-": ["+"],
    "*": ["/"],
    "/": ["*"],
    "%": ["/"],
    "&": ["|"],
    "|": ["&"],
    "^": ["&"],
    "<<": [">>"],
    ">>": ["<<"],
    "+=": ["-="],
    "-=": ["+="],
    "|=": ["&="],
    "&=": ["|="],
    "<<=": [">>="],
    ">>=": ["<<="],
}
LOGICAL = {"&&": ["||"], "||": ["&&"]}
UNARY = {"!": [""], "-": [""], "~": [""], "++": ["--"], "--": ["++"]}

FUNCTIONS = {
    CursorKind.FUNCTION_DECL,
    CursorKind.FUNCTION_TEMPLATE,
    CursorKind.CXX_METHOD,
    CursorKind.CONSTRUCTOR,
    CursorKind.DESTRUCTOR,
    CursorKind.CONVERSION_FUNCTION,
}
VARIABLES = {CursorKind.VAR_DECL, CursorKind.FIELD_DECL, CursorKind.ENUM_CONSTANT_DECL}
CLASSES = {CursorKind.CLASS_DECL, CursorKind.STRUCT_DECL, CursorKind.CLASS_TEMPLATE}
BODIES = {
    CursorKind.IF_STMT,
    CursorKind.FOR_STMT,
    CursorKind.WHILE_STMT,
    CursorKind.DO_STMT,
    CursorKind.CXX_FOR_RANGE_STMT,
    CursorKind.CASE_STMT,
    CursorKind.DEFAULT_STMT,
}
JUMPS = {CursorKind.BREAK_STMT, CursorKind.CONTINUE_STMT}
NEVER = {CursorKind.STATIC_ASSERT}

NUMBER = re.compile(r"(0[xX][0-9a-fA-F']+|0[bB][01']+|0[0-7']*|[1-9][0-9']*)([uUlLzZ]*)")
CHARACTER = re.compile(r"'[0-9A-Za-z ./:,;=+*_-]'")


def other_number(text):
    """The number beside a literal, written alike: 0 for 1, and else the next."""
    match = NUMBER.fullmatch(text)
    if not match:
        return None
    digits, suffix = match.group(1).replace("'", ""), match.group(2)
    octal = len(digits) > 1 and digits.isdigit() and digits[0] == "0"
    value = int(digits, 8) if octal else int(digits, 0)
    value = 0 if value == 1 else value + 1
    written = hex(value) if digits[:2].lower() == "0x" else f"0{value:o}" if octal else str(value)
    return written + suffix


def other_character(text):
    return f"'{chr(ord(text[1]) + 1)}'" if CHARACTER.fullmatch(text) else None


class Source:
    """The text of one file. libclang counts in bytes."""

    def __init__(self, path):
        self.bytes = path.read_bytes()

    def text(self, start, end):
        return self.bytes[start:end].decode()

    def marked(self, start, end):
        """The line of `start` with a mark around the text up to `end`, or what of it stands on this line."""
        begin = self.bytes.rfind(b"\n", 0, start) + 1
        stop = self.bytes.find(b"\n", start)
        return (self.text(begin, start) + "{{" + self.text(start, min(end, stop)) + "}}" + self.text(min(end, stop), stop)).strip()


class Finder:
    """Collects the mutants of one translation unit that stand in the files of `names`."""

    def __init__(self, root, names):
        self.root = root
        self.names = {str(root / name): name for name in names}
        self.sources = {}
        self.found = set()

    def search(self, unit):
        for cursor in unit.cursor.get_children():
            if self.name_of(cursor):
                self.visit(cursor, "")

    def name_of(self, cursor):
        file = cursor.extent.start.file
        return self.names.get(file.name) if file else None

    def visit(self, cursor, function):
        if cursor.kind in NEVER:
            return
        function = self.scope(cursor, function)
        self.mutate(cursor, function)
        for child in cursor.get_children():
            self.visit(child, function)

    @staticmethod
    def scope(cursor, function):
        if cursor.kind in FUNCTIONS:
            parent = cursor.semantic_parent
            return f"{parent.spelling}::{cursor.spelling}" if parent.kind in CLASSES else cursor.spelling
        return function or (cursor.spelling if cursor.kind in VARIABLES else "")

    def mutate(self, cursor, function):
        kind, children = cursor.kind, list(cursor.get_children())
        if kind in (CursorKind.BINARY_OPERATOR, CursorKind.COMPOUND_ASSIGNMENT_OPERATOR):
            self.binary(cursor, children, function)
        elif kind == CursorKind.CALL_EXPR and cursor.spelling.startswith("operator"):
            self.overloaded(children, function)
        elif kind == CursorKind.UNARY_OPERATOR:
            self.unary(cursor, children, function)
        elif kind in (CursorKind.INTEGER_LITERAL, CursorKind.CXX_BOOL_LITERAL_EXPR, CursorKind.CHARACTER_LITERAL):
            self.literal(cursor, function)
        elif kind == CursorKind.RETURN_STMT and children:
            self.result(children[0], function)
        self.condition(cursor, children, function)
        self.statements(cursor, children, function)

    def binary(self, cursor, operands, function):
        table = {**COMPARISONS, **LOGICAL}
        if cursor.type.get_canonical().kind != TypeKind.RECORD:
            table |= ARITHMETIC
        self.operator(operands, table, function)

    def overloaded(self, children, function):
        """An operator that a class defines: only those that compare make sense for nearly every class."""
        if len(children) == 3:
            self.operator([children[0], children[2]], COMPARISONS, function)

    def operator(self, operands, table, function):
        if len(operands) != 2:
            return
        start, end = operands[0].extent.end.offset, operands[1].extent.start.offset
        self.replace_within(operands[0], start, end, table, function)

    def unary(self, cursor, operands, function):
        if not operands:
            return
        whole, operand = cursor.extent, operands[0].extent
        if whole.start.offset < operand.start.offset:
            self.replace_within(cursor, whole.start.offset, operand.start.offset, UNARY, function)
        else:
            self.replace_within(cursor, operand.end.offset, whole.end.offset, UNARY, function)

    def replace_within(self, cursor, start, end, table, function):
        """Exchanges the operator that alone stands between two places. In a macro it does not."""
        source = self.source(cursor)
        if source is None or start >= end:
            return
        gap = source.text(start, end)
        operator = gap.strip()
        at = start + gap.find(operator)
        for other in table.get(operator, []):
            self.add(cursor, at, at + len(operator), other, function)

    def literal(self, cursor, function):
        text = self.text(cursor)
        other = {"true": "false", "false": "true"}.get(text) or other_number(text) or other_character(text)
        if other:
            self.replace(cursor, other, function)

    def result(self, value, function):
        if value.type.get_canonical().kind == TypeKind.BOOL and not self.inverted_otherwise(value):
            self.replace(value, f"!({self.text(value)})", function)

    def condition(self, cursor, children, function):
        condition = self.condition_of(cursor, children)
        if condition is not None and not self.inverted_otherwise(condition):
            self.replace(condition, f"!({self.text(condition)})", function)
        elif cursor.kind == CursorKind.IF_STMT and children[0].kind == CursorKind.VAR_DECL:
            self.replace(children[0], f"{self.text(children[0])}; !{children[0].spelling}", function)

    def condition_of(self, cursor, children):
        """The condition of a statement; None where there is none, or where it declares what it tests."""
        if not children:
            return None
        if cursor.kind == CursorKind.DO_STMT:
            return children[-1]
        if cursor.kind == CursorKind.FOR_STMT:
            return next((child for child in children if self.is_loop_condition(cursor, child)), None)
        tested = (CursorKind.IF_STMT, CursorKind.WHILE_STMT, CursorKind.CONDITIONAL_OPERATOR)
        return children[0] if cursor.kind in tested and children[0].kind.is_expression() else None

    def is_loop_condition(self, loop, child):
        source = self.source(loop)
        before = source.text(loop.extent.start.offset, child.extent.start.offset) if source else ""
        return child.kind.is_expression() and before.count(";") == 1

    def inverted_otherwise(self, value):
        """Whether a mutant of the value itself is the same as its opposite."""
        text = self.text(value)
        if text in ("true", "false") or (text.startswith("!") and self.unwrapped(value).kind == CursorKind.UNARY_OPERATOR):
            return True
        operands = list(self.unwrapped(value).get_children())
        if len(operands) not in (2, 3):
            return False
        source, end = self.source(value), operands[-1].extent.start.offset
        gap = source.text(operands[0].extent.end.offset, end) if source else ""
        return gap.strip() in COMPARISONS

    @staticmethod
    def unwrapped(value):
        while value.kind == CursorKind.UNEXPOSED_EXPR and len(list(value.get_children())) == 1:
            value = next(value.get_children())
        return value

    def statements(self, cursor, children, function):
        """Drops the statements in a block, and those that are a body by themselves."""
        if cursor.kind == CursorKind.COMPOUND_STMT:
            droppable = children
        elif cursor.kind in BODIES:
            droppable = [child for child in children if self.is_body(cursor, child)]
        else:
            return
        for child in droppable:
            if child.kind.is_expression() or child.kind in JUMPS:
                self.replace(child, "(void)0", function)
            elif child.kind == CursorKind.RETURN_STMT and not list(child.get_children()):
                self.replace(child, "(void)0", function)

    def is_body(self, cursor, child):
        """Whether a statement stands after the parentheses of its head, with a semicolon of its own."""
        source = self.source(child)
        if source is None:
            return False
        before = source.text(cursor.extent.start.offset, child.extent.start.offset).rstrip()
        after = source.text(child.extent.end.offset, child.extent.end.offset + 1)
        return after == ";" and (before.endswith((")", "else", ":", "do"))) and child.kind != CursorKind.COMPOUND_STMT

    def source(self, cursor):
        name = self.name_of(cursor)
        if name and name not in self.sources:
            self.sources[name] = Source(self.root / name)
        return self.sources.get(name)

    def text(self, cursor):
        source = self.source(cursor)
        return source.text(cursor.extent.start.offset, cursor.extent.end.offset) if source else ""

    def replace(self, cursor, new, function):
        if self.text(cursor):
            self.add(cursor, cursor.extent.start.offset, cursor.extent.end.offset, new, function)

    def add(self, cursor, start, end, new, function):
        source = self.source(cursor)
        line = source.bytes.count(b"\n", 0, start) + 1
        mutant = Mutant(self.name_of(cursor), start, end, source.text(start, end), new, line, function, source.marked(start, end))
        self.found.add(mutant)


def compile_options(entry):
    """The options of a compile command that matter to the syntax tree."""
    words = shlex.split(entry["command"])[1:]
    wanted = ("-I", "-D", "-std", "-isystem", "-U")
    options = []
    for position, word in enumerate(words):
        if word.startswith(wanted):
            options.append(word)
        elif position and words[position - 1] in ("-isystem", "-I", "-D"):
            options.append(word)
    return options


def find(root, build, names):
    """All mutants of the sources `names` below `root`, in order. The compile commands are those of the tree `build`."""
    root = pathlib.Path(root)
    commands = {entry["file"]: entry for entry in json.loads((root / build / "compile_commands.json").read_text())}
    finder = Finder(root, names)
    for name in names:
        entry = commands.get(str(root / name))
        if not entry:
            continue  # a header; it is seen through those that include it
        unit = cindex.Index.create().parse(entry["file"], compile_options(entry))
        faults = [fault for fault in unit.diagnostics if fault.severity >= cindex.Diagnostic.Error]
        if faults:
            raise RuntimeError(f"{name} is not understood: {faults[0]}")
        finder.search(unit)
    return sorted(finder.found)
