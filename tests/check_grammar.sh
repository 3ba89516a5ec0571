#!/bin/bash
# check_grammar.sh EDITORS BUILD - installs the tokenizer of editors below BUILD and runs
# check_grammar.js. Exit status 77 where no registry can be reached to install it.
set -euo pipefail
tests=$(dirname "$(realpath "$0")")
mkdir -p "$2/npm"
cd "$2/npm"
if [[ ! -d node_modules/vscode-oniguruma ]]; then
    npm install --no-audit --no-fund --no-save vscode-textmate@9 vscode-oniguruma@2 >log 2>&1 || {
        tail -3 log
        npm ping >/dev/null 2>&1 && exit 1
        exit 77
    }
fi
exec node "$tests/check_grammar.js" "$1" "$PWD/node_modules"
