" :compiler orv, then :make with the options of orv-check, fills the list of errors.
if exists('current_compiler')
  finish
endif
let current_compiler = 'orv'
CompilerSet makeprg=orv-check\ $*
CompilerSet errorformat=%f:%l:%c:\ %t%*[a-z]:\ %m
