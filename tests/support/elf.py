"""What the tests ask of an ELF file, of any width and byte order."""

import struct

PT_LOAD, PT_DYNAMIC, PT_GNU_STACK, PT_GNU_RELRO = 1, 2, 0x6474E551, 0x6474E552
DT_NEEDED, DT_STRTAB, DT_SYMTAB, DT_SYMENT = 1, 5, 6, 11
STB_GNU_UNIQUE = 10
DT_RPATH, DT_TEXTREL, DT_BIND_NOW, DT_RUNPATH, DT_FLAGS, DT_FLAGS_1 = 15, 22, 24, 29, 30, 0x6FFFFFFB
DF_TEXTREL, DF_BIND_NOW, DF_1_NOW, DF_1_PIE = 4, 8, 1, 0x08000000
ET_DYN = 3
EXECUTABLE, WRITABLE = 1, 2


class Elf:
    def __init__(self, path):
        self.data = path.read_bytes()
        assert self.data[:4] == b"\x7fELF", path
        self.wide = self.data[4] == 2
        self.order = "<" if self.data[5] == 1 else ">"
        self.type, self.machine = self._at("HH", 16)
        self.segments = self._segments()
        self.dynamic = self._dynamic()

    def _at(self, form, offset):
        return struct.unpack_from(self.order + form, self.data, offset)

    def _segments(self):
        """(type, flags, file offset, address, size in the file) of each."""
        if self.wide:
            start, size, count = *self._at("Q", 32), *self._at("HH", 54)
            rows = (self._at("IIQQQQ", start + i * size) for i in range(count))
            return [(kind, flags, offset, address, length) for kind, flags, offset, address, _, length in rows]
        start, size, count = *self._at("I", 28), *self._at("HH", 42)
        rows = (self._at("IIIIIII", start + i * size) for i in range(count))
        return [(kind, flags, offset, address, length) for kind, offset, address, _, length, _, flags in rows]

    def segment(self, kind):
        return next((segment for segment in self.segments if segment[0] == kind), None)

    def _dynamic(self):
        """Tag and value of each entry of the dynamic section."""
        _, _, start, _, length = self.segment(PT_DYNAMIC)
        form, size = ("qQ", 16) if self.wide else ("iI", 8)
        rows = [self._at(form, start + i * size) for i in range(length // size)]
        return rows[: next(i for i, row in enumerate(rows) if row[0] == 0)]

    def values(self, tag):
        return [value for found, value in self.dynamic if found == tag]

    def flag(self, tag, bit):
        return any(value & bit for value in self.values(tag))

    def _offset(self, address):
        return next(address - start + offset for kind, _, offset, start, length in self.segments
                    if kind == PT_LOAD and start <= address < start + length)

    def _text(self, offset):
        start = self._offset(self.values(DT_STRTAB)[0]) + offset
        return self.data[start : self.data.index(b"\0", start)].decode()

    def texts(self, tag):
        return [self._text(value) for value in self.values(tag)]

    def needed(self):
        return self.texts(DT_NEEDED)

    def _symbols(self):
        """Name, binding and section of each dynamic symbol. Their table ends where that of their names begins."""
        start, end = (self._offset(self.values(tag)[0]) for tag in (DT_SYMTAB, DT_STRTAB))
        size = self.values(DT_SYMENT)[0]
        form = "IBBHQQ" if self.wide else "IIIBBH"
        info, section = (1, 3) if self.wide else (3, 5)
        rows = (self._at(form, offset) for offset in range(start, end, size))
        return [(self._text(row[0]), row[info] >> 4, row[section]) for row in rows if row[0]]

    def imports(self):
        """Names that other libraries have to define."""
        return {name for name, _, section in self._symbols() if section == 0}

    def unique(self):
        """Names of which the dynamic loader keeps one definition in the whole process."""
        return {name for name, binding, _ in self._symbols() if binding == STB_GNU_UNIQUE}
