" A .frm file is a piece of a page; a .htm file is a template when it has a command or a
" text field.
function! s:IsTemplate() abort
  return search('<?\s*\%(--\|if\s\|echo\s\|print\|include\s\|setvariable\|repeat\s\|\%(multi\)\?query\|calc\s\|error\s\|base64\s\)\|{?[A-Za-z0-9._:]\+?}', 'cnw', 0, 100) > 0
endfunction

autocmd BufNewFile,BufRead *.frm setlocal filetype=orv
autocmd BufNewFile,BufRead *.htm if s:IsTemplate() | setlocal filetype=orv | endif
