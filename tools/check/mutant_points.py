"""Finds what decides a branch in a C++ source and writes a copy in which each of it can be changed
when the program runs.

A mutant is one such change:
  !   an operand of && and ||, or the condition of an if, a loop or ?:, is turned round;
  op  a comparison gets the operator next to it (< and <=, > and >=, == and !=), && becomes ||.
A change that another one already makes is left out: == and != are not turned round as well."""
import dataclasses
import re

from clang import cindex

Kind = cindex.CursorKind

SWAPS = {"<": "<=", "<=": "<", ">": ">=", ">=": ">", "==": "!=", "!=": "==", "&&": "||",
         "||": "&&"}
FUNCTIONS = {"<": "Less", "<=": "LessEqual", ">": "Greater", ">=": "GreaterEqual"}
DEFINITIONS = (Kind.FUNCTION_DECL, Kind.CXX_METHOD, Kind.CONSTRUCTOR, Kind.DESTRUCTOR,
               Kind.FUNCTION_TEMPLATE)
WRAPPERS = (Kind.UNEXPOSED_EXPR, Kind.PAREN_EXPR)

# What the copies call. Mutant 0 is none.
SUPPORT = """#ifndef KESTRAV_MUTANTS_H_
#define KESTRAV_MUTANTS_H_
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <type_traits>

namespace kestrav_mutants {

inline int Number(const char* text) { return text != nullptr ? std::atoi(text) : 0; }
inline const int active = Number(std::getenv("KESTRAV_MUTANT"));

// The mutants that a run comes by, written to the file KESTRAV_REACHED at its end.
class Reached {
 public:
  Reached() : path(std::getenv("KESTRAV_REACHED")) {}
  ~Reached() {
    std::FILE* const file = path != nullptr ? std::fopen(path, "w") : nullptr;
    if (file == nullptr) return;
    for (int i = 0; i < kCount; ++i) {
      if (mutants[i].load(std::memory_order_relaxed)) std::fprintf(file, "%d\\n", i);
    }
    std::fclose(file);
  }
  static constexpr int kCount = @COUNT@;
  const char* const path;
  std::atomic<bool> mutants[kCount] = {};
};
inline Reached reached;

inline bool OnNow(int mutant) {
  if (reached.path != nullptr) reached.mutants[mutant].store(true, std::memory_order_relaxed);
  return mutant == active;
}

// What the compiler evaluates stays as it is.
constexpr bool On(int mutant) { return std::is_constant_evaluated() ? false : OnNow(mutant); }

template <class A, class B>
constexpr bool Less(int mutant, const A& a, const B& b) {
  return On(mutant) ? a <= b : a < b;
}
template <class A, class B>
constexpr bool LessEqual(int mutant, const A& a, const B& b) {
  return On(mutant) ? a < b : a <= b;
}
template <class A, class B>
constexpr bool Greater(int mutant, const A& a, const B& b) {
  return On(mutant) ? a >= b : a > b;
}
template <class A, class B>
constexpr bool GreaterEqual(int mutant, const A& a, const B& b) {
  return On(mutant) ? a > b : a >= b;
}

}  // namespace kestrav_mutants
#endif  // KESTRAV_MUTANTS_H_
"""


@dataclasses.dataclass
class Mutant:
    file: str
    function: str
    change: str
    line: int
    number: int = 0

    @property
    def key(self):
        return self.file, self.function, self.change

    def __str__(self):
        return f"{self.file}:{self.line} {self.function}: {self.change}"


