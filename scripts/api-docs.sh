#!/usr/bin/env bash
# Builds the API reference of include/varnik.h with Doxygen (Debian package doxygen) and fails
# on any Doxygen warning, an undocumented export included.
#
#   scripts/api-docs.sh [OUTPUT_DIR]     default build/api-docs; open OUTPUT_DIR/html/index.html
#
# Exit status 77, with one "SKIPPED:" line, where doxygen is not installed.
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
out="${1:-$root/build/api-docs}"

if ! command -v doxygen >/dev/null; then
  echo "SKIPPED: doxygen is not installed (scripts/install-deps.sh doxygen)"
  exit 77
fi
version=$(sed -n 's/^project(Varnik VERSION \([0-9.]*\).*/\1/p' "$root/CMakeLists.txt")
mkdir -p "$out"
warnings="$out/warnings.log"
# Doxygen reads its settings from standard input; later lines win.
{
  doxygen -s -g - 2>/dev/null
  cat <<CONFIG
PROJECT_NAME           = Varnik
PROJECT_NUMBER         = $version
PROJECT_BRIEF          = "Driver library for the NEW6210 payment terminal"
OUTPUT_DIRECTORY       = $out
INPUT                  = $root/include/varnik.h
STRIP_FROM_PATH        = $root/include
OPTIMIZE_OUTPUT_FOR_C  = YES
EXTRACT_ALL            = NO
WARN_IF_UNDOCUMENTED   = YES
WARN_IF_DOC_ERROR      = YES
WARN_NO_PARAMDOC       = YES
WARN_LOGFILE           = $warnings
QUIET                  = YES
GENERATE_HTML          = YES
GENERATE_LATEX         = NO
GENERATE_MAN           = NO
HAVE_DOT               = NO
CLASS_GRAPH            = NO
MACRO_EXPANSION        = YES
EXPAND_ONLY_PREDEF     = YES
PREDEFINED             = __cplusplus VARNIK_CALL= VARNIK_CLASS=
CONFIG
} | doxygen - >/dev/null

if [ -s "$warnings" ]; then
  cat "$warnings"
  echo "api-docs: $(wc -l <"$warnings") warning line(s) from Doxygen" >&2
  exit 1
fi
echo "API reference: $out/html/index.html"
