// The shared areas: every word that one routine sets and another reads, a member a line.
//
// This file is the glossary of the engine. Each area is one plain record with a default for every
// member and one global object; no constructor runs before KORVELX. A member's comment gives its
// meaning and unit, who sets it and who reads it. Flags begin with O, integer words with I to N,
// K... words are places in the data area. Counting is from 1 unless a member says otherwise.
#pragma once

#include <array>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>

namespace korvel {

inline constexpr int NAMELEN = 24;         // characters of a stored name
inline constexpr int KEYLEN = 8;           // characters that count in command text
inline constexpr int LINELEN = 130;        // columns of an output line
inline constexpr int LINMAX = 262144;      // characters of the longest command
inline constexpr int LIMVAR = 99999999;    // largest MAXVAR that SIZE accepts
inline constexpr int MAXOPS = 40;          // option tokens of one command
inline constexpr int NTEMPS = 80;          // temporaries ($R2 and the like)
inline constexpr double UNSET = -9999999;  // value of a temporary that nobody has set

// Run constants. Set at start (XMISS also by SET MISSVALU=), read everywhere.
struct MaCom {
  int MTYPE = 2;            // integer words in a double
  int NBYTES = 8;           // bytes in a double
  int MACH = 15;            // machine number written into containers
  int MOS = 16;             // host kind: 16 console, 30 and 33 graphical hosts
  int MCMP = 19;            // compiler family written into containers
  int MAXVAR = 1000;        // kept here for a new sizing; see DATCOM.MAXVAR
  double XMISS = -99999.0;  // missing code
  double XNAN = std::numeric_limits<double>::quiet_NaN();
  double EXLIM = 709.0;                    // largest whole number with a finite exp
  double SMALL = 2.2250738585072014E-308;  // smallest normal number
  double EPSNEG = 1.1102230246251565E-16;  // 2**-53
  int IEXLIM = 308;                        // largest decimal exponent that FSUMS takes
  int ILIM = 214748364;                    // largest integer part that may grow by a digit
};
inline constinit MaCom MACOM{};

// The data area and its anchors. Words are doubles; set by the workspace routines.
struct AddCom {
  std::int32_t LASADD = 0;  // last used word, 0 when empty
  std::int32_t MAXADD = 0;  // size of the data area
  std::int32_t SCRTOP = 0;  // words above this one are lent out as scratch; MAXADD when none is
  std::int64_t NEED = 0;    // words that a failed request wanted, for NOCORE
  int KCOEF = 0;            // variable number of the last COEF= result, 0 none
  int KCOV = 0;             // variable number of the last COVARIAN= result, 0 none
  int IDBJ = 0;             // 1 while the last ARIMA estimate can be forecast from (BJCOM.last)
  int KTEST = 0;            // 1 while the last estimate can be tested; see clear_estimate()
};
inline constinit AddCom ADDCOM{};

// The sample, the calendar and the table of variables.
struct DatCom {
  int MAXVAR = 1000;  // most variables; SIZE, PAR and the start set it
  int MXCOL = 2000;   // columns of a compound index: max(2*MAXVAR, 1000) or SET MAXCOLON
  int MCON = 1001;    // pseudo-variable of the constant: MAXVAR+1
  int NVARS = 0;      // entries in use in KADD and VNAME, deleted ones included
  int NDL = 0;        // deleted (blank) entries among them
  int MAXOB = 0;      // highest observation ever reached
  int NOBS = -999;    // IEND-IBEG+1, -999 before the first data
  int IBEG = 1;       // first observation of the sample
  int IEND = -999;    // last one; below 1: no sample is defined yet
  int MBEG = 1;       // working range of the running command
  int MEND = -9999;
  int NOB = 0;     // observations of the working range
  int JBEG = 0;    // after SKIPIT: the observation before the first skipped one
  int LSKIP = 0;   // address of SKIP$ plus 3, so that element i lies at LSKIP+i; 0 none
  int NSKIP = 0;   // before SKIPIT: length of SKIP$; after it: observations lost
  int ITIME1 = 1;  // calendar: start year
  int ITIME2 = 0;  // start sub-period; 0: no calendar
  int ITIME3 = 1;  // periods per year
};
inline constinit DatCom DATCOM{};

// Unit numbers and file settings. Files are held by the platform layer under these numbers.
struct IoCom {
  int L5 = 5;    // main command input
  int L6 = 6;    // normal output
  int L66 = 6;   // output chosen at start
  int LOUT = 0;  // redirect of the output, 0 none (SET OUTUNIT)
  int L7 = 7;    // write unit (SET WRITEUNI)
  int L2 = -92;  // scratch units, negative while not open: open_scratch_unit
  int L3 = -93;
  int L8 = -98;
  int L10 = -90;
  int L86 = 0;         // mirror of the screen (FILE SCREEN), 0 none
  int INDATA = 5;      // unit from which READ takes data
  bool O5 = false;     // input is a named file
  bool O6 = false;     // output is a named file
  bool OHTML = false;  // the output has the web form: its file is named so, or SET HTML said it
};
inline constinit IoCom IOCOM{};

// State of the command reader. The texts live beside it (input.h), since they are large.
struct InpCom {
  int IKOD = 0;      // number of the current command (rank in the command table), 0 none
  int LASKOD = 0;    // number of the command before it
  int LKOD = 0;      // 88 in the editor state; estimators keep their own number here
  int LCOL = 0;      // last non-blank character of the command, counted from 1
  int LCOLEN = 255;  // characters kept of one physical line (SET COMLEN)
  int LINES = 0;     // physical lines read
  int KLINE = 0;     // line of the input on which the current command began, for error reports
  int SPVERR = 0;    // serious input errors: read failures and bad EXECUTE
  int NUNKNO = 0;    // unknown commands of the run
  int NCOMM = 0;     // commands run that count for SIZE
  int IECHO = 0;     // columns that the echo put in front of the command text (2 or 0)
  char COMWRD[KEYLEN + 1] = "        ";  // command word, upper case, blank padded
};
inline constinit InpCom INPCOM{};

// Flags of the running command.
struct OCom {
  bool ODONT = false;   // the command is abandoned
  bool OERR = false;    // the last read failed
  bool OEOF = false;    // the last read met the end of the input
  bool OPUT = true;     // this command prints ("?" in front clears it)
  bool OGENR = false;   // the formula compiler is at work
  bool ONOTIF = false;  // the last IF without a statement was true nowhere: drop the next command
  bool OMAT = false;    // MATRIX mode of the compiler
  bool ONEWV = false;   // the target of the formula is a new variable
  bool OCALC = false;   // calculator statement
  bool OSTOP = false;   // a failure that also ends an interactive block
  bool OFORCE = false;  // the model has no constant
  bool OGCOV = true;    // the kernel forms the covariance matrix
  bool OMEAN = false;   // the estimator works on centred data
  bool OCRY = false;    // data came from an encrypted file: never print them
  int IFAULT = 0;       // numeric failure of the last kernel call
};
inline constinit OCom OCOM{};

// The 54 switches of SET, in table order. RESET puts every one to its default.
struct OsCom {
  bool OECHO = true, OBAT = false, OTERM = true, OFLUSH = false, OKOD = true, ODMMP = false;
  bool OTRACE = false, OSPV = false, OSCAN = false, OVER = false, OTALK = false, ODELL = true;
  bool OMXX = false, OALL = false, OFULL = false, OFMT = false, OLONG = false, OTIM = false;
  bool OOPT = false, OOPUT = true, OSKIP = false, OSMPL = false, OFREN = false, ORANST = false;
  bool OLCOM = false, ODECHO = true, OWARN = true, OHTM = false, ODISK = false, ONWT = true;
  bool OBACK = false, OCC = false, OPAUSE = false, OLC = true, OGRAPH = true, OBAN = false;
  bool OWIDE = false, OSCR = false, OCOLOR = false, OSKWRN = true, OSTA = true, OJAP = false;
  bool OSMISS = false, OLDDO = false, ODB = false, OMSWRN = true, OUMIN = true, OCONT = false;
  bool OBYV = false, OXML = false, ODEB = false, OD52 = false, OD53 = false, OD54 = false;
};
inline constinit OsCom OSCOM{};

// Plot files: numbers of the next names that the engine makes (D001.GNU, C001.GNU, GN000001.png).
// RESET sets them to 1.
struct VplCom {
  int NDATA = 1;
  int NCOMM = 1;
  int KEPTD = 0, KEPTC = 0;  // numbers of the last pair that was kept: APPEND; 0 none
  int NPICT = 1;             // where the search for a free name of a picture begins
  bool OTOLD = false;        // the user knows that gnuplot is missing
  bool OPAGE = false;  // the last character plot, and the last one through gnuplot, are kept: SAME
  bool OKEPT = false;
};
inline constinit VplCom VPLCOM{};

// Words of the formula compiler that outlive one call and are read by its callers.
struct GenCom {
  int MGE = 0;     // words of the code list, a multiple of 4
  int ICON = 0;    // last constant slot of the operand table
  int KCON = 0;    // highest temporary used
  int LHS = 0;     // entries of the statement's variable list
  int NLAG = 0;    // LAG state slots
  int NSUM = 0;    // SUM state slots
  int NTRS = 0;    // target variable; -12345 after a true ENDIF
  int NR = 0;      // 1 if a code above 14 was emitted
  int LASTN = 0;   // observation reached by TRANS
  int LSEED = 0;   // random seed of SET RANSEED=, 0: the clock
  int LHSROW = 0;  // element target of MATRIX: row
  int LHSCOL = 0;  // and column, or the column of NAME:n=
};
inline constinit GenCom GENCOM{};

// Results of the last estimation, shared between the core, the results stage and the tests.
struct FCom {
  double SST = 0, SSE = 0;  // corrected total and error sums of squares
  double RAW = 0;           // raw sum of squares of y, after the results stage its R-square
  double RSQR = 0;          // R-square
  double SEPLOT = 1;        // sigma that scales the residual plot
  double DF = 0;            // degrees of freedom
  double XMAXL = 0;         // sum of log weights, later the log-likelihood
  double RHO = 0, RHO2 = 0;
  double RIDG = 0;  // ridge constant
  double SWT = 0;   // sum of weights
  double ZZ = 0;    // number of observations as a real
  int NQ = 0;       // restrictions in force
};
inline constinit FCom FCOM{};

// State of the random generators; lives as long as the process, RESET leaves it alone.
struct RanCom {
  double U1 = -1.0;     // uniform carried by FRANDN, negative: not started
  double R1 = 2.0;      // last uniform, 1 or more: not started
  int IW = -1;          // mantissa bits, measured at the first start
  int II2 = 0;          // running index into R3, counting down
  double RM = 0.0;      // 2**-12
  int IID = 0;          // divisor for the top partial word
  int IKT = 0;          // whole 12-bit pieces per word
  int I127 = 127;       // lag of the generator: SET RANLEVEL
  int IGAP = 0;         // kept, read by nobody
  double RMC = 1.0;     // scale of the low end of a word
  double R3[532] = {};  // lag table, R3(1) is R3[0]
};
inline constinit RanCom RANCOM{};

// The temporaries, in the order of the table; names of up to four characters.
inline constexpr std::array<std::string_view, NTEMPS> TEMPNAMES = {
    "T",    "F",    "CHI",  "DF1",  "DF2",  "STES", "PDF",  "CDF",  "CRIT", "R2",   "K",    "SIG2",
    "LLF",  "RAW",  "SST",  "SSR",  "SSE",  "DF",   "ANF",  "ZSST", "ZSSR", "ZDF",  "ZANF", "N",
    "DW",   "R2OP", "VAL",  "RHO",  "VAL1", "VAL2", "MISS", "DURH", "ERR",  "JB",   "ADR2", "ROWS",
    "COLS", "DO",   "DO2",  "DO3",  "DO4",  "DO5",  "DO6",  "DO7",  "DO8",  "DO9",  "DO10", "DO11",
    "DO12", "DO13", "DO14", "DO15", "DO16", "DO17", "DO18", "PI",   "CT11", "CT12", "CT22", "PVAL",
    "FPE",  "LAIC", "LSC",  "GCV",  "HQ",   "RICE", "SHIB", "SC",   "AIC",  "CV",   "CTES", "R2AN",
    "DATE", "TIME", "T6",   "T5",   "T4",   "T3",   "T2",   "T1"};

struct TemCom {
  std::array<double, NTEMPS> TEMVAL{};  // values, UNSET until an estimator sets them
};
inline constinit TemCom TEMCOM{};

// A temporary by its name, found when the program is built: temporary(temporary_place("R2")) =
// 0.95;
consteval int temporary_place(std::string_view name) {
  for (int i = 0; i < NTEMPS; ++i) {
    if (TEMPNAMES[static_cast<std::size_t>(i)] == name) return i;
  }
  throw "no temporary of that name";
}
inline double& temporary(int place) { return TEMCOM.TEMVAL[static_cast<std::size_t>(place)]; }

}  // namespace korvel
