" KORVEL command files. Made by tools/make_editor_files.cpp.
if exists("b:current_syntax")
  finish
endif
syntax case ignore
syntax match korvelLabel "^\s*\w\+:"
syntax keyword korvelCommand 2SLS ARIMA AUTO AXISFMT BAYES BOX CALLOPTI CHECKOUT COEFFICI COINTEGR COMPRESS CONFIDEN CONVERT COPY DELETE DEMONSTR DERIVATI DIAGNOSE DIMENSIO DISPLAY DISTRIB DLAGS DO DUMP END ENDIF ENDO ENDOGENO EQ EXECUTE EXIT EXOGENOU FCAST FILE FLS FORMAT FUZZY GAMES GEN1 GENR GLS GME GOTO GRAPH HELP HETERO IDENTITY IF IF1 IMLS INDEX INQUIRE INSTRUME INTEGRAT KORVEDIT LAGGED LAGS LAMBDA LIST LOGIT LP MATRIX MENU MLE NAMEFMT NAMES NLINEAR NONPAR OLS OLSQ PAR PARM PAUSE PCOMPONE PLOT PLOTS POOL PORTFOLI PRINT PROBIT PROC PROCEDUR PROCEND PUTOPTIO QP QUIT READ RENAME RESET RESTORE RESTRICT REWIND ROBUST SAMPLE SAVE SET SIZE SKIPIF SMOOTH SMPL SORT SPREAD STAT STATS STOCKGRA STOP SYSTEM TABLES TEST TIME TIMEFMT TITLE TOBIT USER VAR WRITE
syntax keyword korvelFunction ABS CHOL DATA DET DIAG DUM EIGVAL EIGVEC EXP FACT IDEN INT INV LAG LGAM LOG MAX MIN MISS MOD NCDF NOR RANK RECODE SAMP SEAS SIN SQRT SUM SVD SYM TIME TRACE TRI UNI USER VEC
syntax match korvelTemporary "\$\(\(ADR2\|AIC\|ANF\|CDF\|CHI\|COLS\|CRIT\|CT11\|CT12\|CT22\|CTES\|CV\|DATE\|DF\|DF1\|DF2\|DO\|DO10\|DO11\|DO12\|DO13\|DO14\|DO15\|DO16\|DO17\|DO18\|DO2\|DO3\|DO4\|DO5\|DO6\|DO7\|DO8\|DO9\|DURH\|DW\|ERR\|F\|FPE\|GCV\|HQ\|JB\|K\|LAIC\|LLF\|LSC\|MISS\|N\|PDF\|PI\|PVAL\|R2\|R2AN\|R2OP\|RAW\|RHO\|RICE\|ROWS\|SC\|SHIB\|SIG2\|SSE\|SSR\|SST\|STES\|T\|T1\|T2\|T3\|T4\|T5\|T6\|TIME\|VAL\|VAL1\|VAL2\|ZANF\|ZDF\|ZSSR\|ZSST\)\>\)"
syntax match korvelNumber "\<\d\+\(\.\d*\)\?\([ED][-+]\?\d\+\)\?\>"
syntax match korvelOperator "\.\(EQ\|NE\|LT\|LE\|GT\|GE\|AND\|OR\|NOT\)\."
syntax match korvelArgument "\[\w\+\]"
syntax match korvelComment "^\s*\*.*$"
syntax match korvelSystem "^\s*\$.*$"
syntax match korvelContinue "&\s*$"
highlight default link korvelCommand Statement
highlight default link korvelFunction Function
highlight default link korvelTemporary Special
highlight default link korvelNumber Number
highlight default link korvelOperator Operator
highlight default link korvelArgument Identifier
highlight default link korvelComment Comment
highlight default link korvelSystem PreProc
highlight default link korvelContinue Special
highlight default link korvelLabel Label
let b:current_syntax = "korvel"
