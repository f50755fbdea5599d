#!/usr/bin/env python3
"""Doxygen input filter: the public headers explain themselves in plain // comments, and
this filter lets Doxygen read them as documentation without a second comment syntax in
the sources.

- A comment block directly above a declaration at namespace, class or enum scope becomes
  that declaration's documentation (///).
- A comment after a declaration on the same line documents that member (///<), and so do
  the comment lines aligned under it.
- A comment block above a run of declarations (no blank line between them) documents the
  run: overloads of one name, a list of constants and a list of type aliases share it. The declarations after the
  first get its first sentence as a trailing comment, unless they have one of their own.
- The first comment block of a file, set apart by a blank line, describes the file.
- Comments inside function bodies and blocks followed by a blank line stay comments.
Lines are never added or removed, so Doxygen's line numbers stay those of the header.
"""
import re
import os
import sys

NAME = ""

SCOPE_OPENER = re.compile(r"\b(namespace|class|struct|union|enum)\b|extern\s+\"C\"")
WHOLE = re.compile(r"^(\s*)//(?![/!])\s?(.*)$")
TRAILING = re.compile(r"^(.*?[;,{}]|.*\))\s*//(?![/!<])\s?(.*)$")


def as_markdown(text):
    """Lines set in by two or more spaces are examples (code, packets): a code block."""
    return "    " + text if text.startswith("  ") else text


def in_body(stack):
    return any(kind == "body" for kind in stack)


NAME_OF_FUNCTION = re.compile(r"(operator\s*[^\s(]+|~?[A-Za-z_]\w*)\s*\(")
NAME_OF_VARIABLE = re.compile(r"([A-Za-z_]\w*)\s*(\[[^\]]*\])?\s*(=|;|\{)")


def statement_end(lines, start):
    """The last line of the declaration that starts at `start` (one that ends at depth 0
    with ';' or a closing brace), or None when it is not one."""
    depth = 0
    for k in range(start, min(start + 12, len(lines))):
        code = lines[k].split("//", 1)[0]
        for ch in code:
            if ch in "({[":
                depth += 1
            elif ch in ")}]":
                depth -= 1
        stripped = code.rstrip()
        if depth == 0 and stripped.endswith((";", "}")):
            return k
        if depth < 0:
            return None
    return None


def declared_name(text):
    """The name a one-statement declaration declares: a function's or a variable's."""
    text = text.split("//", 1)[0]
    head = text.split("=", 1)[0] if "(" not in text.split("=", 1)[0] else text
    m = NAME_OF_FUNCTION.search(head)
    if m:
        return m.group(1).replace(" ", "")
    m = NAME_OF_VARIABLE.search(text)
    return m.group(1) if m else None


def first_sentence(comment_lines):
    text = " ".join(WHOLE.match(line).group(2).strip() for line in comment_lines)
    m = re.match(r"(.+?[.:!?])(\s|$)", text)
    sentence = m.group(1) if m else text
    return sentence.rstrip(":") + ("" if sentence.endswith(".") else ".")


def share_with_run(lines, out, i, j):
    """Gives the declarations that follow the first one below the comment lines[i:j] its
    first sentence, while they are overloads of the first one's name or, for a constant,
    further constants."""
    indent = len(lines[j]) - len(lines[j].lstrip())
    end = statement_end(lines, j)
    if end is None:
        return
    first = " ".join(lines[j:end + 1])
    name = declared_name(first)
    constant = "constexpr" in first.split("(", 1)[0]
    alias = first.lstrip().startswith("using ")
    if name is None:
        return
    k = end + 1
    while k < len(lines):
        line = lines[k]
        if not line.strip() or line.lstrip().startswith(("//", "#", "}", "public:", "private:",
                                                         "protected:")):
            return
        if len(line) - len(line.lstrip()) != indent:
            return
        last = statement_end(lines, k)
        if last is None:
            return
        text = " ".join(lines[k:last + 1])
        same = (declared_name(text) == name or
                (constant and "constexpr" in text.split("(", 1)[0]) or
                (alias and text.lstrip().startswith("using ")))
        if not same:
            return
        if "//" not in lines[last] and '"' not in lines[last].split(";")[-1]:
            out[last] = lines[last] + "  ///< " + first_sentence(lines[i:j])
        k = last + 1


def filter_lines(lines):
    out = list(lines)
    stack = []  # "scope" or "body" for every open brace
    seen_code = False
    pending_scope = False  # a scope keyword seen, its brace not yet
    trailing_column = None
    i = 0
    while i < len(lines):
        line = lines[i]
        whole = WHOLE.match(line)
        if whole:
            # A block of whole-line comments: lines i..j-1.
            j = i
            while j < len(lines) and WHOLE.match(lines[j]):
                j += 1
            column = len(whole.group(1))
            if trailing_column is not None and column == trailing_column:
                for k in range(i, j):
                    m = WHOLE.match(lines[k])
                    out[k] = f"{m.group(1)}///< {m.group(2)}"
            elif not in_body(stack):
                follows = lines[j] if j < len(lines) else ""
                if follows.strip() == "" and not seen_code:
                    first = WHOLE.match(lines[i])
                    out[i] = f"{first.group(1)}/// @file {NAME} {first.group(2)}"
                    for k in range(i + 1, j):
                        m = WHOLE.match(lines[k])
                        out[k] = f"{m.group(1)}/// {as_markdown(m.group(2))}"
                    seen_code = True
                elif follows.strip() != "" and (follows.lstrip().startswith("#define") or
                                                not follows.lstrip().startswith(("#", "}"))):
                    for k in range(i, j):
                        m = WHOLE.match(lines[k])
                        out[k] = f"{m.group(1)}/// {as_markdown(m.group(2))}"
                    share_with_run(lines, out, i, j)
            trailing_column = None
            i = j
            continue

        stripped = line.strip()
        code = line
        trailing_column = None
        if "//" in line and not stripped.startswith("#"):
            m = TRAILING.match(line)
            # A quote left open before the "//" means the slashes are inside a string.
            if m and not in_body(stack) and m.group(1).count('"') % 2 == 0:
                out[i] = f"{m.group(1)}  ///< {m.group(2)}"
                trailing_column = line.index("//", len(m.group(1)))
            code = line.split("//", 1)[0]
        if stripped and not stripped.startswith("#"):
            seen_code = True
        if SCOPE_OPENER.search(code):
            pending_scope = True
        for ch in code:
            if ch == "{":
                stack.append("scope" if pending_scope else "body")
                pending_scope = False
            elif ch == "}":
                if stack:
                    stack.pop()
            elif ch == ";":
                pending_scope = False
        i += 1
    return out


def main():
    global NAME
    # The name as hosts include it, so that headers of the same name stay apart.
    path = sys.argv[1].replace(os.sep, "/")
    NAME = path[path.rfind("tessel_link/"):] if "tessel_link/" in path else os.path.basename(path)
    with open(sys.argv[1], encoding="utf-8") as f:
        lines = f.read().split("\n")
    sys.stdout.write("\n".join(filter_lines(lines)))


if __name__ == "__main__":
    main()
