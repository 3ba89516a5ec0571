" Settings for templates; Neovim shows what orv-check finds, see :help orv.
if exists('b:did_ftplugin')
  finish
endif
runtime! ftplugin/html.vim
let b:did_ftplugin = 1
setlocal commentstring=<?--\ %s\ ?>

if has('nvim')
  lua require('orv').start()
endif
