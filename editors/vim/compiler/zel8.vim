" :compiler zel8, then :make with the options and sources of zel8
if exists("current_compiler")
  finish
endif
let current_compiler = "zel8"
CompilerSet makeprg=zel8
CompilerSet errorformat=%f:\ %l:\ (%n)\ %m
