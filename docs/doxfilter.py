#!/usr/bin/env python3
"""Input filter for doxygen: the public headers document every declaration
in plain C comments, so this turns them into documentation comments on the
fly (the headers themselves stay plain C11):

  /* text ...        (a comment that opens a line)  ->  /** text ...
  field;  /* text */ (a comment after a member)     ->  field;  /**< text */

The comment that opens a header describes the whole file (@file). Section
rulers ("/* ---- name") are left alone so that they do not document the next
declaration.
"""
import re
import sys

OPENING = re.compile(r"^(\s*)/\*(?![*!])(?!\s*-{3})")
TRAILING = re.compile(r"([;,{]\s*)/\*(?![*!<])")

with open(sys.argv[1], encoding="utf-8", errors="replace") as f:
    for number, line in enumerate(f):
        if number == 0 and line.strip() == "/*":
            sys.stdout.write("/** @file\n")
            continue
        line = OPENING.sub(r"\1/**", line, count=1)
        line = TRAILING.sub(r"\1/**<", line, count=1)
        sys.stdout.write(line)
