#!/bin/bash
# tests/translating.sh DOCUMENT SITE TOOLS - walks the road that the document shows
# translators: its commands run as they stand there, in a copy of the demo site, and what
# it translates in an entry is put into the file of the language.
set -euo pipefail
document=$(realpath "$1")
site=$(realpath "$2")
PATH=$(realpath "$3"):$PATH
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cp "$site"/*.htm "$site"/*.frm "$site"/*.svg "$work"
mkdir "$work/texts"
cp "$site/texts/en.po" "$work/texts"
cd "$work"

# Blocks of commands, and of entries, in the document's order.
kind=
number=0
while IFS= read -r line; do
    case $line in
    '```sh' | '```po' | '```json')
        kind=${line#'```'}
        block=
        ;;
    '```')
        if [[ $kind == sh ]]; then
            bash -e -c "$block" >>out 2>>err || { cat err && exit 1; }
            number=$((number + 1))
        elif [[ $kind == json ]]; then
            echo "$block" >orv-check.json
        elif [[ $kind == po && $number -eq 2 ]]; then # the entry that is translated
            id=$(sed -n 's/^msgid "\(.*\)"$/\1/p' <<<"$block")
            text=$(sed -n 's/^msgstr "\(.*\)"$/\1/p' <<<"$block")
            sed -i "/^msgid \"$id\"$/{n;s/\"\"/\"$text\"/}" texts/it.po
        fi
        kind=
        ;;
    *) block+=${line}$'\n' ;;
    esac
    # One command has done it all, and the road begins anew.
    if [[ $line == '## The road'* ]]; then
        [[ -s device/etc/htmltext_en.db && $(orv-textdb status --json texts/it.po) == *'"translated": 0,'* ]]
        [[ $(orv-textdb sync) == 'nothing to do: 2 languages are up to date' ]]
        rm -r device texts/it.po orv-check.json
    fi
    # The source changes where the road comes to that.
    [[ $line != '### 5.'* ]] || sed -i 's/Skip to content/Skip to the main part/' texts/en.po
done <"$document"
[[ $number -eq 11 ]]
grep -q 'Vai al contenuto' overview.html
grep -q '^texts/it.po  it  *1  *0 ' out
grep -q '^texts/it.po:[0-9]*: site.menu$' out
grep -q '\[~*Šķîþ ţö ţĥé ɱåîñ' pseudo.html
diff - <(grep '<p>' plurals/files.html) <<<'<p>1 plik</p>
<p>3 pliki</p>
<p>12 plików</p>'
grep -A1 '^msgid "site.skip"' texts/it.po | grep -q 'Vai al contenuto'
[[ $(tail -n 1 out) == 'texts/it.po: '*' 0 new, 0 changed, 0 gone' ]]
if grep 'warning:' err; then exit 1; fi
grep -q '^header.frm:[0-9]*: Fjord R4$' out
grep -q '^#| msgid "Skip to content"' out
