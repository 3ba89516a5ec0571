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

# As old as the version is: a build's own date would make each page another one.
date=$(sed -n 's/^## [0-9.]* - //p;T;q' "$(dirname "$0")/../CHANGES.md")

pages='orv-render(1) orv-textdb(1) orv-check(1) orv-preview(1) orvinterpreter(3) orvhost(3) orv-templates(7)'

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

# The document's title becomes the page's, its sections the page's sections. Examples are
# told apart by words, as there are no colours.
document_page() {
    local doc=$1 header=${2-} title names=$name
    title=$(sed -n 's/^# //p;T;q' "$doc")
    [[ -z $header ]] ||
        names+=$(sed -n 's/^ORV_[A-Z_]*API.*\(Orv_[A-Za-z]*_[A-Za-z]*\)(.*/, \1/p' "$header" | tr -d '\n')
    {
        printf '# NAME\n\n%s - %s\n\n' "$names" "${title,}"
        [[ -z $header ]] || printf '# SYNOPSIS\n\n`#include <%s>`\n\n' "$(basename "$header")"
        sed '0,/^# /{/^# /!d;s/.*/# DESCRIPTION/}; s/^##/#/
            s/\[\([^]]*\)\](#[^)]*)/\1/g
            s/^```page$/Page:\n\n&/; s/^```log$/Log:\n\n&/; s/^```request$/Request:\n\n&/
            s/^```\([a-z0-9-]*\.[a-z]*\)$/\1:\n\n&/' "$doc"
        if [[ -n $header ]]; then
            printf '\n# The header\n\n'
            "$(dirname "$0")/declarations.sh" "$header"
        fi
        printf '\n# SEE ALSO\n\n%s\n' "$(see_also)"
    } >"$work/page.md"
    pandoc --standalone --from=gfm-smart --to=man --metadata=title:"${name^^}" --metadata=date:"$date" \
        --metadata=section:"$section" --metadata=hyphenate:false --variable=header:"$title" "$work/page.md"
}

# tidy - takes out of a page what not all readers of manual pages know: fonts of a fixed
# width, and paragraphs right behind a heading; a month for a date.
tidy() {
    sed 's/\\f\[VB\?\]/\\f[B]/g; s/\\f\[C\]/\\f[R]/g; s/^\(\.TH [^ ]* [^ ]*\) "[A-Z][a-z]* [0-9]*"/\1 "'"$date"'"/' |
        awk '!/^\.PP/ || before !~ /^\.S[HS]/; {before = $0}'
}

case $2 in
*.md) document_page "${@:2}" ;;
*) program_page "$2" ;;
esac | tidy >"$work/made"
gzip -9n <"$work/made" >"$page"
