" Settings for templates; Neovim shows what orv-check finds. g:orv_check is the command,
" with options such as --db, as a list; an empty list starts nothing.
if exists('b:did_ftplugin')
  finish
endif
runtime! ftplugin/html.vim
let b:did_ftplugin = 1
setlocal commentstring=<?--\ %s\ ?>

if has('nvim') && !empty(get(g:, 'orv_check', ['orv-check', '--lsp']))
  call luaeval('require("orv").start(_A[1], _A[2])',
        \ [get(g:, 'orv_check', ['orv-check', '--lsp']),
        \  get(g:, 'orv_docroot', expand('%:p:h'))])
endif
