" Templates of the interpreter: HTML with commands between <? and ?> and text fields
" between {? and ?}. HTML around and between them stays HTML.
if exists('b:current_syntax')
  finish
endif
runtime! syntax/html.vim
unlet! b:current_syntax

syntax cluster orvInside contains=orvCommand,orvField,orvVariable,orvValue,orvComment
syntax region orvComment matchgroup=orvComment start=/<?--/ end=/?>/ contains=orvNested containedin=ALLBUT,orvComment,orvNested
syntax region orvNested matchgroup=orvNested start=/<?/ end=/?>/ contained contains=orvNested
syntax match orvField /{?[A-Za-z0-9._:]\+?}/ containedin=ALLBUT,orvComment,orvNested
syntax region orvCommand matchgroup=orvDelimiter start=/<?\%(\_s*\%(if\_s\+\)\?\l\)\@=/ end=/?>/ contains=@orvInside,orvKeyword,orvDouble,orvSingle,orvBack containedin=ALLBUT,orvComment,orvNested,@orvWords extend
" Scripts and styles are of other files, whose groups ALLBUT leaves out.
syntax region orvComment matchgroup=orvComment start=/<?--/ end=/?>/ contains=orvNested containedin=@htmlJavaScript,@htmlCss,javaScriptStringD,javaScriptStringS,javaScriptStringT,cssStringQ,cssStringQQ
syntax match orvField /{?[A-Za-z0-9._:]\+?}/ containedin=@htmlJavaScript,@htmlCss,javaScriptStringD,javaScriptStringS,javaScriptStringT,cssStringQ,cssStringQQ
syntax region orvCommand matchgroup=orvDelimiter start=/<?\%(\_s*\%(if\_s\+\)\?\l\)\@=/ end=/?>/ contains=@orvInside,orvKeyword,orvDouble,orvSingle,orvBack containedin=@htmlJavaScript,@htmlCss,javaScriptStringD,javaScriptStringS,javaScriptStringT,cssStringQ,cssStringQQ extend
syntax match orvKeyword /\%(<?\_s*\)\@<=\%(if\_s\+\)\?\%(eq\|neq\|gte\?\|lte\?\|and\|or\)\_s\@=/ contained
syntax match orvKeyword /\%(<?\_s*\)\@<=\%(echo\|printjs\|print\|include\|base64\|\%(multi\)\?query\%(text\|js\)\?\|multiquerycount\|error\_s\+\%(found\|message\)\)\_s\@=/ contained
syntax match orvKeyword /\%(<?\_s*\)\@<=setvariable\%(once\)\?\_s\@=/ contained
syntax match orvKeyword /\%(<?\_s*\)\@<=repeat\_s\+[][]/ contained
syntax match orvKeyword /\%(<?\_s*\)\@<=calc\_s\+["'`]\?[-+*/]["'`]\?\_s\@=/ contained
syntax match orvVariable /\$\?var:[A-Za-z0-9]\+\%(\[[^]]*\]\)\?/ contained
syntax match orvValue /\$\%(\d[0-9a-z]\|[0-9a-z]\)\%(ar:\)\@!/ contained
syntax region orvDouble start=/"/ end=/"\|?>\@=/me=e contained contains=@orvInside
syntax region orvSingle start=/'/ end=/'\|?>\@=/me=e contained contains=@orvInside
syntax region orvBack start=/`/ end=/`\|?>\@=/me=e contained contains=@orvInside
syntax cluster orvWords contains=orvKeyword,orvVariable,orvValue,orvField

highlight default link orvComment Comment
highlight default link orvNested Comment
highlight default link orvDelimiter PreProc
highlight default link orvKeyword Statement
highlight default link orvField Special
highlight default link orvVariable Identifier
highlight default link orvValue Identifier
highlight default link orvDouble String
highlight default link orvSingle String
highlight default link orvBack String

let b:current_syntax = 'orv'
