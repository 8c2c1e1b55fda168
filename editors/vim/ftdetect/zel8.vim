" .inc is used by other languages too: only where it looks like this one.
au BufNewFile,BufRead *.as,*.asm set filetype=zel8
au BufNewFile,BufRead *.inc if search('^\s*\(psect\|\w\+\s\+\(equ\|macro\)\>\)', 'nw') | set filetype=zel8 | endif