class Source:
    """One file: its mutants in the order of the text, and the text with all of them in it."""

    def __init__(self, path, name, arguments, first_number):
        self.path, self.name = str(path), name
        self.text = path.read_bytes()
        self.mutants, self.edits = [], []
        self.next_number = first_number
        self.seen = set()  # what was already turned round
        language = ["-x", "c++-header"] if path.suffix == ".h" else []
        unit = cindex.Index.create().parse(self.path, args=[*language, *arguments])
        errors = [str(d) for d in unit.diagnostics if d.severity >= cindex.Diagnostic.Error]
        if errors:
            raise SystemExit("mutants: " + "\n".join(errors))
        for cursor in unit.cursor.get_children():
            if cursor.location.file and cursor.location.file.name == self.path:
                self.visit(cursor, "")

    def visit(self, cursor, function):
        if self.is_constant(cursor):
            return
        if cursor.kind in DEFINITIONS:
            parent = cursor.semantic_parent
            owner = parent.spelling if parent.kind in (Kind.CLASS_DECL, Kind.STRUCT_DECL) else ""
            function = f"{owner}::{cursor.spelling}" if owner else cursor.spelling
        condition = self.condition(cursor)
        if condition is not None:
            self.turn_round(condition, function)
        operator = self.operator(cursor)
        if operator is not None:
            self.swap(cursor, operator, function)
        for child in cursor.get_children():
            self.visit(child, function)

    @staticmethod
    def is_constant(cursor):
        """Decided by the compiler, so that nothing can be changed later."""
        if cursor.kind == Kind.STATIC_ASSERT or cursor.kind.is_attribute():
            return True
        if cursor.kind not in (Kind.VAR_DECL, Kind.IF_STMT):
            return False
        words = [token.spelling for _, token in zip(range(4), cursor.get_tokens())]
        return "constexpr" in words

    def condition(self, cursor):
        """The expression that decides which way a statement goes."""
        children = list(cursor.get_children())
        if cursor.kind == Kind.CONDITIONAL_OPERATOR:
            return children[0]
        if cursor.kind == Kind.DO_STMT:
            return children[-1]
        if cursor.kind in (Kind.IF_STMT, Kind.WHILE_STMT):
            return next((c for c in children if c.kind.is_expression()), None)
        if cursor.kind == Kind.FOR_STMT:
            return next((c for c in children[:-1] if self.following(c) == b";"
                         and self.preceding(c) == b";"), None)
        return None

    def operator(self, cursor):
        """The token of a logical operator or a comparison that yields a bool."""
        called = re.fullmatch(r"operator(<|<=|>|>=|==|!=)", cursor.spelling)
        if cursor.kind != Kind.BINARY_OPERATOR and not (cursor.kind == Kind.CALL_EXPR and called):
            return None
        if cursor.type.kind not in (cindex.TypeKind.BOOL, cindex.TypeKind.DEPENDENT):
            return None
        children = list(cursor.get_children())
        left, right = children[0], children[-1]
        for token in cursor.get_tokens():
            if left.extent.end.offset <= token.extent.start.offset < right.extent.start.offset:
                if token.spelling in SWAPS:
                    return token
        return None

    def turn_round(self, condition, function):
        """A comparison for equality or a logical operator is changed as such."""
        condition = self.unwrapped(condition)
        operator = self.operator(condition)
        where = self.extent(condition)
        if (operator is not None and operator.spelling in ("==", "!=", "&&", "||")
                or where in self.seen):
            return
        self.seen.add(where)
        mutant = self.add(condition, function, f"!({self.words(*where)})")
        self.insert(*where, f"(::kestrav_mutants::On({mutant}) != static_cast<bool>(", "))")

    @staticmethod
    def unwrapped(cursor):
        """Without casts and parentheses, and without the ! of an == that stands for !=, which the
        parser puts behind the first operand."""
        while True:
            children = list(cursor.get_children())
            rewritten = (cursor.kind == Kind.UNARY_OPERATOR
                         and children[0].extent.start.offset < cursor.extent.start.offset)
            if not rewritten and (cursor.kind not in WRAPPERS or len(children) != 1):
                return cursor
            cursor = children[0]

    def swap(self, cursor, token, function):
        start, end = self.extent(cursor)
        children = list(cursor.get_children())
        at, behind = token.extent.start.offset, token.extent.end.offset
        old, new = token.spelling, SWAPS[token.spelling]
        change = f"{self.words(start, at)} [{old} -> {new}] {self.words(behind, end)}"
        mutant = self.add(cursor, function, change)
        on = f"::kestrav_mutants::On({mutant})"
        if old in FUNCTIONS:
            self.insert(start, end, f"::kestrav_mutants::{FUNCTIONS[old]}({mutant}, ", ")")
            self.edits.append((at, (0, 0, 0), behind - at, ","))
            return
        self.insert(start, end, "((", f") != {on})")
        if old not in ("&&", "||"):
            return
        # a || b is !(!a && !b), and the other way round
        for side in (children[0], children[-1]):
            self.insert(*self.extent(side), f"({on} != static_cast<bool>(", "))")
        for side in (children[0], children[-1]):
            self.turn_round(side, function)

    def add(self, cursor, function, change):
        mutant = Mutant(self.name, function, change, cursor.extent.start.line, self.next_number)
        same = sum(m.key[1:] == (function, change) or m.change.startswith(change + " #")
                   and m.function == function for m in self.mutants)
        if same:
            mutant.change += f" #{same + 1}"
        self.mutants.append(mutant)
        self.next_number += 1
        return mutant.number

    def insert(self, start, end, before, after):
        """The wider of two insertions at one place is the outer one; so is the earlier of two of
        one width."""
        order = len(self.edits)
        self.edits.append((start, (1, -(end - start), order), 0, before))
        self.edits.append((end, (-1, end - start, -order), 0, after))

    def mutated(self):
        out, at = [], 0
        for place, _, length, text in sorted(self.edits):
            out += [self.text[at:place], text.encode()]
            at = place + length
        return b'#include "kestrav_mutants.h"\n#line 1\n' + b"".join(out) + self.text[at:]

    @staticmethod
    def extent(cursor):
        return cursor.extent.start.offset, cursor.extent.end.offset

    def words(self, start, end):
        return " ".join(self.text[start:end].decode().split())

    def following(self, cursor):
        return self.text[cursor.extent.end.offset:].lstrip()[:1]

    def preceding(self, cursor):
        return self.text[:cursor.extent.start.offset].rstrip()[-1:]


def find(root, folders, arguments):
    """All sources of these folders, in order, with their mutants numbered from 1."""
    sources, number = [], 1
    for folder in folders:
        for path in sorted((root / folder).glob("*.[ch]*")):
            source = Source(path, str(path.relative_to(root)), arguments, number)
            number = source.next_number
            sources.append(source)
    return sources
