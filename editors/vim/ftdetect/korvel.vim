autocmd BufRead,BufNewFile *.kor,*.prc,*.PRC setfiletype korvel
