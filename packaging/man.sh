#!/bin/bash
# packaging/man.sh PAGE PROGRAM       - makes a program's manual page of its --help
# packaging/man.sh PAGE DOC [HEADER]  - makes one of a document, and of a C header's comments
# So a manual page has no text of its own but the list of pages at its end. PAGE is named
# NAME.SECTION.gz.
set -euo pipefail
export LC_ALL=C.UTF-8
page=$1
name=$(basename "$page" .gz)
section=${name##*.}
name=${name%.*}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

pages='orv-render(1) orv-textdb(1) orv-check(1) orv-preview(1) orvinterpreter(3) orv-templates(7)'

# The other pages, and where the documents are.
see_also() {
    local others
    others=$(sed "s/$name([0-9]) *//; s/ *$//; s/ /, /g" <<<"$pages")
    echo "$others; the documents in /usr/share/doc/liborvinterpreter-doc"
}

# What the program does is told by the line behind "Usage:", up to its first full stop.
# "Exit status:" becomes a section.
program_page() {
    local does
    printf '#!/bin/sh\n%q "$@" | sed "s/^Exit status: /*Exit status*\\n\\n/"\n' "$1" >"$work/$name"
    chmod +x "$work/$name"
    does=$("$1" --help | awk '/^Usage:/ {usage = 1; next} usage && /^[A-Z]/ {said = 1}
        said {printf "%s ", $0} said && /\.( |$)/ {exit}' | sed 's/\. .*//; s/\.$//')
    printf '[SEE ALSO]\n%s\n' "$(see_also)" >"$work/see"
    help2man --no-info --section="$section" --name="${does,}" --include="$work/see" "$work/$name" \
        2>"$work/said" || {
        cat "$work/said" >&2
        return 1
    }
}

# declarations HEADER - each declaration with its comment behind it, as Markdown. What is
# told of an argument, and the results, begin a line, as they do there.
declarations() {
    awk '
        function flush() {
            if (code != "")
                printf "~~~\n%s~~~\n\n%s\n", code, text
            text = code = ""
        }
        /^#ifdef __cplusplus/ {skip = 1}
        skip {skip = !/^#endif/; next}
        /^#(ifndef|include|if|else|endif)/ || /^#define ORV(INTERPRETER_H$|_API)/ {next}
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
}

# The document's title becomes the page's, its sections the page's sections. Examples are
# told apart by words, as there are no colours.
document_page() {
    local doc=$1 header=${2-} title names=$name
    title=$(sed -n 's/^# //p;T;q' "$doc")
    [[ -z $header ]] ||
        names+=$(sed -n 's/^ORV_API.*\(Orv_Interpreter_[A-Za-z]*\)(.*/, \1/p' "$header" | tr -d '\n')
    {
        printf '# NAME\n\n%s - %s\n\n' "$names" "${title,}"
        [[ -z $header ]] || printf '# SYNOPSIS\n\n`#include <%s>`\n\n' "$(basename "$header")"
        sed '0,/^# /{/^# /!d;s/.*/# DESCRIPTION/}; s/^##/#/
            s/^```page$/Page:\n\n&/; s/^```log$/Log:\n\n&/' "$doc"
        if [[ -n $header ]]; then
            printf '\n# The header\n\n'
            declarations "$header"
        fi
        printf '\n# SEE ALSO\n\n%s\n' "$(see_also)"
    } >"$work/page.md"
    pandoc --standalone --from=gfm-smart --to=man --metadata=title:"${name^^}" \
        --metadata=section:"$section" --metadata=hyphenate:false --variable=header:"$title" "$work/page.md"
}

case $2 in
*.md) document_page "${@:2}" ;;
*) program_page "$2" ;;
esac >"$work/made"
gzip -9n <"$work/made" >"$page"
