#!/bin/bash
# scripts/analyze.sh - looks at the library and the tools with clang-tidy and
# cppcheck, at the form of every source with clang-format, and at the documents: their
# spelling, their links, and what readers of manual pages say. Ends with status 1
# when any of them finds anything.
set -euo pipefail
cd "$(dirname "$(realpath "$0")")/.."
# shellcheck source=scripts/setup.sh
. scripts/setup.sh

need cmake:cmake "$builder" crypt.h:libcrypt-dev clang++:clang bison:bison clang-tidy:clang-tidy \
    clang-format:clang-format \
    cppcheck:cppcheck sqlite3.h:libsqlite3-dev gettext-po.h:libgettextpo-dev \
    nlohmann/json.hpp:nlohmann-json3-dev codespell:codespell mandoc:mandoc pandoc:pandoc
build=$PWD/build/analyze
# Without a launcher that the environment may name: cppcheck sees no file behind one.
env -u CMAKE_CXX_COMPILER_LAUNCHER -u CMAKE_C_COMPILER_LAUNCHER cmake -S . -B "$build" \
    -G "$generator" -DORV_TESTS=OFF -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_C_COMPILER=clang
cmake --build "$build" --target orv_parser embedded
status=0
git ls-files '*.cpp' '*.h' '*.c' | xargs clang-format --dry-run --Werror || status=1
# The words are a function of SQL, pieces of words, and other languages' in examples.
git ls-files | grep -v '\.\(po\|png\|svg\)$\|^fuzz/\|^tests/' |
    xargs codespell --ignore-regex '\b[a-z]+[A-Z]\w*' \
        --ignore-words-list iif,doub,curren,skipp,titel,adresse,ist,isnt || status=1
packaging/site.sh || status=1
for page in orv-templates.7:templates.md orvinterpreter.3:embedding.md; do
    packaging/man.sh "$build/${page%:*}.gz" "docs/${page#*:}" &&
        zcat "$build/${page%:*}.gz" | mandoc -Tlint -Wwarning || status=1
done
# The generated parser is left to its generator; the grammar's actions are calls.
printf "%s\n" {base,interface,scanner,grammar,exec,vars,textdb,host,tools/{common,render,textdb,check,preview},examples/zarn}/*.cpp |
    xargs -n 1 -P "$(nproc)" clang-tidy -p "$build" --quiet || status=1
# useStlAlgorithm: a loop of two lines needs no algorithm. unusedStructMember: it does not
# see members that are taken out by structured bindings.
# The observer's answers are constants in the shipped build, and it takes a list of values;
# a Json is made of whatever it can hold.
looked=$build/cppcheck.log
cppcheck --project="$build/compile_commands.json" -i"$build" --error-exitcode=1 \
    --enable=warning,style,performance,portability --suppress=useStlAlgorithm \
    --suppress=unusedStructMember --suppress="knownConditionTrueFalse:$PWD/scanner/scanner.cpp" \
    --suppress="unusedScopedObject:$PWD/base/observe.h" \
    --suppress="noExplicitConstructor:$PWD/tools/common/json.h" \
    --suppress="*:$build/*" >"$looked" || status=1
grep -q '^Checking .*scanner\.cpp' "$looked" || {
    echo "analyze.sh: cppcheck has not looked at the sources" >&2
    status=1
}
exit "$status"
