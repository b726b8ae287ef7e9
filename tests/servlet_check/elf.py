"""Writes ELF programs and libraries for any processor: only what a dynamic linker reads."""

import struct

ARM, X86_64, AARCH64, MIPS = 40, 62, 183, 8
HARD_FLOATS, SOFT_FLOATS = 0x05000400, 0x05000200  # ARM EABI version 5

LIBRARY, PROGRAM = 3, 2
PROGBITS, STRTAB, RELA, DYNAMIC, REL, DYNSYM = 1, 3, 4, 6, 9, 11
WRITABLE, LOADED, EXECUTABLE = 1, 2, 4
NEEDED, SONAME = 1, 14
GLOBAL, WEAK = 1, 2
OBJECT, FUNCTION = 1, 2


class Strings:
    def __init__(self):
        self.bytes = b"\0"

    def add(self, text):
        at = len(self.bytes)
        self.bytes += text.encode() + b"\0"
        return at


class Elf:
    def __init__(self, machine=ARM, bits=32, big_endian=False, kind=LIBRARY, flags=0):
        self.machine, self.bits, self.kind, self.flags = machine, bits, kind, flags
        self.order = ">" if big_endian else "<"
        self.strings = Strings()
        self.dynamic = b""
        self.data = []  # flags and contents of further sections
        self.symbols = self._symbol(0, 0, 0, 0)

    def needs(self, *libraries):
        for library in libraries:
            self.dynamic += self._words(NEEDED, self.strings.add(library))
        return self

    def named(self, name):
        self.dynamic += self._words(SONAME, self.strings.add(name))
        return self

    def exports(self, *names, kind=FUNCTION):
        for name in names:
            self.symbols += self._symbol(self.strings.add(name), GLOBAL, kind, 1)
        return self

    def wants(self, *names, binding=GLOBAL):
        for name in names:
            self.symbols += self._symbol(self.strings.add(name), binding, 0, 0)
        return self

    def contains(self, *texts, flags=LOADED):
        """Adds a section with these texts, each with its zero byte."""
        self.data.append((flags, b"".join(text.encode() + b"\0" for text in texts)))
        return self

    def _words(self, *numbers):
        return struct.pack(self.order + ("Q" if self.bits == 64 else "I") * len(numbers), *numbers)

    def _symbol(self, name, binding, kind, section):
        info = binding << 4 | kind
        if self.bits == 64:
            return struct.pack(self.order + "IBBHQQ", name, info, 0, section, 0x1000, 0)
        return struct.pack(self.order + "IIIBBH", name, 0x1000, 0, info, 0, section)

    def _section(self, kind, link, entry, offset, size, flags=0):
        if self.bits == 64:
            return struct.pack(self.order + "IIQQQQIIQQ", 0, kind, flags, 0, offset, size, link, 0, 1,
                               entry)
        return struct.pack(self.order + "10I", 0, kind, flags, 0, offset, size, link, 0, 1, entry)

    def bytes(self):
        wide = self.bits == 64
        contents = [(STRTAB, 0, 0, 0, self.strings.bytes),
                    (DYNSYM, 0, 1, 24 if wide else 16, self.symbols),
                    (DYNAMIC, 0, 1, 16 if wide else 8, self.dynamic + self._words(0, 0)),
                    *[(PROGBITS, flags, 0, 0, data) for flags, data in self.data]]
        header_size = 64 if wide else 52
        body, sections = b"", self._section(0, 0, 0, 0, 0)
        for kind, flags, link, entry, data in contents:
            sections += self._section(kind, link, entry, header_size + len(body), len(data), flags)
            body += data + bytes(-len(data) % 8)
        ident = b"\x7fELF" + bytes([2 if wide else 1, 2 if self.order == ">" else 1, 1]) + bytes(9)
        address = "Q" if wide else "I"
        rest = struct.pack(self.order + "HHI" + 3 * address + "IHHHHHH", self.kind, self.machine, 1,
                           0, 0, header_size + len(body), self.flags, header_size, 0, 0,
                           64 if wide else 40, len(contents) + 1, 0)
        return ident + rest + body + sections
