#!/bin/bash
# The API reference from the public headers.
#   tools/api-docs.sh html OUTDIR   writes OUTDIR/html/index.html
#   tools/api-docs.sh check         fails, listing them, when a public symbol has no documentation
set -euo pipefail
cd "$(dirname "$0")/.."
command -v doxygen >/dev/null || { echo "api-docs: doxygen is not installed (apt-get install doxygen)" >&2; exit 1; }
mode=${1:-}
case "$mode" in
  html) out=${2:?usage: tools/api-docs.sh html OUTDIR}; mkdir -p "$out"; settings="GENERATE_HTML=YES" ;;
  # Doxygen wants one output; the XML is the quickest to write.
  check) out=$(mktemp -d); trap 'rm -rf "$out"' EXIT; settings="GENERATE_HTML=NO
GENERATE_XML=YES" ;;
  *) echo "usage: tools/api-docs.sh html OUTDIR | check" >&2; exit 2 ;;
esac
# Settings given after the file's own win; the warnings go to stderr, one line each.
{ cat docs/api/Doxyfile; printf '%s\n' "OUTPUT_DIRECTORY=$out" "$settings" "WARN_AS_ERROR=FAIL_ON_WARNINGS"; } |
  doxygen - >/dev/null
