#!/bin/sh
# Doxygen input filter: inside an enum macro, a case with a raw text, `(NAME, "raw")`, reads as plain
# `NAME`, so the macro expands to an enum Doxygen can list. Lines are kept so warnings point home.
exec perl -pe '
  $in = 1 if /VELORA_ENUM\(/;
  s/\(([A-Za-z_]\w*),\s*"[^"]*"\)/$1/g if $in;
  $in = 0 if /\);/;
' "$1"
