#!/bin/bash
# check_vim.sh EDITORS ORV-CHECK - Vim's syntax of templates, in words: each row has a text and,
# for the byte in brackets, the name of its highlighting. Then Neovim with the language server.
set -euo pipefail
tests=$(dirname "$(realpath "$0")")
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cat >"$folder/t.frm" <<'END'
<p title="<?echo $var:user?>">{?site.skip?} text</p>
<?if eq $1 '2' `<b class="x">$2</b>`?><?-- a <?echo b?> c ?><i>
<?repeat [ 1 3 ] `$0`?><script>var a = "<?echo b?>";</script>
END
# The commands that there are, a line each.
sed -nE "s/^    \{\"([^\"]+)\", Tail::(BLANK|VARIABLE|TEXT),.*/<?\1 x?>/p
    s/^    \{\"([^\"]+)\", Tail::OPERATOR, '(.)',.*/<?\1 \2 x?>/p
    s/^    \{\"([^\"]+)\", Tail::(NAME|ELEMENT),.*/<?\1 var:a x?>/p" \
    "$1/../grammar/commands.h" >"$folder/commands"
cat "$folder/commands" >>"$folder/t.frm"
cat >"$folder/test.vim" <<'END'
let v:errmsg = ''
set nocompatible
filetype plugin on
syntax on
edit t.frm
function Expect(line, piece, offset, name)
  let column = stridx(getline(a:line), a:piece) + 1 + a:offset
  let got = synIDattr(synID(a:line, column, 1), 'name')
  if got !=# a:name
    call writefile([printf('%d %s: got %s, not %s', a:line, a:piece, got, a:name)], 'wrong', 'a')
  endif
endfunction
call Expect(1, 'p title', 0, 'htmlTagName')
call Expect(1, '<?echo', 0, 'orvDelimiter')
call Expect(1, 'echo', 0, 'orvKeyword')
call Expect(1, '$var:user', 5, 'orvVariable')
call Expect(1, '{?site', 3, 'orvField')
call Expect(1, '</p', 2, 'htmlTagName')
call Expect(2, 'if eq', 3, 'orvKeyword')
call Expect(2, '$1', 1, 'orvValue')
call Expect(2, "'2'", 1, 'orvSingle')
call Expect(2, '$2', 0, 'orvValue')
call Expect(2, '<?echo b', 2, 'orvNested')
call Expect(2, ' c ?>', 1, 'orvComment')
call Expect(2, '<i>', 1, 'htmlTagName')
call Expect(3, 'repeat [', 7, 'orvKeyword')
call Expect(3, '$0', 0, 'orvValue')
call Expect(3, 'var a', 0, 'javaScriptIdentifier')
call Expect(3, 'echo', 0, 'orvKeyword')
call Expect(3, '";<', 0, 'javaScriptStringD')
for line in range(4, line('$'))
  call Expect(line, '<?', 2, 'orvKeyword')
endfor
" A page is known as one by any of them.
for line in readfile('commands')
  call writefile([line], 'page.htm')
  silent edit! page.htm
  if &filetype !=# 'orv'
    call writefile(['no template: ' . line], 'wrong', 'a')
  endif
  set filetype=
endfor
edit! t.frm
call writefile([&filetype, &commentstring, v:errmsg, line('$') > 20], 'done')
qall!
END
cd "$folder"
vim -u NONE -i NONE -n -es --cmd "set runtimepath^=$1/vim" -S test.vim </dev/null || true
cat wrong 2>/dev/null && exit 1
[[ $(cat done) == $'orv\n<?-- %s ?>\n\n1' ]] || { echo "no filetype, or an error: $(cat done)"; exit 1; }

# Neovim, with the plugin where a plugin manager puts it.
cp -R "$1/../examples" site
cat >site/site/try.htm <<'END'
<!DOCTYPE html>
<?multiquery 'select id from device' `$1 $7`?>
<p><?echo $var:tokne?></p>
END
mkdir -p data/nvim/site/pack/orv/start
ln -s "$(realpath "$1/vim")" data/nvim/site/pack/orv/start/orv
echo "require('orv').setup({ cmd = { '$2', '--lsp' } })" >init.lua
XDG_DATA_HOME=$folder/data XDG_STATE_HOME=$folder XDG_CACHE_HOME=$folder timeout 120 \
    nvim --headless -n -i NONE -u init.lua site/site/try.htm -c "luafile $tests/check_nvim.lua" -c cquit!
