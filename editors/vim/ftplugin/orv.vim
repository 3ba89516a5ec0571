" Settings for templates; Neovim shows what orv-check finds. g:orv_check is the command, with
" options, as a list; an empty list starts nothing. The site is the folder of the nearest
" orv-check.json above the file, or else g:orv_docroot.
if exists('b:did_ftplugin')
  finish
endif
runtime! ftplugin/html.vim
let b:did_ftplugin = 1
setlocal commentstring=<?--\ %s\ ?>

if has('nvim') && !empty(get(g:, 'orv_check', ['orv-check', '--lsp']))
  let s:file = findfile('orv-check.json', escape(expand('%:p:h'), ' ,;') . ';')
  call luaeval('require("orv").start(_A[1], _A[2])',
        \ [get(g:, 'orv_check', ['orv-check', '--lsp']),
        \  empty(s:file) ? get(g:, 'orv_docroot', expand('%:p:h')) : fnamemodify(s:file, ':p:h')])
endif
