#!/bin/bash
# packaging/declarations.sh HEADER [HEADING] - prints each declaration of a C header with its
# comment behind it, as Markdown. What is told of an argument, and the results, begin a line,
# as they do there. HEADING, such as ##, makes the name of each function a heading.
set -euo pipefail
awk -v heading="${2-}" '
    function flush() {
        if (heading != "" && match(code, /Orv_Interpreter_[A-Za-z]+\(/))
            printf "%s %s\n\n", heading, substr(code, RSTART, RLENGTH - 1)
        if (code != "")
            printf "~~~c\n%s~~~\n\n%s\n", code, text
        text = code = ""
    }
    /^#ifdef __cplusplus/ {skip = 1}
    skip {skip = !/^#endif/; next}
    /^#(ifndef|include|if|else|endif)/ || /^#define ORV(INTERPRETER_H$|HOST_H$|_API|_HOST_API)/ {next}
    /^\/\*/ {flush(); comment = 1}
    comment {
        comment = !/\*\/$/
        gsub(/^\/\* ?|^ \* ?|^ \*$| ?\*\/$/, "")
        gsub(/[][_*<>`\\&#]/, "\\\\&")
        if (text ~ /[^\n]\n$/ && /^([a-z][A-Za-z]*: |Returns )/)
            sub(/\n$/, "\\\n", text)
        text = text $0 "\n"
        next
    }
    /^$/ {flush(); next}
    {
        if (margin)
            sub(/^        /, "")
        margin = sub(/^ORV_API /, "") || (margin && !/;/)
        code = code $0 "\n"
    }' "$1"
